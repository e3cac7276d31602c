#include <dv/env/OptionRegistration.h>

#include "OptionTables.h"
#include "OptionsRecorder.h"

#include <string>

namespace dv::env {

namespace {

// No look for an existing row and no build: a row appended before the build
// lies in front of the built-in rows, one appended after it behind them.
template <typename Row, typename Value>
void registerRow(std::vector<Row>& table, std::string_view name, Value defaultValue, std::string_view shortName,
                 bool persistent) {
    if (name.empty())
        return;
    table.emplace_back(persistent, std::string(name), std::string(shortName), defaultValue);
    internal::optionsRecorderInstance()->setDefault(name, ConfigValue(std::move(defaultValue)));
}

}  // namespace

void registerOptionInt(std::string_view name, std::int32_t defaultValue, std::string_view shortName,
                       bool persistent) {
    registerRow(internal::intOptions, name, int{defaultValue}, shortName, persistent);
}

void registerOptionBoolean(std::string_view name, bool defaultValue, std::string_view shortName, bool persistent) {
    registerRow(internal::boolOptions, name, defaultValue, shortName, persistent);
}

void registerOptionReal(std::string_view name, double defaultValue, std::string_view shortName, bool persistent) {
    registerRow(internal::realOptions, name, defaultValue, shortName, persistent);
}

void registerOptionString(std::string_view name, std::string_view defaultValue, std::string_view shortName,
                          bool persistent) {
    registerRow(internal::stringOptions, name, std::string(defaultValue), shortName, persistent);
}

void registerOptionUnits(std::string_view name, Unit defaultValue, std::string_view shortName, bool persistent) {
    registerOptionInt(name, static_cast<std::int32_t>(defaultValue), shortName, persistent);
}

}  // namespace dv::env
