#include "Quenda/WelcomeView.h"

#include "Platform/Platform.h"
#include "Quenda/ConfigStore.h"
#include "Quenda/DownloadBar.h"
#include "Quenda/ModelCatalog.h"
#include "Quenda/ModelDownloader.h"
#include "Quenda/Note.h"
#include "Quenda/PermissionFixer.h"
#include "Quenda/StepRow.h"
#include "Quenda/Symbols.h"

#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include <utility>

namespace quenda {

namespace {
constexpr std::chrono::milliseconds kTick{1500};
constexpr int kPadding = 18;
constexpr int kIconSize = 72;
constexpr int kBarWidth = 110;
} // namespace

WelcomeView::WelcomeView(Environment environment, QWidget *parent)
    : QWidget(parent),
      m_env(std::move(environment)) {
    setFixedWidth(kWidth);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(kPadding, kPadding, kPadding, kPadding);
    column->setSpacing(14);
    addHeading();
    addSteps();
    addClosing();
    m_subscriptions.push_back(
        m_env.store.observable().subscribe([this](const Config &) { refresh(); }));
    m_subscriptions.push_back(
        m_env.downloader.progress.subscribe([this](const auto &) { refresh(); }));
    m_subscriptions.push_back(
        m_env.downloader.errors.subscribe([this](const auto &) { refresh(); }));
    recheck();
}

WelcomeView::~WelcomeView() = default;

void WelcomeView::addHeading() {
    auto *icon = new QLabel;
    icon->setPixmap(applicationIcon().pixmap(QSize(kIconSize, kIconSize), devicePixelRatioF()));
    icon->setAlignment(Qt::AlignCenter);
    icon->setAccessibleName(QStringLiteral("Quenda"));
    layout()->addWidget(icon);
    auto *heading = new QLabel(tr("Welcome to Quenda"));
    QFont font = heading->font();
    font.setPointSizeF(font.pointSizeF() * 1.6);
    font.setBold(true);
    heading->setFont(font);
    heading->setAlignment(Qt::AlignCenter);
    heading->setWordWrap(true);
    layout()->addWidget(heading);
    auto *line = new QLabel(tr("Fast, private dictation. Three quick steps and you're talking."));
    line->setAlignment(Qt::AlignCenter);
    line->setWordWrap(true);
    layout()->addWidget(line);
}

void WelcomeView::addSteps() {
    const auto button = [](const QString &text) {
        auto *made = new QPushButton(text);
        made->setAutoDefault(false);
        return made;
    };
    m_microphone = new StepRow(1, tr("Allow the microphone"), {});
    m_micButton = button({});
    m_microphone->addAction(m_micButton);
    connect(m_micButton, &QPushButton::clicked, this, [this] {
        if (m_micStatus == AuthorizationStatus::NotDetermined)
            m_env.fixer.requestMicrophone();
        else
            m_env.fixer.resetAndRelaunch(QStringLiteral("Microphone"));
    });

    m_accessibility = new StepRow(2, tr("Enable Accessibility (for the dictation key)"), {});
    QPushButton *enable = button(tr("Enable"));
    m_accessibility->addAction(enable);
    connect(enable, &QPushButton::clicked, this, [this] {
        m_env.platform.accessibility->isTrusted(TrustPrompt::Ask);
        m_env.fixer.openSystemSettings(QStringLiteral("Privacy_Accessibility"));
    });

    const WhisperModel &compact = WhisperModel::compact();
    m_model = new StepRow(3, tr("Get the speech model"),
                          compact.title + QStringLiteral(" — ") + compact.detail);
    m_downloadButton = button(tr("Download"));
    m_bar = new DownloadBar(kBarWidth);
    m_model->addAction(m_downloadButton);
    m_model->addAction(m_bar);
    connect(m_downloadButton, &QPushButton::clicked, this,
            [this] { m_env.downloader.download(WhisperModel::compact()); });
    for (StepRow *row : {m_microphone, m_accessibility, m_model})
        layout()->addWidget(row);
    m_downloadError = makeNote({}, this, NoteTone::failure);
    layout()->addWidget(m_downloadError);
}

void WelcomeView::addClosing() {
    m_ready = new QWidget;
    auto *lines = new QVBoxLayout(m_ready);
    lines->setContentsMargins(0, 0, 0, 0);
    lines->setSpacing(2);
    auto *how =
        new QLabel(tr("Then click into any text field, <b>hold Right-Option (⌥)</b>, and speak."));
    how->setTextFormat(Qt::RichText);
    QLabel *then =
        makeNote(tr("Release to insert your words. Change the key anytime in Settings."), m_ready);
    for (QLabel *label : {how, then}) {
        label->setWordWrap(true);
        label->setAlignment(Qt::AlignCenter);
        lines->addWidget(label);
    }
    layout()->addWidget(m_ready);
    m_close = new QPushButton;
    m_close->setDefault(true);
    connect(m_close, &QPushButton::clicked, this, [this] { m_env.onDone(); });
    layout()->addWidget(m_close);
    layout()->setAlignment(m_close, Qt::AlignCenter);
}

bool WelcomeView::allDone() const {
    return m_micStatus == AuthorizationStatus::Authorized && m_axTrusted &&
           QFile::exists(m_env.store.config().modelPath);
}

void WelcomeView::recheck() {
    m_micStatus = m_env.platform.microphonePermission->status();
    m_axTrusted = m_env.platform.accessibility->isTrusted();
    refresh();
}

void WelcomeView::refresh() {
    m_microphone->setDone(m_micStatus == AuthorizationStatus::Authorized);
    m_micButton->setText(m_micStatus == AuthorizationStatus::NotDetermined ? tr("Allow…")
                                                                           : tr("Fix…"));
    m_accessibility->setDone(m_axTrusted);

    const QString file = WhisperModel::compact().fileName;
    m_model->setDone(QFile::exists(m_env.store.config().modelPath));
    const auto &progress = m_env.downloader.progress.value();
    const bool downloading = progress.contains(file);
    m_downloadButton->setVisible(!downloading);
    m_bar->setVisible(downloading);
    if (downloading) {
        const auto transfer = m_env.downloader.transfers.value().value(file);
        m_bar->showProgress(progress.value(file), transfer.received, transfer.total,
                            m_env.scheduler.uptime());
    } else {
        m_bar->reset();
    }
    const QString error = m_env.downloader.errors.value().value(file);
    m_downloadError->setText(error);
    m_downloadError->setVisible(!error.isEmpty() && !m_model->isDone());

    m_ready->setVisible(allDone());
    m_close->setText(allDone() ? tr("Start Dictating") : tr("Finish Later"));
}

void WelcomeView::showEvent(QShowEvent *event) {
    recheck();
    m_ticker = m_env.scheduler.every(kTick, [this] { recheck(); });
    QWidget::showEvent(event);
}

void WelcomeView::hideEvent(QHideEvent *event) {
    m_ticker.reset();
    QWidget::hideEvent(event);
}

} // namespace quenda
