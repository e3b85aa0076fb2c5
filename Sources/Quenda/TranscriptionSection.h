#pragma once
// Settings, "Transcription": the service, its key, model and address. Main thread only.

#include "Quenda/SettingsForm.h"

namespace quenda {

class TranscriptionSection : public SettingsSection {
    Q_OBJECT
public:
    explicit TranscriptionSection(ConfigStore &store, QWidget *parent = nullptr);
};

} // namespace quenda
