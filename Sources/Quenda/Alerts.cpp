#include "Quenda/Alerts.h"

#include "Platform/Desktop.h"
#include "Quenda/GraphemeText.h"

#include <QLabel>
#include <QMessageBox>

namespace quenda {

namespace {

constexpr qsizetype kMostCharacters = 1000; // more would leave the screen, and no button to press

QString shown(const QString &text) {
    const QString start = firstGraphemes(text.left(8 * kMostCharacters), kMostCharacters);
    return start.size() < text.size() ? start + QStringLiteral("…") : text;
}

} // namespace

void showAlert(Workspace &workspace, const QString &title, const QString &text) {
    auto *box = new QMessageBox(QMessageBox::Warning, title, title, QMessageBox::Ok);
    box->setInformativeText(shown(text));
    // Error texts come from outside. The box's own setting does not reach all of its labels.
    for (QLabel *label : box->findChildren<QLabel *>())
        label->setTextFormat(Qt::PlainText);
    box->setDefaultButton(QMessageBox::Ok);
    box->setWindowModality(Qt::ApplicationModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->show();
    workspace.activateProgram();
}

} // namespace quenda
