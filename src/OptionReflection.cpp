#include <dv/env/OptionReflection.h>

#include "NumberText.h"
#include "OptionStore.h"

#include <type_traits>

namespace dv::env {

namespace {

using namespace internal;

template <typename Value>
constexpr OptionType typeOf() {
    if constexpr (std::is_same_v<Value, std::int32_t>)
        return OptionType::Integer;
    else if constexpr (std::is_same_v<Value, double>)
        return OptionType::Real;
    else if constexpr (std::is_same_v<Value, std::string>)
        return OptionType::String;
    else
        return OptionType::Boolean;
}

std::string defaultText(const StoredOption<std::int32_t>& row) { return decimalText(row.defaultValue).c_str(); }
std::string defaultText(const StoredOption<double>& row) { return roundTripText(row.defaultValue); }
std::string defaultText(const StoredOption<std::string>& row) { return row.defaultValue; }
std::string defaultText(const StoredOption<bool>& row) { return row.defaultValue ? "true" : "false"; }

template <typename Value>
OptionInfo infoOf(const StoredOption<Value>& row) {
    return OptionInfo{row.name, typeOf<Value>(), defaultText(row), row.persistent, row.shortName};
}

template <typename Value>
void listTable(const OptionTable<Value>& table, std::vector<OptionInfo>& list) {
    for (std::size_t index = 0; index < table.size(); ++index) {
        // A later row of a name already listed is one that access never reaches.
        if (table.findName(table[index].name) == index)
            list.push_back(infoOf(table[index]));
    }
}

}  // namespace

std::vector<OptionInfo> listOptions() {
    OptionStore& store = optionStore();
    store.build();
    std::vector<OptionInfo> list;
    list.reserve(store.strings.size() + store.booleans.size() + store.ints.size() + store.reals.size());
    listTable(store.strings, list);
    listTable(store.booleans, list);
    listTable(store.ints, list);
    listTable(store.reals, list);
    return list;
}

std::optional<OptionInfo> findOption(std::string_view name) {
    OptionStore& store = optionStore();
    store.build();
    const auto found = store.findTextual(store.resolve(name, true), true);
    if (!found)
        return std::nullopt;
    return store.withRow(*found, [](const auto& row) { return infoOf(row); });
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
