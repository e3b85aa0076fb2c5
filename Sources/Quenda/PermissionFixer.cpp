#include "Quenda/PermissionFixer.h"

#include "Platform/Platform.h"
#include "Platform/Scheduler.h"
#include "Quenda/Log.h"

#include <QPointer>
#include <QSettings>

#include <utility>

namespace quenda {

namespace {

const QString kPendingKey = QStringLiteral("pendingPermissionFix");
const QString kMicrophone = QStringLiteral("Microphone");
const QString kAccessibility = QStringLiteral("Accessibility");
constexpr std::chrono::milliseconds kTrustAnswer{1000}; // until the system's prompt was answered

} // namespace

PermissionFixer::PermissionFixer(Environment environment, QObject *parent)
    : QObject(parent),
      m_env(std::move(environment)) {}

void PermissionFixer::resetAndRelaunch(const QString &service) {
    if (!m_env.platform.bundle->identifier())
        return;
    Log::log(QStringLiteral("permissions: user triggered fix for ") + service +
             QStringLiteral(" — resetting and relaunching"));
    m_env.defaults.setValue(kPendingKey, service);
    m_env.defaults.sync(); // the process is about to end
    m_env.platform.workspace->resetPermission(service);
    relaunch();
}

void PermissionFixer::relaunch() {
    m_env.platform.workspace->relaunchAfterExit();
    m_env.terminate();
}

void PermissionFixer::completePendingFixIfNeeded() {
    const QVariant pending = m_env.defaults.value(kPendingKey);
    if (!pending.isValid())
        return;
    m_env.defaults.remove(kPendingKey); // first: a repair is completed at most once
    const QString service = pending.toString();
    const QPointer<PermissionFixer> self(this);
    if (service == kMicrophone) {
        m_env.platform.microphonePermission->requestAccess([self](bool granted) {
            if (self && !granted)
                self->openSystemSettings(QStringLiteral("Privacy_Microphone"));
        });
    } else if (service == kAccessibility) {
        m_env.platform.accessibility->isTrusted(TrustPrompt::Ask);
        m_env.scheduler.after(kTrustAnswer, this, [this] {
            if (!m_env.platform.accessibility->isTrusted())
                openSystemSettings(QStringLiteral("Privacy_Accessibility"));
        });
    }
}

void PermissionFixer::openSystemSettings(const QString &pane) {
    m_env.platform.workspace->openPrivacyPane(pane);
}

void PermissionFixer::requestMicrophone() {
    m_env.platform.microphonePermission->requestAccess({});
}

} // namespace quenda
