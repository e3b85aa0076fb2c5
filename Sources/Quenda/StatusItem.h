#pragma once
// The program's icon in the desktop's status area, with the status menu. Made anew when the area's
// host comes, goes or changes; works unseen where there is none. Owned by the controller.
// Main thread only.

#include <QObject>

#include <memory>

class QMenu;
class QSystemTrayIcon;

namespace quenda {

class StatusTray;

class StatusItem : public QObject {
    Q_OBJECT
public:
    /// `menu` and `tray` outlive the item.
    StatusItem(QMenu &menu, StatusTray &tray, QObject *parent = nullptr);
    ~StatusItem() override;

    /// Shows the red, filled microphone while recording, the plain one otherwise.
    void setRecording(bool recording);
    bool isRecording() const { return m_recording; }
    /// Whether there is an icon for a host to show.
    bool isMade() const { return m_item != nullptr; }

private:
    void makeItem();
    void applyIcon();

    QMenu &m_menu;
    StatusTray &m_tray;
    std::unique_ptr<QSystemTrayIcon> m_item;
    bool m_recording = false;
};

} // namespace quenda
