#include <dv/env/OptionReflection.h>

#include <dv/env/Options.h>

#include "OptionStore.h"

#include <fx.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace dv::env {

namespace {

using namespace internal;

bool isWord(std::string_view value, std::string_view word) { return sameOptionName(value, word); }

// The value as a NUL-ended text for the C scanners, without the heap for the
// short values that command lines and files hold.
class CText {
public:
    explicit CText(std::string_view text) {
        if (text.size() < sizeof(buffer)) {
            // An empty view may have no data at all.
            if (!text.empty())
                std::memcpy(buffer, text.data(), text.size());
            buffer[text.size()] = '\0';
        } else {
            longText.assign(text);
        }
    }
    const char* get() const { return longText.empty() ? buffer : longText.c_str(); }

private:
    char buffer[64];
    std::string longText;
};

// As "%d" reads it: base ten after white space, the rest ignored. Beyond the
// 32-bit range it fails instead of wrapping. White space is that of the C
// locale whatever the process's: values, like names, do not change with it.
std::optional<std::int32_t> scanInt(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && std::strchr(" \t\n\v\f\r", text[at]) != nullptr && text[at] != '\0')
        ++at;
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
        ++at;
    const std::size_t digits = at;
    const std::int64_t limit = negative ? -std::int64_t{std::numeric_limits<std::int32_t>::min()}
                                        : std::numeric_limits<std::int32_t>::max();
    std::int64_t magnitude = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        magnitude = magnitude * 10 + (text[at] - '0');
        if (magnitude > limit)
            return std::nullopt;
    }
    if (at == digits)
        return std::nullopt;
    return static_cast<std::int32_t>(negative ? -magnitude : magnitude);
}

// sscanf itself: strtod takes a lone "0x" as 0 where "%lf" fails.
std::optional<double> scanReal(std::string_view text) {
    const CText terminated(text);
    double value = 0;
    if (std::sscanf(terminated.get(), "%lf", &value) != 1)
        return std::nullopt;
    return value;
}

std::optional<bool> scanBoolean(std::string_view text) {
    if (text.empty() || isWord(text, "true") || isWord(text, "yes"))
        return true;
    if (isWord(text, "false") || isWord(text, "no"))
        return false;
    const auto number = scanInt(text);
    if (!number || (*number != 0 && *number != 1))
        return std::nullopt;
    return *number == 1;
}

std::optional<std::int32_t> scanInteger(std::string_view text) {
    if (isWord(text, "true"))
        return 1;
    if (isWord(text, "false"))
        return 0;
    return scanInt(text);
}

// "DvLoadDefaults" is a command only with a value that switches it on; with
// any other it is an option name like the rest (which no row has).
bool isCommand(std::string_view name, std::string_view value) {
    if (sameOptionName(name, "DvLoadDefaults"))
        return value.empty() || isWord(value, "true") || isWord(value, "yes");
    return isCommandName(name);
}

// The shortest text that reads back as `value`.
std::string realText(double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return std::string(text, end);
}

std::string defaultText(const StoredOption<std::int32_t>& row) { return std::to_string(row.defaultValue); }
std::string defaultText(const StoredOption<double>& row) { return realText(row.defaultValue); }
std::string defaultText(const StoredOption<std::string>& row) { return row.defaultValue; }
std::string defaultText(const StoredOption<bool>& row) { return row.defaultValue ? "true" : "false"; }

template <typename Value>
OptionInfo infoOf(const StoredOption<Value>& row, OptionType type) {
    return OptionInfo{row.name, type, defaultText(row), row.persistent, row.shortName};
}

template <typename Value>
void listTable(const OptionTable<Value>& table, OptionType type, std::vector<OptionInfo>& list) {
    for (std::size_t index = 0; index < table.size(); ++index) {
        // A later row of a name already listed is one that access never reaches.
        if (table.findName(table[index].name) == index)
            list.push_back(infoOf(table[index], type));
    }
}

}  // namespace

bool isCommandName(std::string_view name) {
    return sameOptionName(name, "c") || sameOptionName(name, "DvCommandFile") || sameOptionName(name, "DvLoadDefaults");
}

std::vector<OptionInfo> listOptions() {
    OptionStore& store = optionStore();
    store.build();
    std::vector<OptionInfo> list;
    list.reserve(store.strings.size() + store.booleans.size() + store.ints.size() + store.reals.size());
    listTable(store.strings, OptionType::String, list);
    listTable(store.booleans, OptionType::Boolean, list);
    listTable(store.ints, OptionType::Integer, list);
    listTable(store.reals, OptionType::Real, list);
    return list;
}

std::optional<OptionInfo> findOption(std::string_view name) {
    OptionStore& store = optionStore();
    store.build();
    const auto found = store.findTextual(store.resolve(name, true), true);
    if (!found)
        return std::nullopt;
    switch (found->table) {
    case OptionStore::stringTable: return infoOf(store.strings[found->index], OptionType::String);
    case OptionStore::booleanTable: return infoOf(store.booleans[found->index], OptionType::Boolean);
    case OptionStore::integerTable: return infoOf(store.ints[found->index], OptionType::Integer);
    case OptionStore::realTable: return infoOf(store.reals[found->index], OptionType::Real);
    case OptionStore::tableCount: break;
    }
    return std::nullopt;
}

TextAssignment internal::assignText(std::string_view givenName, std::string_view value) {
    OptionStore& store = optionStore();
    store.build();
    if (isCommand(givenName, value))
        return {AssignStatus::Command, givenName};
    const OptionStore::Resolved resolved = store.resolve(givenName, true);
    const std::string_view name = resolved.name.text;
    const auto found = store.findTextual(resolved, true);
    const auto table = found ? found->table : OptionStore::tableCount;

    if (table == OptionStore::stringTable) {
        const std::string& row = store.strings[found->index].name;
        settingsStore().writeStringEntry(stringSection, row.c_str(), CText(value).get());
        return {AssignStatus::Assigned, row};
    }
    if (table == OptionStore::booleanTable) {
        const auto on = scanBoolean(value);
        if (!on)
            return {AssignStatus::InvalidNumber, name};
        const std::string& row = store.booleans[found->index].name;
        settingsStore().writeIntEntry(boolSection, row.c_str(), *on ? 1 : 0);
        return {AssignStatus::Assigned, row};
    }
    // Before the two numeric tables are searched: an unknown name with an
    // empty value is a missing value too.
    if (value.empty())
        return {AssignStatus::MissingValue, name};
    if (table == OptionStore::integerTable) {
        const auto number = scanInteger(value);
        if (!number)
            return {AssignStatus::InvalidNumber, name};
        const std::string& row = store.ints[found->index].name;
        if (row == programTypeName)
            setOptionInt(row, *number);  // the process-wide value, not the registry
        else
            settingsStore().writeIntEntry(intSection, row.c_str(), *number);
        return {AssignStatus::Assigned, row};
    }
    if (table == OptionStore::realTable) {
        const auto number = scanReal(value);
        if (!number)
            return {AssignStatus::InvalidNumber, name};
        const std::string& row = store.reals[found->index].name;
        settingsStore().writeRealEntry(realSection, row.c_str(), *number);
        return {AssignStatus::Assigned, row};
    }
    return {AssignStatus::UnknownName, name};
}

Assignment assignOption(std::string_view name, std::string_view value) {
    const TextAssignment done = assignText(name, value);
    return {done.status, std::string(done.name)};
}

std::string describe(const Assignment& assignment) {
    switch (assignment.status) {
    case AssignStatus::UnknownName: return "Unknown option: " + assignment.name;
    case AssignStatus::MissingValue: return "Missing parameter for option: " + assignment.name;
    case AssignStatus::InvalidNumber: return "Invalid numeric parameter for option: " + assignment.name;
    case AssignStatus::Assigned:
    case AssignStatus::Command: break;
    }
    return {};
}

}  // namespace dv::env
