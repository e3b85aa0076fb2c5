#pragma once
// The one observable owner of the current settings. Created first of all by the controller; lives
// as long as the program. Main thread only.

#include "Quenda/Config.h"
#include "Quenda/Observable.h"

namespace quenda {

class ConfigStore {
public:
    /// Migrates the former data folder, then loads the settings file; a missing or unreadable one
    /// is replaced by the defaults.
    ConfigStore();
    ConfigStore(const ConfigStore &) = delete;
    ConfigStore &operator=(const ConfigStore &) = delete;

    const Config &config() const { return m_config.value(); }

    /// Observers are told of every assignment; a value that differs is saved at once.
    void setConfig(const Config &config);

    /// Changes some fields: `store.update([](Config &c) { c.language = "de"; })`.
    template <typename Change>
    void update(Change change) {
        Config changed = config();
        change(changed);
        setConfig(changed);
    }

    Observable<Config> &observable() { return m_config; }

private:
    Observable<Config> m_config;
};

} // namespace quenda
