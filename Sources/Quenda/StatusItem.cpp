#include "Quenda/StatusItem.h"

#include "Platform/StatusTray.h"
#include "Quenda/Symbols.h"

#include <QColor>
#include <QMenu>
#include <QPointer>
#include <QSystemTrayIcon>

namespace quenda {

namespace {
const QColor kSystemRed(255, 59, 48);
}

StatusItem::StatusItem(QMenu &menu, StatusTray &tray, QObject *parent)
    : QObject(parent),
      m_menu(menu),
      m_tray(tray) {
    makeItem();
    m_tray.setHostChangedHandler([self = QPointer<StatusItem>(this)] {
        if (self)
            self->makeItem();
    });
}

StatusItem::~StatusItem() {
    m_tray.setHostChangedHandler({});
}

void StatusItem::makeItem() {
    m_item.reset(); // the former one must be gone before its host sees the new one
    if (!m_tray.hasHost())
        return;
    m_item = std::make_unique<QSystemTrayIcon>();
    m_item->setToolTip(QStringLiteral("Quenda"));
    m_item->setContextMenu(&m_menu);
    applyIcon();
    m_item->show();
    // A click with the main button opens the menu too, where the host leaves that to the program.
    connect(m_item.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    m_menu.popup(QCursor::pos());
            });
}

void StatusItem::setRecording(bool recording) {
    if (m_recording == recording)
        return;
    m_recording = recording;
    applyIcon();
}

void StatusItem::applyIcon() {
    if (!m_item)
        return;
    m_item->setIcon(m_recording ? symbolIcon(QStringLiteral("mic.fill"), kSystemRed)
                                : symbolIcon(QStringLiteral("mic"), statusAreaColor()));
}

} // namespace quenda
