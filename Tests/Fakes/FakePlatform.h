#pragma once
// A whole platform of fakes: `platform` is what the controller takes, the pointers are the same
// parts with the controls that only tests see.

#include "Fakes/FakeAudioInput.h"
#include "Fakes/FakeKeyTap.h"
#include "Fakes/FakePasteboard.h"
#include "Fakes/FakeProcessRunner.h"
#include "Platform/Platform.h"

#include <QStringList>

namespace quenda::fakes {

class FakeSounds final : public Sounds {
public:
    void play(const QString &name) override { played.append(name); }
    void beep() override { ++beeps; }
    QStringList played;
    int beeps = 0;
};

class FakeSessionEvents final : public SessionEvents {
public:
    void setWakeHandler(std::function<void()> handler) override { wake = std::move(handler); }
    void setTerminateHandler(std::function<void()> handler) override {
        terminate = std::move(handler);
    }
    std::function<void()> wake;
    std::function<void()> terminate;
};

class FakeStatusTray final : public StatusTray {
public:
    void setHostChangedHandler(std::function<void()> handler) override {
        hostChanged = std::move(handler);
    }
    bool hasHost() const override { return host; }
    std::function<void()> hostChanged;
    bool host = true;
};

class FakeLoginItem final : public LoginItem {
public:
    bool isEnabled() const override { return enabled; }
    LoginItemOutcome setEnabled(bool wanted) override;
    bool enabled = false;
    bool refuse = false;
};

class FakeWorkspace final : public Workspace {
public:
    bool open(const QUrl &url) override;
    bool openPrivacyPane(const QString &pane) override;
    void activateProgram() override { ++activations; }
    void resetPermission(const QString &service) override { resets.append(service); }
    void relaunchAfterExit() override { ++relaunches; }
    void makeFloatingPanel(QWindow *, int) override { ++floatingPanels; }
    bool isCompositing() const override { return compositing; }
    void setCompositingHandler(std::function<void()> handler) override {
        compositingChanged = std::move(handler);
    }
    QString keyBindingAdvice() const override { return bindingAdvice; }

    QList<QUrl> opened;
    QStringList panes;
    QStringList resets;
    int activations = 0;
    int relaunches = 0;
    int floatingPanels = 0;
    QString bindingAdvice;
    bool compositing = true;
    std::function<void()> compositingChanged;
};

class FakeBundle final : public Bundle {
public:
    std::optional<QString> shortVersion() const override { return versionText; }
    std::optional<QString> version() const override { return buildText; }
    std::optional<QString> identifier() const override { return identifierText; }
    std::optional<QString> resourceDirectory() const override { return resources; }

    std::optional<QString> versionText = QStringLiteral("1.4.0");
    std::optional<QString> buildText = QStringLiteral("57");
    std::optional<QString> identifierText = QStringLiteral("org.quenda.Quenda");
    std::optional<QString> resources;
};

class FakeRemoteControl final : public RemoteControl {
public:
    void setHandler(Handler wanted) override { handler = std::move(wanted); }
    /// What the program answers to a request from outside.
    RemoteAnswer ask(RemoteCommand command, quint32 entry = 0) { return handler({command, entry}); }
    Handler handler;
};

struct FakePlatform {
    /// Builds the parts; `platform` is what the controller takes.
    FakePlatform();

    QStringList journal; ///< pasteboard, paste key and focus questions, in their order
    Platform platform;

    FakeKeyTapFactory *keyTaps = nullptr;
    FakeKeyPoster *keyPoster = nullptr;
    FakePasteboard *pasteboard = nullptr;
    FakeAccessibility *accessibility = nullptr;
    FakeMicrophonePermission *microphonePermission = nullptr;
    FakeAudioInput *audioInput = nullptr;
    FakeProcessRunner *processes = nullptr;
    FakeSounds *sounds = nullptr;
    FakeSessionEvents *sessionEvents = nullptr;
    FakeStatusTray *statusTray = nullptr;
    FakeLoginItem *loginItem = nullptr;
    FakeWorkspace *workspace = nullptr;
    FakeBundle *bundle = nullptr;
    FakeRemoteControl *remoteControl = nullptr;
};

} // namespace quenda::fakes
