#include "Quenda/ConfigStore.h"

namespace quenda {

namespace {

Config loadOrCreate() {
    Config::migrateLegacyDataIfNeeded();
    if (const Result<Config> loaded = Config::load())
        return loaded.value();
    const Config config = Config::defaults();
    config.save();
    return config;
}

} // namespace

ConfigStore::ConfigStore() : m_config(loadOrCreate()) {}

void ConfigStore::setConfig(const Config &config) {
    const bool differs = config != this->config();
    m_config.set(config);
    // An observer may have assigned again meanwhile: the file gets what is in force now.
    if (differs)
        this->config().save();
}

} // namespace quenda
