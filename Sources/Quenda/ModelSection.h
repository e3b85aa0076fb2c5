#pragma once
// Settings, "Model": the catalog with its downloads, and extra models found in the models folder.
// Main thread only.

#include "Quenda/ModelDownloader.h"
#include "Quenda/Observable.h"
#include "Quenda/SettingsForm.h"

#include <QStringList>

#include <vector>

class QVBoxLayout;

namespace quenda {

class ModelRow;
class Scheduler;
class Workspace;

class ModelSection : public SettingsSection {
    Q_OBJECT
public:
    ModelSection(ConfigStore &store, ModelDownloader &downloader, Workspace &workspace,
                 const Scheduler &scheduler, QWidget *parent = nullptr);

    /// Lists the extra models of the models folder anew.
    void refreshExtraModels();

private:
    void refreshRows();
    ModelRow *addModel(const WhisperModel &model, bool extra);

    ModelDownloader &m_downloader;
    const Scheduler &m_scheduler;
    QStringList m_extraModels;
    QVBoxLayout *m_rows = nullptr;
    std::vector<ModelRow *> m_catalogRows;
    std::vector<ModelRow *> m_extraRows;
    std::vector<Subscription> m_subscriptions;
};

} // namespace quenda
