#include <dv/env/Options.h>

#include <dv/env/StampLog.h>

#include "OptionStore.h"
#include "OptionsRecorder.h"

#include <fx.h>

#include <atomic>
#include <cstdio>
#include <iostream>
#include <type_traits>
#include <utility>

namespace dv::env {

namespace {

using namespace internal;

std::atomic<std::int32_t> programType{0};

template <typename Value>
const Value& loggable(const Value& value) {
    return value;
}
// Booleans go to the log as 1 or 0.
int loggable(bool value) { return value ? 1 : 0; }

// The duties of every typed read: log a value the row has not shown before, and
// note the read in the recorder if asked to.
template <typename Value>
void noteRead(StoredOption<Value>& row, const Value& value, std::string_view spelledName, bool record) {
    if (row.lastRead.changedTo(value))
        std::clog << StampLog(__FILE__, __LINE__) << row.name << " = " << loggable(value) << std::endl;
    if (record)
        optionsRecorderInstance()->record(spelledName, ConfigValue(std::in_place_type<Value>, value));
}

// The row a typed access means: the one of that name, ignoring case, or row 0
// for a name that no row has.
template <typename Value>
StoredOption<Value>& rowFor(OptionTable<Value>& table, std::string_view name) {
    optionStore().build();
    return table.rowForTypedAccess(name);
}

template <typename Value>
StoredOption<Value>* knownRow(OptionTable<Value>& table, std::string_view name) {
    optionStore().build();
    const auto index = table.findName(name);
    return index ? &table[*index] : nullptr;
}

std::string realText(double value) {
    char text[512];  // "%f" of the largest double has 316 digits
    std::snprintf(text, sizeof text, "%f", value);
    return text;
}

}  // namespace

std::int32_t getOptionInt(std::string_view name, bool record) {
    if (name == programTypeName)
        return programType.load(std::memory_order_relaxed);
    auto& row = rowFor(optionStore().ints, name);
    const std::int32_t value = settingsStore().readIntEntry(intSection, row.name.c_str(), row.defaultValue);
    noteRead(row, value, name, record);
    return value;
}

double getOptionReal(std::string_view name, bool record) {
    auto& row = rowFor(optionStore().reals, name);
    const double value = settingsStore().readRealEntry(realSection, row.name.c_str(), row.defaultValue);
    noteRead(row, value, name, record);
    return value;
}

bool getOptionBoolean(std::string_view name, bool record) {
    auto& row = rowFor(optionStore().booleans, name);
    const bool value = settingsStore().readIntEntry(boolSection, row.name.c_str(), row.defaultValue ? 1 : 0) != 0;
    noteRead(row, value, name, record);
    return value;
}

std::string getOptionString(std::string_view name, bool record) {
    auto& row = rowFor(optionStore().strings, name);
    std::string value = settingsStore().readStringEntry(stringSection, row.name.c_str(), row.defaultValue.c_str());
    noteRead(row, value, name, record);
    return value;
}

bool getOption(std::string_view name, std::string& value, bool record) {
    OptionStore& store = optionStore();
    store.build();
    const auto found = store.findTextual(store.resolve(name, false), false);
    if (!found) {
        fxwarning("Unknown option: %.*s\n", static_cast<int>(name.size()), name.data());
        return false;
    }
    switch (found->table) {
    case OptionStore::stringTable: value = getOptionString(store.strings[found->index].name, record); break;
    case OptionStore::booleanTable:
        value = getOptionBoolean(store.booleans[found->index].name, record) ? "true" : "false";
        break;
    case OptionStore::integerTable: value = std::to_string(getOptionInt(store.ints[found->index].name, record)); break;
    case OptionStore::realTable: value = realText(getOptionReal(store.reals[found->index].name, record)); break;
    case OptionStore::tableCount: break;
    }
    return true;
}

void setOptionInt(std::string_view name, std::int32_t value) {
    if (name == programTypeName) {
        programType.store(value, std::memory_order_relaxed);
        return;
    }
    if (const auto* row = knownRow(optionStore().ints, name))
        settingsStore().writeIntEntry(intSection, row->name.c_str(), value);
}

void setOptionReal(std::string_view name, double value) {
    if (const auto* row = knownRow(optionStore().reals, name))
        settingsStore().writeRealEntry(realSection, row->name.c_str(), value);
}

void setOptionBoolean(std::string_view name, bool value) {
    if (const auto* row = knownRow(optionStore().booleans, name))
        settingsStore().writeIntEntry(boolSection, row->name.c_str(), value ? 1 : 0);
}

void setOptionString(std::string_view name, std::string_view value) {
    if (const auto* row = knownRow(optionStore().strings, name))
        settingsStore().writeStringEntry(stringSection, row->name.c_str(), std::string(value).c_str());
}

namespace {

// Deletes the row's entry where it has one: deleting a missing entry would
// still mark the registry modified.
template <typename Value>
void deleteEntry(const StoredOption<Value>& row, const char* section) {
    if constexpr (std::is_same_v<Value, std::int32_t>) {
        if (row.name == programTypeName) {
            programType.store(row.defaultValue, std::memory_order_relaxed);
            return;
        }
    }
    FXSettings& settings = settingsStore();
    if (settings.existingEntry(section, row.name.c_str()))
        settings.deleteEntry(section, row.name.c_str());
}

}  // namespace

bool resetOption(std::string_view name) {
    OptionStore& store = optionStore();
    store.build();
    const OptionStore::Resolved resolved = store.resolve(name, true);
    const auto found = store.findTextual(resolved, true);
    if (!found) {
        fxwarning("Unknown option: %.*s\n", static_cast<int>(name.size()), name.data());
        return false;
    }
    switch (found->table) {
    case OptionStore::stringTable: deleteEntry(store.strings[found->index], stringSection); break;
    case OptionStore::booleanTable: deleteEntry(store.booleans[found->index], boolSection); break;
    case OptionStore::integerTable: deleteEntry(store.ints[found->index], intSection); break;
    case OptionStore::realTable: deleteEntry(store.reals[found->index], realSection); break;
    case OptionStore::tableCount: break;
    }
    return true;
}

void resetAllOptions() {
    OptionStore& store = optionStore();
    store.build();
    for (const auto& row : store.strings)
        deleteEntry(row, stringSection);
    for (const auto& row : store.booleans)
        deleteEntry(row, boolSection);
    for (const auto& row : store.ints)
        deleteEntry(row, intSection);
    for (const auto& row : store.reals)
        deleteEntry(row, realSection);
}

bool testOption(std::string_view) { return FXApp::instance() != nullptr; }

void recordOption(std::string_view name) {
    std::string scratch;
    getOption(name, scratch, true);
}

}  // namespace dv::env
