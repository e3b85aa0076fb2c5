#pragma once
// One permission in the settings window: its mark, its state in words and the ways to mend it.
// Main thread only.

#include <QWidget>

#include <functional>

class QLabel;
class QPushButton;

namespace quenda {

class PermissionRow : public QWidget {
    Q_OBJECT
public:
    struct Actions {
        bool enable = false;
        bool openSettings = false;
        bool fix = false;
    };

    PermissionRow(const QString &title, const QString &fixTitle, QWidget *parent = nullptr);

    std::function<void()> onEnable;
    std::function<void()> onOpenSettings;
    std::function<void()> onFix;

    /// `detail` may be empty.
    void showState(bool granted, const QString &detail, Actions actions);

private:
    QString m_title;
    QLabel *m_mark = nullptr;
    QLabel *m_detail = nullptr;
    QWidget *m_buttons = nullptr;
    QPushButton *m_enable = nullptr;
    QPushButton *m_openSettings = nullptr;
    QPushButton *m_fix = nullptr;
};

} // namespace quenda
