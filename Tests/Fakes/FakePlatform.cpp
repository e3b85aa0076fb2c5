#include "Fakes/FakePlatform.h"

namespace quenda::fakes {

LoginItemOutcome FakeLoginItem::setEnabled(bool wanted) {
    if (refuse)
        return LoginItemOutcome::Refused;
    enabled = wanted;
    return LoginItemOutcome::Done;
}

bool FakeWorkspace::open(const QUrl &url) {
    static const QStringList handled = {QStringLiteral("https"), QStringLiteral("http"),
                                        QStringLiteral("file")};
    if (!url.isValid() || !handled.contains(url.scheme()))
        return false;
    opened.append(url);
    return true;
}

bool FakeWorkspace::openPrivacyPane(const QString &pane) {
    panes.append(pane);
    return true;
}

namespace {
template <typename Part, typename Interface, typename... Arguments>
Part *make(std::unique_ptr<Interface> &slot, Arguments... arguments) {
    auto part = std::make_unique<Part>(arguments...);
    Part *seen = part.get();
    slot = std::move(part);
    return seen;
}
} // namespace

FakePlatform::FakePlatform() {
    keyTaps = make<FakeKeyTapFactory>(platform.keyTaps);
    keyPoster = make<FakeKeyPoster>(platform.keyPoster, &journal);
    pasteboard = make<FakePasteboard>(platform.pasteboard, &journal);
    accessibility = make<FakeAccessibility>(platform.accessibility, &journal);
    microphonePermission = make<FakeMicrophonePermission>(platform.microphonePermission);
    audioInput = make<FakeAudioInput>(platform.audioInput);
    processes = make<FakeProcessRunner>(platform.processes);
    sounds = make<FakeSounds>(platform.sounds);
    sessionEvents = make<FakeSessionEvents>(platform.sessionEvents);
    statusTray = make<FakeStatusTray>(platform.statusTray);
    loginItem = make<FakeLoginItem>(platform.loginItem);
    workspace = make<FakeWorkspace>(platform.workspace);
    bundle = make<FakeBundle>(platform.bundle);
    remoteControl = make<FakeRemoteControl>(platform.remoteControl);
}

} // namespace quenda::fakes
