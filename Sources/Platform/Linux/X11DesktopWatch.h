#pragma once
// Watches the X server, through Qt's own connection, for two things that Qt does not tell: whether
// a compositing manager runs, and that the window manager changed the order of the windows. Owned
// by the workspace. Main thread only.

#include <QAbstractNativeEventFilter>
#include <QObject>

#include <functional>
#include <memory>

struct xcb_connection_t;

namespace quenda {

class X11DesktopWatch final : public QObject, private QAbstractNativeEventFilter {
    Q_OBJECT
public:
    /// Null where the program does not talk to an X server.
    static std::unique_ptr<X11DesktopWatch> create();
    ~X11DesktopWatch() override;

    bool isCompositing() const { return m_compositing; }
    /// Called from the event loop when isCompositing() has changed.
    std::function<void()> onCompositingChanged;
    /// Called when windows came above others; panels that the window manager does not manage may
    /// be covered now.
    std::function<void()> onRestacked;

private:
    explicit X11DesktopWatch(xcb_connection_t *connection);
    bool nativeEventFilter(const QByteArray &type, void *message, qintptr *result) override;
    void setCompositing(bool compositing);

    unsigned int m_root = 0;
    unsigned int m_compositorSelection = 0;
    unsigned int m_stackingProperty = 0;
    int m_selectionNotify = -1; ///< the event's number; -1 without the XFixes extension
    bool m_compositing = false;
};

} // namespace quenda
