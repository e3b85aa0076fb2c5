#pragma once
// Settings, "Engine": the local engine's state, its memory, port and program. Main thread only.

#include "Quenda/Observable.h"
#include "Quenda/SettingsForm.h"

#include <functional>

namespace quenda {

class WhisperEngine;

class EngineSection : public SettingsSection {
    Q_OBJECT
public:
    EngineSection(ConfigStore &store, WhisperEngine &engine, std::function<void()> restartEngine,
                  QWidget *parent = nullptr);

    /// The TCP port that `text` names; 0 where it is not a whole number from 1 to 65535.
    static int portFrom(const QString &text);

private:
    void addStatus(WhisperEngine &engine);
    void addPort();

    Subscription m_stateSubscription;
};

} // namespace quenda
