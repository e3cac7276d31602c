#include <dv/env/Options.h>

#include <dv/env/StampLog.h>

#include "OptionTables.h"
#include "OptionsRecorder.h"

#include <fx.h>

#include <atomic>
#include <cstdio>
#include <deque>
#include <iostream>
#include <locale>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace dv::env {

namespace internal {

std::vector<IntOption> intOptions;
std::vector<RealOption> realOptions;
std::vector<StringOption> stringOptions;
std::vector<BoolOption> boolOptions;

namespace {

std::atomic<bool> optionTablesBuilt{false};
std::once_flag optionTablesBuildOnce;

// Each spelling a caller used, mapped to its row. The spellings live in a
// deque, whose elements never move, so the map can key on views of them and a
// hit needs no allocation.
struct NameCache {
    std::deque<std::string> spellings;
    std::unordered_map<std::string_view, std::size_t> indexes;
};

std::mutex optionTableMutex;
NameCache intNameCache;
NameCache realNameCache;
NameCache stringNameCache;
NameCache boolNameCache;

std::atomic<std::int32_t> programType{0};

template <typename Row>
void appendBackwards(std::vector<Row>& table, const std::vector<Row>& builtin) {
    if (table.capacity() < builtin.size())
        table.reserve(builtin.size());
    table.insert(table.end(), builtin.rbegin(), builtin.rend());
}

template <typename Row>
std::optional<std::size_t> findOption(const std::vector<Row>& table, NameCache& cache, std::string_view name) {
    std::lock_guard<std::mutex> lock(optionTableMutex);
    buildOptionTables();
    if (const auto hit = cache.indexes.find(name); hit != cache.indexes.end())
        return hit->second;
    for (std::size_t index = 0; index < table.size(); ++index) {
        if (equalsIgnoringCase(table[index].name, name)) {
            cache.indexes.emplace(cache.spellings.emplace_back(name), index);
            return index;
        }
    }
    // Misses are not cached, so that a name registered later is found.
    return std::nullopt;
}

template <typename Value>
const Value& loggable(const Value& value) {
    return value;
}
// Booleans go to the log as 1 or 0.
int loggable(bool value) { return value ? 1 : 0; }

// The duties of every typed read: log a value the row has not shown before, and
// note the read in the recorder if asked to.
template <typename Row, typename Value>
void noteRead(Row& row, const Value& value, std::string_view spelledName, bool record) {
    if (!row.logged || row.lastValue != value) {
        row.lastValue = value;
        row.logged = true;
        std::clog << StampLog(__FILE__, __LINE__) << row.name << " = " << loggable(value) << std::endl;
    }
    if (record)
        optionsRecorderInstance()->record(spelledName, ConfigValue(std::in_place_type<Value>, value));
}

template <typename Row>
bool matchesNameOrShortName(const Row& row, std::string_view name) {
    return equalsIgnoringCase(row.name, name) || (!row.shortName.empty() && row.shortName == name);
}

std::string realText(double value) {
    char text[512];  // "%f" of the largest double has 316 digits
    std::snprintf(text, sizeof text, "%f", value);
    return text;
}

}  // namespace

FXSettings& settingsStore() { return FXApp::instance()->reg(); }

void buildOptionTables() {
    if (optionTablesBuilt.load(std::memory_order_acquire))
        return;
    std::call_once(optionTablesBuildOnce, [] {
        appendBackwards(intOptions, builtinIntOptions);
        appendBackwards(realOptions, builtinRealOptions);
        appendBackwards(stringOptions, builtinStringOptions);
        appendBackwards(boolOptions, builtinBoolOptions);
        optionTablesBuilt.store(true, std::memory_order_release);
    });
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    const std::locale locale;
    const auto& ctype = std::use_facet<std::ctype<char>>(locale);
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (ctype.toupper(a[i]) != ctype.toupper(b[i]))
            return false;
    }
    return true;
}

std::optional<std::size_t> findIntOption(std::string_view name) { return findOption(intOptions, intNameCache, name); }
std::optional<std::size_t> findRealOption(std::string_view name) { return findOption(realOptions, realNameCache, name); }
std::optional<std::size_t> findStringOption(std::string_view name) {
    return findOption(stringOptions, stringNameCache, name);
}
std::optional<std::size_t> findBoolOption(std::string_view name) { return findOption(boolOptions, boolNameCache, name); }

void loadDefaults(bool transientOnly) {
    const auto recorder = optionsRecorderInstance();
    FXSettings& settings = settingsStore();
    for (const IntOption& row : intOptions) {
        // Through the setter, so that a row named "DvProgramType" sets the
        // process-wide value and not the registry.
        if (!transientOnly || !row.persistent)
            setOptionInt(row.name, row.defaultValue);
        recorder->setDefault(row.name, ConfigValue(std::in_place_type<int>, row.defaultValue));
    }
    for (const RealOption& row : realOptions) {
        if (!transientOnly || !row.persistent)
            settings.writeRealEntry(realSection, row.name.c_str(), row.defaultValue);
        recorder->setDefault(row.name, ConfigValue(std::in_place_type<double>, row.defaultValue));
    }
    for (const BoolOption& row : boolOptions) {
        if (!transientOnly || !row.persistent)
            settings.writeIntEntry(boolSection, row.name.c_str(), row.defaultValue ? 1 : 0);
        recorder->setDefault(row.name, ConfigValue(std::in_place_type<bool>, row.defaultValue));
    }
    for (const StringOption& row : stringOptions) {
        if (!transientOnly || !row.persistent)
            settings.writeStringEntry(stringSection, row.name.c_str(), row.defaultValue.c_str());
        recorder->setDefault(row.name, ConfigValue(std::in_place_type<std::string>, row.defaultValue));
    }
}

}  // namespace internal

using namespace internal;

std::int32_t getOptionInt(std::string_view name, bool record) {
    if (name == programTypeName)
        return programType.load(std::memory_order_relaxed);
    IntOption& row = intOptions[intOptionIndex(name)];
    const std::int32_t value = settingsStore().readIntEntry(intSection, row.name.c_str(), row.defaultValue);
    noteRead(row, value, name, record);
    return value;
}

double getOptionReal(std::string_view name, bool record) {
    RealOption& row = realOptions[realOptionIndex(name)];
    const double value = settingsStore().readRealEntry(realSection, row.name.c_str(), row.defaultValue);
    noteRead(row, value, name, record);
    return value;
}

bool getOptionBoolean(std::string_view name, bool record) {
    BoolOption& row = boolOptions[boolOptionIndex(name)];
    const bool value = settingsStore().readIntEntry(boolSection, row.name.c_str(), row.defaultValue ? 1 : 0) != 0;
    noteRead(row, value, name, record);
    return value;
}

std::string getOptionString(std::string_view name, bool record) {
    StringOption& row = stringOptions[stringOptionIndex(name)];
    std::string value = settingsStore().readStringEntry(stringSection, row.name.c_str(), row.defaultValue.c_str());
    noteRead(row, value, name, record);
    return value;
}

bool getOption(std::string_view name, std::string& value, bool record) {
    buildOptionTables();
    for (const StringOption& row : stringOptions) {
        if (matchesNameOrShortName(row, name)) {
            value = getOptionString(row.name, record);
            return true;
        }
    }
    for (const BoolOption& row : boolOptions) {
        if (matchesNameOrShortName(row, name)) {
            value = getOptionBoolean(row.name, record) ? "true" : "false";
            return true;
        }
    }
    for (const IntOption& row : intOptions) {
        if (matchesNameOrShortName(row, name)) {
            value = std::to_string(getOptionInt(row.name, record));
            return true;
        }
    }
    for (const RealOption& row : realOptions) {
        if (matchesNameOrShortName(row, name)) {
            value = realText(getOptionReal(row.name, record));
            return true;
        }
    }
    fxwarning("Unknown option: %.*s\n", static_cast<int>(name.size()), name.data());
    return false;
}

void setOptionInt(std::string_view name, std::int32_t value) {
    if (name == programTypeName) {
        programType.store(value, std::memory_order_relaxed);
        return;
    }
    if (const auto index = findIntOption(name))
        settingsStore().writeIntEntry(intSection, intOptions[*index].name.c_str(), value);
}

void setOptionReal(std::string_view name, double value) {
    if (const auto index = findRealOption(name))
        settingsStore().writeRealEntry(realSection, realOptions[*index].name.c_str(), value);
}

void setOptionBoolean(std::string_view name, bool value) {
    if (const auto index = findBoolOption(name))
        settingsStore().writeIntEntry(boolSection, boolOptions[*index].name.c_str(), value ? 1 : 0);
}

void setOptionString(std::string_view name, std::string_view value) {
    if (const auto index = findStringOption(name))
        settingsStore().writeStringEntry(stringSection, stringOptions[*index].name.c_str(), std::string(value).c_str());
}

bool testOption(std::string_view) { return FXApp::instance() != nullptr; }

void recordOption(std::string_view name) {
    std::string scratch;
    getOption(name, scratch, true);
}

}  // namespace dv::env
