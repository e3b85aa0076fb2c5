// Builds the macOS backend. The one file in which Qt's values meet the native parts.

#include "Platform/Folders.h"
#include "Platform/MacOS/MacAccessibility.h"
#include "Platform/MacOS/MacAudioCapture.h"
#include "Platform/MacOS/MacAudioDevices.h"
#include "Platform/MacOS/MacBundle.h"
#include "Platform/MacOS/MacKeyPoster.h"
#include "Platform/MacOS/MacKeyTap.h"
#include "Platform/MacOS/MacLoginItem.h"
#include "Platform/MacOS/MacPanel.h"
#include "Platform/MacOS/MacPasteboard.h"
#include "Platform/MacOS/MacPermissions.h"
#include "Platform/MacOS/MacProcess.h"
#include "Platform/MacOS/MacSession.h"
#include "Platform/MacOS/MacSounds.h"
#include "Platform/MacOS/MacSymbols.h"
#include "Platform/MacOS/MacWorkspace.h"
#include "Platform/Platform.h"
#include "Quenda/Symbols.h"

#include <QCoreApplication>
#include <QImage>
#include <QPixmap>
#include <QTimer>
#include <QWindow>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quenda {

namespace {

using mac::NativePasteboardItem;
using mac::NativePasteboardItems;

constexpr std::chrono::milliseconds kTerminateGrace{3000}; // from SIGTERM to SIGKILL

std::optional<QString> qtString(const std::optional<std::string> &text) {
    if (!text)
        return std::nullopt;
    return QString::fromStdString(*text);
}

std::vector<std::string> plainStrings(const QStringList &list) {
    std::vector<std::string> plain;
    for (const QString &text : list)
        plain.push_back(text.toStdString());
    return plain;
}

class BridgedPasteboard final : public Pasteboard {
public:
    void readItems(ItemsHandler handler) override {
        PasteboardItems items;
        for (const NativePasteboardItem &native : mac::readGeneralPasteboard()) {
            PasteboardItem item;
            for (const auto &[type, bytes] : native)
                item.types.emplace_back(QString::fromStdString(type),
                                        QByteArray(reinterpret_cast<const char *>(bytes.data()),
                                                   qsizetype(bytes.size())));
            items.push_back(std::move(item));
        }
        handler(std::move(items));
    }
    void clear() override { mac::clearGeneralPasteboard(); }
    bool setString(const QString &text) override {
        return mac::writeGeneralPasteboardString(text.toStdString());
    }
    bool writeItems(const PasteboardItems &items) override {
        NativePasteboardItems native;
        for (const PasteboardItem &item : items) {
            NativePasteboardItem copy;
            for (const auto &[type, bytes] : item.types)
                copy.emplace_back(type.toStdString(),
                                  std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
            native.push_back(std::move(copy));
        }
        return mac::writeGeneralPasteboardItems(native);
    }
    std::int64_t changeCount() const override { return mac::generalPasteboardChangeCount(); }
};

class BridgedCapture final : public AudioCapture {
public:
    mac::MacAudioCapture native;
};

class BridgedAudioInput final : public AudioInput {
public:
    AudioFormat nativeFormat() const override {
        const mac::NativeAudioFormat format = mac::nativeInputFormat();
        return {format.sampleRate, format.channels};
    }
    Result<std::unique_ptr<AudioCapture>> startCapture(const AudioFormat &, int maxFrames,
                                                       TapHandler handler) override {
        auto capture = std::make_unique<BridgedCapture>();
        mac::NativeError error;
        const bool started = capture->native.start(
            std::uint32_t(maxFrames),
            [handler = std::move(handler)](const float *const *channels, std::int64_t stride,
                                           std::int64_t frames, mac::NativeAudioFormat format) {
                handler({channels,
                         qsizetype(stride),
                         qsizetype(frames),
                         {format.sampleRate, format.channels}});
            },
            error);
        if (!started)
            return Error{QString::fromStdString(error.domain), int(error.code),
                         QString::fromStdString(error.description)};
        return std::unique_ptr<AudioCapture>(std::move(capture));
    }
    std::optional<QString> defaultDeviceName() const override {
        return qtString(mac::defaultInputDeviceName());
    }
    void setDefaultDeviceChangedHandler(std::function<void()> handler) override {
        m_listener.reset();
        if (handler)
            m_listener = std::make_unique<mac::DefaultInputListener>(std::move(handler));
    }

private:
    std::unique_ptr<mac::DefaultInputListener> m_listener;
};

class BridgedRunner final : public ProcessRunner {
public:
    Result<std::unique_ptr<ChildProcess>> launch(const LaunchRequest &request,
                                                 ExitHandler onExit) override {
        auto native = std::make_shared<mac::MacProcess>();
        std::string failure;
        if (!native->launch(request.executable.toStdString(), plainStrings(request.arguments),
                            request.outputFile.toStdString(), std::move(onExit), failure))
            return Error{QStringLiteral("Quenda"), 0, QString::fromStdString(failure)};
        // One whose end is not told yet stays: its handler is still owed the status.
        std::erase_if(m_children, [](const auto &child) { return child->hasEnded(); });
        m_children.push_back(native);
        return std::unique_ptr<ChildProcess>(std::make_unique<Child>(std::move(native)));
    }
    bool runAndWait(const QString &executable, const QStringList &arguments) override {
        return mac::runAndWait(executable.toStdString(), plainStrings(arguments));
    }

private:
    class Child final : public ChildProcess {
    public:
        explicit Child(std::shared_ptr<mac::MacProcess> native) : m_native(std::move(native)) {}
        qint64 processId() const override { return m_native->processId(); }
        void clearTerminationHandler() override { m_native->clearTerminationHandler(); }
        void terminate() override {
            m_native->terminate();
            QTimer::singleShot(kTerminateGrace, [weak = std::weak_ptr(m_native)] {
                if (const auto native = weak.lock())
                    native->kill();
            });
        }

    private:
        std::shared_ptr<mac::MacProcess> m_native;
    };

    std::vector<std::shared_ptr<mac::MacProcess>> m_children; ///< killed with the runner
};

class BridgedSounds final : public Sounds {
public:
    void play(const QString &name) override { mac::playSound(name.toStdString()); }
    void beep() override { mac::beep(); }
};

class BridgedSessionEvents final : public SessionEvents {
public:
    void setWakeHandler(std::function<void()> handler) override {
        m_wake.reset();
        if (handler)
            m_wake = std::make_unique<mac::WakeObserver>(std::move(handler));
    }
    void setTerminateHandler(std::function<void()> handler) override {
        m_signals.reset();
        if (handler)
            m_signals = std::make_unique<mac::SignalSources>(std::move(handler));
    }

private:
    std::unique_ptr<mac::WakeObserver> m_wake;
    std::unique_ptr<mac::SignalSources> m_signals;
};

// The menu bar is always there.
class BridgedStatusTray final : public StatusTray {
public:
    bool hasHost() const override { return true; }
    void setHostChangedHandler(std::function<void()>) override {}
};

class BridgedLoginItem final : public LoginItem {
public:
    bool isEnabled() const override { return mac::isLoginItemEnabled(); }
    LoginItemOutcome setEnabled(bool enabled) override {
        return mac::setLoginItemEnabled(enabled) ? LoginItemOutcome::Done
                                                 : LoginItemOutcome::Refused;
    }
};

class BridgedBundle final : public Bundle {
public:
    std::optional<QString> shortVersion() const override {
        return qtString(mac::bundleInfo("CFBundleShortVersionString"));
    }
    std::optional<QString> version() const override {
        return qtString(mac::bundleInfo("CFBundleVersion"));
    }
    std::optional<QString> identifier() const override { return qtString(mac::bundleIdentifier()); }
    std::optional<QString> resourceDirectory() const override {
        return qtString(mac::bundleResourcePath());
    }
};

// Launch Services starts a program once and opens the one that runs; it takes no requests.
class BridgedRemoteControl final : public RemoteControl {
public:
    void setHandler(Handler) override {}
};

class BridgedWorkspace final : public Workspace {
public:
    bool open(const QUrl &url) override { return mac::openUrl(url.toEncoded().toStdString()); }
    bool openPrivacyPane(const QString &pane) override {
        return mac::openUrl("x-apple.systempreferences:com.apple.preference.security?" +
                            pane.toStdString());
    }
    void activateProgram() override { mac::activateProgram(); }
    void resetPermission(const QString &service) override {
        const std::string identifier = mac::bundleIdentifier().value_or(std::string());
        mac::runAndWait("/usr/bin/tccutil", {"reset", service.toStdString(), identifier});
    }
    void relaunchAfterExit() override {
        mac::runDetached("/bin/sh", {"-c", mac::relaunchCommand(mac::bundlePath())});
    }
    void makeFloatingPanel(QWindow *window, int) override {
        mac::makeFloatingPanel(reinterpret_cast<void *>(window->winId()));
    }
    bool isCompositing() const override { return true; }
    void setCompositingHandler(std::function<void()>) override {}
    QString keyBindingAdvice() const override { return {}; } // nothing that a program could run
};

QPixmap systemSymbol(const QString &name, const QColor &color, int size, qreal ratio) {
    const int pixels = qRound(size * ratio);
    const auto bitmap = mac::systemSymbol(
        name.toStdString(), {color.redF(), color.greenF(), color.blueF(), color.alphaF()}, pixels);
    if (!bitmap)
        return {};
    const QImage image(bitmap->pixels.data(), bitmap->size, bitmap->size, bitmap->size * 4,
                       QImage::Format_RGBA8888_Premultiplied);
    QPixmap pixmap = QPixmap::fromImage(image.copy());
    pixmap.setDevicePixelRatio(ratio);
    return pixmap;
}

} // namespace

Folders platformFolders() {
    Folders folders;
    folders.applicationSupport = QString::fromStdString(mac::applicationSupportFolder());
    folders.logs = QString::fromStdString(mac::libraryFolder()) + QStringLiteral("/Logs");
    folders.migratedPathPrefix = QStringLiteral("/Application Support/");
    return folders;
}

std::unique_ptr<Bundle> createBundle() {
    return std::make_unique<BridgedBundle>();
}

Failure prepareApplication() {
    // Otherwise Qt would give a program that is started outside of its bundle a Dock icon.
    qputenv("QT_MAC_DISABLE_FOREGROUND_APPLICATION_TRANSFORM", "1");
    return std::nullopt;
}

bool becomeOnlyInstance() {
    return true;
}

RemoteReply askRunningProgram(const RemoteRequest &) {
    return {RemoteOutcome::Unavailable,
            {},
            QCoreApplication::translate("RemoteControl",
                                        "The running program cannot be told anything on this "
                                        "system.")};
}

Platform createPlatform() {
    mac::setActivationPolicyAccessory();
    setSymbolProvider(systemSymbol);
    Platform platform;
    platform.keyTaps = std::make_unique<mac::MacKeyTapFactory>();
    platform.keyPoster = std::make_unique<mac::MacKeyPoster>();
    platform.pasteboard = std::make_unique<BridgedPasteboard>();
    platform.accessibility = std::make_unique<mac::MacAccessibility>();
    platform.microphonePermission = std::make_unique<mac::MacMicrophonePermission>();
    platform.audioInput = std::make_unique<BridgedAudioInput>();
    platform.processes = std::make_unique<BridgedRunner>();
    platform.sounds = std::make_unique<BridgedSounds>();
    platform.sessionEvents = std::make_unique<BridgedSessionEvents>();
    platform.statusTray = std::make_unique<BridgedStatusTray>();
    platform.loginItem = std::make_unique<BridgedLoginItem>();
    platform.workspace = std::make_unique<BridgedWorkspace>();
    platform.bundle = createBundle();
    platform.remoteControl = std::make_unique<BridgedRemoteControl>();
    return platform;
}

} // namespace quenda
