#include "Quenda/Alerts.h"

#include "Platform/Desktop.h"

#include <QMessageBox>

namespace quenda {

void showAlert(Workspace &workspace, const QString &title, const QString &text) {
    auto *box = new QMessageBox(QMessageBox::Warning, title, title, QMessageBox::Ok);
    box->setInformativeText(text);
    box->setTextFormat(Qt::PlainText); // error texts come from outside
    box->setDefaultButton(QMessageBox::Ok);
    box->setWindowModality(Qt::ApplicationModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->show();
    workspace.activateProgram();
}

} // namespace quenda
