#include <dv/env/OptionReflection.h>
#include <dv/env/Options.h>

#include "FatalReport.h"
#include "NumberText.h"
#include "OptionEntry.h"
#include "OptionStore.h"
#include "OptionText.h"

#include <fx.h>

#include <string>

namespace dv::env {

namespace {

using namespace internal;

bool isWord(std::string_view value, std::string_view word) { return sameOptionName(value, word); }

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

// The value read as the row's type, stored; the status says how it went.
TextAssignment assignRow(const StoredOption<std::string>& row, std::string_view value, std::string_view) {
    writeEntry(row, value);
    return {AssignStatus::Assigned, row.name};
}

TextAssignment assignRow(const StoredOption<bool>& row, std::string_view value, std::string_view name) {
    const auto on = scanBoolean(value);
    if (!on)
        return {AssignStatus::InvalidNumber, name};
    writeEntry(row, *on);
    return {AssignStatus::Assigned, row.name};
}

TextAssignment assignRow(const StoredOption<std::int32_t>& row, std::string_view value, std::string_view name) {
    const auto number = scanInteger(value);
    if (!number)
        return {AssignStatus::InvalidNumber, name};
    writeEntry(row, *number);
    return {AssignStatus::Assigned, row.name};
}

TextAssignment assignRow(const StoredOption<double>& row, std::string_view value, std::string_view name) {
    const auto number = scanReal(value);
    if (!number)
        return {AssignStatus::InvalidNumber, name};
    writeEntry(row, *number);
    return {AssignStatus::Assigned, row.name};
}

// The store's unit reports the value it could not take.
[[noreturn]] void badValue(const char* what, std::string_view name, int line) {
    fatalReport(StampLog("Options", line), std::string(what) + std::string(name));
}

}  // namespace

TextAssignment internal::assignText(std::string_view givenName, std::string_view value) {
    OptionStore& store = optionStore();
    store.build();
    if (isCommand(givenName, value))
        return {AssignStatus::Command, givenName};
    const OptionStore::Resolved resolved = store.resolve(givenName, true);
    const std::string_view name = resolved.name.text;
    const auto found = store.findTextual(resolved, true);
    // A string or boolean option takes an empty value; before the two numeric
    // tables are searched, an unknown name with an empty value is a missing
    // value too.
    const bool takesEmpty =
        found && (found->table == OptionStore::stringTable || found->table == OptionStore::booleanTable);
    if (value.empty() && !takesEmpty)
        return {AssignStatus::MissingValue, name};
    if (!found)
        return {AssignStatus::UnknownName, name};
    return store.withRow(*found, [&](const auto& row) { return assignRow(row, value, name); });
}

bool isCommandName(std::string_view name) {
    return sameOptionName(name, "c") || sameOptionName(name, "DvCommandFile") || sameOptionName(name, "DvLoadDefaults");
}

Assignment assignOption(std::string_view name, std::string_view value) {
    const TextAssignment done = assignText(name, value);
    return {done.status, std::string(done.name)};
}

bool setOption(std::string_view name, std::string_view value) {
    const TextAssignment done = assignText(name, value);
    switch (done.status) {
    case AssignStatus::Assigned:
        return true;
    case AssignStatus::Command:
        if (!sameOptionName(name, "DvLoadDefaults"))
            return parseCommandFile(value);
        optionStore().loadDefaults(false);
        return true;
    case AssignStatus::UnknownName:
        fxwarning("Unknown option: %.*s\n", static_cast<int>(done.name.size()), done.name.data());
        return false;
    case AssignStatus::MissingValue:
        badValue("Missing parameter for option: ", done.name, __LINE__);
    case AssignStatus::InvalidNumber:
        badValue("Invalid numeric parameter for option: ", done.name, __LINE__);
    }
    return false;
}

}  // namespace dv::env
