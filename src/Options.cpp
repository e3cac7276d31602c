#include <dv/env/Options.h>

#include <dv/env/StampLog.h>

#include "NumberText.h"
#include "OptionEntry.h"
#include "OptionStore.h"
#include "OptionsRecorder.h"

#include <fx.h>

#include <iostream>
#include <locale>
#include <sstream>
#include <type_traits>
#include <utility>

namespace dv::env {

namespace {

using namespace internal;

// A value as the log shows it: as std::clog would with its own precision and
// notation, but with a point and without digit grouping whatever its locale,
// so that a log reads the same on every desktop. Booleans show as 1 or 0.
template <typename Value>
const Value& loggable(const Value& value) {
    return value;
}
int loggable(bool value) { return value ? 1 : 0; }
std::string loggable(std::int32_t value) { return decimalText(value).c_str(); }
std::string loggable(double value) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text.flags(std::clog.flags());
    text.precision(std::clog.precision());
    text << value;
    return text.str();
}

// The duties of every typed read: log a value the row has not shown before, and
// note the read in the recorder if asked to.
template <typename Value>
void noteRead(StoredOption<Value>& row, const Value& value, std::string_view spelledName, bool record) {
    if (row.lastRead.changedTo(value))
        std::clog << StampLog(__FILE__, __LINE__) << row.name << " = " << loggable(value) << std::endl;
    if (record)
        optionsRecorderInstance()->record(spelledName, ConfigValue(std::in_place_type<Value>, value));
}

template <typename Value>
Value typedRead(OptionTable<Value>& table, std::string_view name, bool record) {
    optionStore().build();
    // The row of that name, ignoring case, or row 0 for a name that no row has.
    StoredOption<Value>& row = table.rowForTypedAccess(name);
    Value value = readEntry(row);
    noteRead(row, value, name, record);
    return value;
}

template <typename Value, typename Given>
void typedWrite(OptionTable<Value>& table, std::string_view name, const Given& value) {
    optionStore().build();
    if (const auto index = table.findName(name))
        writeEntry(table[*index], value);
}

}  // namespace

std::int32_t getOptionInt(std::string_view name, bool record) {
    if (isProgramType(name))
        return programType();
    return typedRead(optionStore().ints, name, record);
}

double getOptionReal(std::string_view name, bool record) { return typedRead(optionStore().reals, name, record); }

bool getOptionBoolean(std::string_view name, bool record) { return typedRead(optionStore().booleans, name, record); }

std::string getOptionString(std::string_view name, bool record) {
    return typedRead(optionStore().strings, name, record);
}

bool getOption(std::string_view name, std::string& value, bool record) {
    OptionStore& store = optionStore();
    store.build();
    const auto found = store.findTextual(store.resolve(name, false), false);
    if (!found) {
        fxwarning("Unknown option: %.*s\n", static_cast<int>(name.size()), name.data());
        return false;
    }
    value = store.withRow(*found, [record](const auto& row) -> std::string {
        using Value = std::decay_t<decltype(row.defaultValue)>;
        if constexpr (std::is_same_v<Value, std::string>)
            return getOptionString(row.name, record);
        else if constexpr (std::is_same_v<Value, bool>)
            return getOptionBoolean(row.name, record) ? "true" : "false";
        else if constexpr (std::is_same_v<Value, std::int32_t>)
            return decimalText(getOptionInt(row.name, record)).c_str();
        else
            return sixDecimalsText(getOptionReal(row.name, record));
    });
    return true;
}

void setOptionInt(std::string_view name, std::int32_t value) {
    if (isProgramType(name))
        setProgramType(value);
    else
        typedWrite(optionStore().ints, name, value);
}

void setOptionReal(std::string_view name, double value) { typedWrite(optionStore().reals, name, value); }

void setOptionBoolean(std::string_view name, bool value) { typedWrite(optionStore().booleans, name, value); }

void setOptionString(std::string_view name, std::string_view value) {
    typedWrite(optionStore().strings, name, value);
}

bool testOption(std::string_view) { return FXApp::instance() != nullptr; }

void recordOption(std::string_view name) {
    std::string scratch;
    getOption(name, scratch, true);
}

bool resetOption(std::string_view name) {
    OptionStore& store = optionStore();
    store.build();
    const auto found = store.findTextual(store.resolve(name, true), true);
    if (!found) {
        fxwarning("Unknown option: %.*s\n", static_cast<int>(name.size()), name.data());
        return false;
    }
    store.withRow(*found, [](const auto& row) { deleteEntry(row); });
    return true;
}

void resetAllOptions() {
    OptionStore& store = optionStore();
    store.build();
    const auto resetTable = [](const auto& table) {
        for (const auto& row : table)
            deleteEntry(row);
    };
    resetTable(store.strings);
    resetTable(store.booleans);
    resetTable(store.ints);
    resetTable(store.reals);
}

}  // namespace dv::env
