#include <dv/env/OptionRegistration.h>

#include "OptionStore.h"
#include "SettingsText.h"

#include <fx.h>

#include <string>

namespace dv::env {

namespace {

// No look for an existing row and no build: a row appended before the build
// lies in front of the built-in rows, one appended after it behind them.
template <typename Value>
void registerRow(internal::OptionTable<Value>& table, std::string_view name, Value defaultValue,
                 std::string_view shortName, bool persistent) {
    if (name.empty())
        return;
    if (const std::string why = internal::unstorableNameReason(name); !why.empty()) {
        fxwarning("Option not registered, the settings cannot hold its name (%s): %.*s\n", why.c_str(),
                  static_cast<int>(name.size()), name.data());
        return;
    }
    internal::optionStore().add(
        table, internal::OptionRow<Value>(persistent, std::string(name), std::string(shortName), std::move(defaultValue)));
}

}  // namespace

void registerOptionInt(std::string_view name, std::int32_t defaultValue, std::string_view shortName,
                       bool persistent) {
    registerRow(internal::optionStore().ints, name, defaultValue, shortName, persistent);
}

void registerOptionBoolean(std::string_view name, bool defaultValue, std::string_view shortName, bool persistent) {
    registerRow(internal::optionStore().booleans, name, defaultValue, shortName, persistent);
}

void registerOptionReal(std::string_view name, double defaultValue, std::string_view shortName, bool persistent) {
    registerRow(internal::optionStore().reals, name, defaultValue, shortName, persistent);
}

void registerOptionString(std::string_view name, std::string_view defaultValue, std::string_view shortName,
                          bool persistent) {
    registerRow(internal::optionStore().strings, name, std::string(defaultValue), shortName, persistent);
}

void registerOptionUnits(std::string_view name, Unit defaultValue, std::string_view shortName, bool persistent) {
    registerOptionInt(name, static_cast<std::int32_t>(defaultValue), shortName, persistent);
}

}  // namespace dv::env
