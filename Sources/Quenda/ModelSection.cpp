#include "Quenda/ModelSection.h"

#include "Platform/Desktop.h"
#include "Platform/Scheduler.h"
#include "Quenda/ConfigStore.h"
#include "Quenda/FlowLayout.h"
#include "Quenda/LinkLabel.h"
#include "Quenda/ModelCatalog.h"
#include "Quenda/ModelRow.h"
#include "Quenda/ProductSite.h"

#include <QDir>
#include <QFile>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace quenda {

namespace {
QString pathOf(const WhisperModel &model) {
    return Config::modelsDir() + QLatin1Char('/') + model.fileName;
}
} // namespace

ModelSection::ModelSection(ConfigStore &store, ModelDownloader &downloader, Workspace &workspace,
                           const Scheduler &scheduler, QWidget *parent)
    : SettingsSection(tr("Model"), store, parent),
      m_downloader(downloader),
      m_scheduler(scheduler) {
    auto *list = new QWidget;
    m_rows = new QVBoxLayout(list);
    m_rows->setContentsMargins(0, 0, 0, 0);
    m_rows->setSpacing(10);
    addWide(list);
    for (const WhisperModel &model : WhisperModel::catalog())
        m_catalogRows.push_back(addModel(model, false));
    addNote(tr("Models marked (English) are English-only. Drop any ggml .bin file into the models "
               "folder to use it."));

    auto *row = new QWidget;
    auto *line = new FlowLayout(row, false);
    auto *open = new QPushButton(tr("Open Models Folder"));
    open->setAutoDefault(false);
    connect(open, &QPushButton::clicked, this, [&workspace] {
        QDir().mkpath(Config::modelsDir());
        workspace.open(QUrl::fromLocalFile(Config::modelsDir()));
    });
    auto *browse = new LinkLabel(
        QStringLiteral("<a href=\"%1\">%2</a>").arg(kModelPageUrl, tr("Browse all models…")),
        kModelPageUrl);
    browse->setAccessibleName(tr("Browse all models…"));
    connect(browse, &QLabel::linkActivated, this,
            [&workspace](const QString &link) { workspace.open(QUrl(link)); });
    line->addWidget(open);
    line->addWidget(browse);
    addWide(row);

    onRefresh([this](const Config &) { refreshRows(); });
    m_subscriptions.push_back(
        m_downloader.progress.subscribe([this](const auto &) { refreshRows(); }));
    m_subscriptions.push_back(
        m_downloader.errors.subscribe([this](const auto &) { refreshRows(); }));
}

ModelRow *ModelSection::addModel(const WhisperModel &model, bool extra) {
    auto *row = new ModelRow(model, extra);
    row->onDownload = [this, model] { m_downloader.download(model); };
    row->onUse = [this, model] {
        store().update([&](Config &config) { config.modelPath = pathOf(model); });
    };
    m_rows->addWidget(row);
    return row;
}

void ModelSection::refreshExtraModels() {
    const QStringList found = extraModels();
    if (found != m_extraModels) {
        m_extraModels = found;
        for (ModelRow *row : m_extraRows)
            delete row;
        m_extraRows.clear();
        for (const QString &fileName : found)
            m_extraRows.push_back(addModel({fileName, fileName, tr("Custom model"), 0}, true));
    }
    refreshRows();
}

void ModelSection::refreshRows() {
    const QString inUse = store().config().modelPath;
    const auto &progress = m_downloader.progress.value();
    const auto &errors = m_downloader.errors.value();
    const auto refresh = [&](ModelRow *row) {
        const QString fileName = row->model().fileName;
        ModelRow::Facts facts;
        if (progress.contains(fileName))
            facts.progress = progress.value(fileName);
        facts.fileExists = QFile::exists(pathOf(row->model()));
        facts.configured = inUse == pathOf(row->model());
        row->show(facts, errors.value(fileName), m_downloader.transfers.value().value(fileName),
                  m_scheduler.uptime());
    };
    for (ModelRow *row : m_catalogRows)
        refresh(row);
    for (ModelRow *row : m_extraRows)
        refresh(row);
}

} // namespace quenda
