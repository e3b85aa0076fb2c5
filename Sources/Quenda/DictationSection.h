#pragma once
// Settings, "Dictation": key, activation, limits, language, fillers and vocabulary.
// Main thread only.

#include "Quenda/SettingsForm.h"

namespace quenda {

class DictationSection : public SettingsSection {
    Q_OBJECT
public:
    explicit DictationSection(ConfigStore &store, QWidget *parent = nullptr);

    /// Whether the local model in use understands only English while another language is chosen.
    static bool englishOnlyModelMismatch(const Config &config);

private:
    void addKeyAndMode();
    void addLimits();
    void addLanguage();
};

} // namespace quenda
