#pragma once
// The keyboard as X11 shows it to a listener: XInput 2.2 raw key events of all master keyboards,
// on a connection of each tap's own, read when its socket becomes readable. Nothing is grabbed or
// consumed, and raw events also come while another client has grabbed the keyboard.
// Owned by the monitor that asked for the tap. Main thread only.
//
// Each key press anywhere in the session wakes the program once (raw events cannot be narrowed to
// single keys); all but the modifiers and Escape are dropped after a table look-up. A held key
// gives one event: the server repeats keys after the raw events are sent.

#include "Platform/KeyTap.h"
#include "Platform/Linux/SyntheticKeys.h"
#include "Platform/Linux/X11Connection.h"
#include "Platform/Linux/X11Keyboard.h"

#include <QObject>
#include <QTimer>

#include <array>
#include <deque>
#include <optional>

class QSocketNotifier;

namespace quenda {

struct MacKey;

class X11KeyTap final : public QObject, public KeyTap, private SyntheticKeys::Listener {
    Q_OBJECT
public:
    /// A tap, not yet enabled; null without an X server that has XInput 2.2.
    static std::unique_ptr<X11KeyTap> create(std::shared_ptr<SyntheticKeys> synthetic,
                                             Handler handler);
    ~X11KeyTap() override;

    bool isEnabled() const override { return m_enabled; }
    /// Switching on opens a new connection where the old one was lost.
    void setEnabled(bool enabled) override;

private:
    X11KeyTap(std::shared_ptr<SyntheticKeys> synthetic, Handler handler);

    bool connectToServer();
    void dropConnection();
    bool startListening();
    void stopListening();

    void readSocket();
    void readArrivedEvents() override;
    void readWhatIsThere();
    void handleKey(std::uint8_t xKeyCode, bool press, std::uint32_t sequence);
    std::optional<MacKey> translate(std::uint8_t xKeyCode);
    std::uint64_t flagsNow();
    void reportRelease(std::uint8_t xKeyCode);
    void reportLoss();
    void deliver();
    void deliverSoon();

    void askForTruth();
    void readTruth();
    void compareWithTruth(const KeySet &truth, std::uint32_t sequence);
    void askOnlyWhileHeld();

    std::shared_ptr<SyntheticKeys> m_synthetic;
    Handler m_handler;
    std::unique_ptr<X11Connection> m_connection;
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::uint8_t m_inputOpcode = 0;
    bool m_enabled = false;
    std::deque<KeyEvent> m_pending;
    bool m_delivering = false;

    KeySet m_down;                  ///< the modifiers that are down, as the events say
    std::optional<KeySet> m_fnKeys; ///< none until asked for, or after a change of the layout

    // Whether the modifiers that are held are down in truth.
    QTimer m_truthTimer;
    std::optional<std::uint32_t> m_truthRequest; ///< its sequence number while unanswered
    std::uint64_t m_generationAtRequest = 0;
    std::array<std::uint32_t, 256> m_pressedAt{}; ///< sequence number of the press
    KeySet m_confirmed;                           ///< held keys that the server has called down
    KeySet m_deniedOnce;                          ///< held keys that it has once called up
};

class X11KeyTapFactory final : public KeyTapFactory {
public:
    explicit X11KeyTapFactory(std::shared_ptr<SyntheticKeys> synthetic);
    std::unique_ptr<KeyTap> createTap(KeyTap::Handler handler) override;
    KeyReach reach() const override;

private:
    std::shared_ptr<SyntheticKeys> m_synthetic;
};

} // namespace quenda
