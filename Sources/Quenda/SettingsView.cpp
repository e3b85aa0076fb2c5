#include "Quenda/SettingsView.h"

#include "Platform/Platform.h"
#include "Quenda/ConfigStore.h"
#include "Quenda/DictationSection.h"
#include "Quenda/EngineSection.h"
#include "Quenda/GeneralSection.h"
#include "Quenda/ModelSection.h"
#include "Quenda/PermissionsSection.h"
#include "Quenda/TranscriptionSection.h"

#include <QScrollArea>
#include <QVBoxLayout>

namespace quenda {

namespace {
constexpr std::chrono::milliseconds kPermissionTick{2000};
}

SettingsView::SettingsView(const Environment &environment, QWidget *parent)
    : QWidget(parent),
      m_env(environment) {
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setFocusPolicy(Qt::NoFocus);
    outer->addWidget(scroll);

    auto *content = new QWidget;
    auto *column = new QVBoxLayout(content);
    column->setContentsMargins(12, 16, 12, 16);
    column->setSpacing(18);
    m_permissions = new PermissionsSection(m_env.store, m_env.platform, m_env.fixer);
    m_models =
        new ModelSection(m_env.store, m_env.downloader, *m_env.platform.workspace, m_env.scheduler);
    m_general = new GeneralSection(m_env.store, *m_env.platform.loginItem);
    m_sections = {
        m_permissions,
        new DictationSection(m_env.store),
        new TranscriptionSection(m_env.store),
        m_models,
        new EngineSection(m_env.store, m_env.engine, m_env.restartEngine),
        m_general,
    };
    for (SettingsSection *section : m_sections)
        column->addWidget(section);
    SettingsSection::alignLabels(m_sections);
    column->addStretch(1);
    scroll->setWidget(content);

    m_subscriptions.push_back(m_env.store.observable().subscribe([this](const Config &) {
        for (SettingsSection *section : m_sections)
            section->refresh();
    }));
}

SettingsView::~SettingsView() = default;

void SettingsView::refreshOwnState() {
    m_permissions->recheck();
    m_general->refreshLaunchAtLogin();
}

void SettingsView::showEvent(QShowEvent *event) {
    refreshOwnState();
    m_models->refreshExtraModels();
    m_permissionTicker = m_env.scheduler.every(kPermissionTick, [this] { refreshOwnState(); });
    QWidget::showEvent(event);
}

void SettingsView::hideEvent(QHideEvent *event) {
    m_permissionTicker.reset();
    QWidget::hideEvent(event);
}

} // namespace quenda
