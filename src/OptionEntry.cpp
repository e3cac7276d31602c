#include "OptionEntry.h"

#include "NumberText.h"
#include "SettingsSnapshot.h"

#include <fx.h>

#include <atomic>
#include <cstring>
#include <type_traits>

namespace dv::env::internal {

namespace {

std::atomic<std::int32_t> processProgramType{0};

// The section of each type.
template <typename Value>
constexpr const char* sectionOf = nullptr;
template <>
constexpr const char* sectionOf<std::int32_t> = "Integer";
template <>
constexpr const char* sectionOf<double> = "Real";
template <>
constexpr const char* sectionOf<std::string> = "String";
template <>
constexpr const char* sectionOf<bool> = "Boolean";

// Stores `text` in the row's entry unless the entry holds it already.
template <typename Value>
void store(const OptionRow<Value>& row, const char* text) {
    FXSettings& settings = settingsStore();
    const char* stored = settings.readStringEntry(sectionOf<Value>, row.name.c_str(), nullptr);
    if (stored == nullptr || std::strcmp(stored, text) != 0)
        settings.writeStringEntry(sectionOf<Value>, row.name.c_str(), text);
}

}  // namespace

FXSettings& settingsStore() {
    FXApp& app = *FXApp::instance();
    noteSettingsAccess(app);
    return app.reg();
}

std::int32_t programType() { return processProgramType.load(std::memory_order_relaxed); }

void setProgramType(std::int32_t value) { processProgramType.store(value, std::memory_order_relaxed); }

std::int32_t readEntry(const IntOption& row) {
    if (isProgramType(row.name))
        return programType();
    return settingsStore().readIntEntry(sectionOf<std::int32_t>, row.name.c_str(), row.defaultValue);
}

double readEntry(const RealOption& row) {
    const char* stored = settingsStore().readStringEntry(sectionOf<double>, row.name.c_str(), nullptr);
    if (stored == nullptr)
        return row.defaultValue;
    return scanReal(stored).value_or(row.defaultValue);
}

bool readEntry(const BoolOption& row) {
    return settingsStore().readIntEntry(sectionOf<bool>, row.name.c_str(), row.defaultValue ? 1 : 0) != 0;
}

std::string readEntry(const StringOption& row) {
    return settingsStore().readStringEntry(sectionOf<std::string>, row.name.c_str(), row.defaultValue.c_str());
}

void writeEntry(const IntOption& row, std::int32_t value) {
    if (isProgramType(row.name))
        setProgramType(value);
    else
        store(row, decimalText(value).c_str());
}

void writeEntry(const RealOption& row, double value) { store(row, sixteenDigitsText(value).c_str()); }

void writeEntry(const BoolOption& row, bool value) { store(row, value ? "1" : "0"); }

void writeEntry(const StringOption& row, std::string_view value) {
    // Command lines and files hold short values: no heap for those.
    char shortText[64];
    if (value.size() < sizeof shortText) {
        if (!value.empty())  // an empty view may have no data at all
            std::memcpy(shortText, value.data(), value.size());
        shortText[value.size()] = '\0';
        store(row, shortText);
    } else {
        store(row, std::string(value).c_str());
    }
}

template <typename Value>
void deleteEntry(const OptionRow<Value>& row) {
    if constexpr (std::is_same_v<Value, std::int32_t>) {
        if (isProgramType(row.name)) {
            setProgramType(row.defaultValue);
            return;
        }
    }
    // Deleting a missing entry would still mark the registry modified.
    FXSettings& settings = settingsStore();
    if (settings.existingEntry(sectionOf<Value>, row.name.c_str()))
        settings.deleteEntry(sectionOf<Value>, row.name.c_str());
}

template void deleteEntry(const IntOption&);
template void deleteEntry(const RealOption&);
template void deleteEntry(const StringOption&);
template void deleteEntry(const BoolOption&);

}  // namespace dv::env::internal
