// The status menu, its status line and the recent dictations.

#include "Quenda/AppDelegate.h"
#include "Quenda/GraphemeText.h"
#include "Quenda/MenuText.h"
#include "Quenda/StatusItem.h"
#include "Quenda/Symbols.h"

#include <QAction>
#include <QFileInfo>
#include <QKeySequence>
#include <QMenu>

namespace quenda {

namespace {

constexpr qsizetype kHistoryTitleLength = 50; // in user-perceived characters

QAction *addInfo(QMenu &menu, const QString &title) {
    QAction *item = menu.addAction(menuText(title));
    item->setEnabled(false);
    return item;
}

} // namespace

void AppDelegate::setupStatusItem() {
    m_menu = std::make_unique<QMenu>();
    QMenu &menu = *m_menu;

    m_updateMenuItem = menu.addAction(tr("Update available"));
    m_updateMenuItem->setIcon(
        symbolIcon(QStringLiteral("arrow.down.circle.fill"), menu.palette().color(QPalette::Text)));
    m_updateMenuItem->setVisible(false);
    m_updateSeparator = menu.addSeparator();
    m_updateSeparator->setVisible(false);
    m_statusMenuItem = addInfo(menu, tr("Starting engine…"));
    menu.addSeparator();
    const Config &config = m_store->config();
    m_hintMenuItem = addInfo(menu, hintText(config.hotkey, config.activationMode));
    m_micMenuItem = addInfo(menu, tr("Mic: —"));
    menu.addSeparator();
    m_historyMenu = menu.addMenu(tr("Recent Dictations"));
    menu.addSeparator();
    QAction *settings = menu.addAction(tr("Settings…"), this, &AppDelegate::openSettings);
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    menu.addAction(tr("Restart Engine"), this, &AppDelegate::restartEngine);
    menu.addAction(tr("Check for Updates…"), this, &AppDelegate::checkForUpdatesNow);
    menu.addAction(tr("About Quenda"), this, &AppDelegate::openAbout);
    menu.addSeparator();
    QAction *quit = menu.addAction(tr("Quit Quenda"), this, [this] { m_env.terminate(); });
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    connect(m_updateMenuItem, &QAction::triggered, this, &AppDelegate::openUpdate);

    m_historyMenu->setToolTipsVisible(true);
    connect(m_menu.get(), &QMenu::aboutToShow, this, &AppDelegate::menuWillOpen);
    rebuildHistoryMenu();

    m_statusItem = std::make_unique<StatusItem>(menu, *m_env.platform.statusTray);
    setIcon(false);
}

bool AppDelegate::statusItemShowsRecording() const {
    return m_statusItem && m_statusItem->isRecording();
}

QString AppDelegate::statusLine() {
    const Config &config = m_store->config();
    if (config.provider != TranscriptionProvider::local) {
        const QString name = title(config.provider);
        if (config.apiKey().isEmpty())
            return tr("%1: add API key in Settings").arg(name);
        return tr("Ready — %1 (%2)").arg(name, config.effectiveRemoteModel());
    }
    const QString model = QFileInfo(config.modelPath).fileName();
    using Kind = WhisperEngine::State::Kind;
    switch (engine().state().kind) {
    case Kind::stopped:
        return tr("Engine stopped");
    case Kind::starting:
        return tr("Loading model (%1)…").arg(model);
    case Kind::ready:
        return tr("Ready — %1").arg(model);
    case Kind::idle:
        return tr("Idle — wakes on dictation");
    case Kind::failed:
        return tr("Engine problem — open Settings");
    }
    return {};
}

void AppDelegate::refreshStatus() {
    if (m_statusMenuItem)
        m_statusMenuItem->setText(menuText(statusLine()));
}

QString AppDelegate::hintText(HotkeyChoice hotkey, ActivationMode mode) {
    const QString label = title(hotkey);
    if (mode == ActivationMode::hold)
        return tr("Hold %1 to dictate").arg(label);
    return tr("Press %1 to start/stop dictating").arg(label);
}

void AppDelegate::menuWillOpen() {
    const std::optional<QString> device =
        AudioRecorder::defaultInputDeviceName(*m_env.platform.audioInput);
    m_micMenuItem->setText(menuText(tr("Mic: %1").arg(device.value_or(tr("no input device")))));
    rebuildHistoryMenu();
}

void AppDelegate::rebuildHistoryMenu() {
    m_historyMenu->clear();
    if (m_history.isEmpty()) {
        addInfo(*m_historyMenu, tr("No dictations yet"));
        return;
    }
    for (const QString &entry : std::as_const(m_history)) {
        const QString start = firstGraphemes(entry, kHistoryTitleLength);
        const QString shown = start.size() < entry.size() ? start + QStringLiteral("…") : entry;
        QAction *item = m_historyMenu->addAction(menuText(shown));
        item->setData(entry);
        item->setToolTip(tr("Click to copy the full text"));
        connect(item, &QAction::triggered, this,
                [this, item] { copyHistoryItem(item->data().toString()); });
    }
    m_historyMenu->addSeparator();
    m_historyMenu->addAction(tr("Clear History"), this, &AppDelegate::clearHistory);
}

void AppDelegate::copyHistoryItem(const QString &text) {
    m_env.platform.pasteboard->clear();
    m_env.platform.pasteboard->setString(text);
    m_indicator->showTransient(tr("Copied ✓"));
}

void AppDelegate::clearHistory() {
    m_history.clear();
}

} // namespace quenda
