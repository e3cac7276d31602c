#include "OptionStore.h"

#include "OptionsRecorder.h"
#include "SettingsSnapshot.h"

#include <dv/env/Options.h>

#include <fx.h>

#include <algorithm>
#include <variant>

namespace dv::env::internal {

namespace {

struct LegacyName {
    std::string_view oldName;
    std::string_view currentName;
};

// Names of earlier releases, still accepted in text.
constexpr LegacyName legacyOptionNames[] = {
    {"DvCropX0", "ToolCropX0"},
    {"DvCropX1", "ToolCropX1"},
    {"DvCropY0", "ToolCropY0"},
    {"DvCropY1", "ToolCropY1"},
    {"DvPolyToleranceValue", "ToolPolyToleranceValue"},
    {"DvPolyToleranceUnits", "ToolPolyToleranceUnits"},
    {"DvWireEndToleranceValue", "ToolWireEndToleranceValue"},
    {"DvWireEndToleranceUnits", "ToolWireEndToleranceUnits"},
    {"DvWireWidthToleranceValue", "ToolWireWidthToleranceValue"},
    {"DvWireWidthToleranceUnits", "ToolWireWidthToleranceUnits"},
    {"DvPolyWidthValue", "ToolPolyWidthValue"},
    {"DvPolyWidthUnits", "ToolPolyWidthUnits"},
    {"DvArcPrecValue", "ToolArcPrecValue"},
    {"DvArcPrecUnits", "ToolArcPrecUnits"},
    {"DvQuasiCircleMinFacets", "ToolQuasiCircleMinFacets"},
    {"DvConvertDonutsStyle", "ToolConvertDonutsStyle"},
    {"DvCropAddBounds", "ToolCropAddBounds"},
    {"DvAddWidthToPolygons", "ToolAddWidthToPolygons"},
    {"DvCloseOpenPolygons", "ToolCloseOpenPolygons"},
    {"DvConvertCircles", "ToolConvertCircles"},
    {"DvConvertDonuts", "ToolConvertDonuts"},
    {"DvConvertSplines", "ToolConvertSplines"},
    {"DvConvertText", "ToolConvertText"},
    {"DvConvertWires", "ToolConvertWires"},
    {"DvForceManhattan", "ToolForceManhattan"},
    {"DvJoinOpenPolygons", "ToolJoinOpenPolygons"},
    {"DvMergeAutoFlatten", "ToolAutoFlatten"},
    {"DvMergeKeepBoundaries", "ToolKeepInternalEdges"},
    {"DvKeepInternalEdges", "ToolKeepInternalEdges"},
    {"DvSnapToGrid", "ToolSnapToGridSpacing"},
    {"ToolFixEvenOddFill", "ToolEvenOddFill"},
    {"ToolDeembedCutLines", "ToolHolesModeLink"},
};

}  // namespace

void NameIndex::insertIfAbsent(std::string_view key, std::size_t value) {
    if (find(key))
        return;
    // At most half full, so that a miss ends soon.
    if (2 * (used + 1) > slots.size()) {
        std::vector<Slot> old(std::max<std::size_t>(16, 2 * slots.size()));
        old.swap(slots);
        for (const Slot& slot : old)
            if (slot.key.data() != nullptr)
                place(slot);
    }
    place(Slot{key, optionNameHash(key, foldCase), value});
    ++used;
    longestKey = std::max(longestKey, key.size());
}

void NameIndex::place(const Slot& slot) {
    std::size_t at = slot.hash & (slots.size() - 1);
    while (slots[at].key.data() != nullptr)
        at = (at + 1) & (slots.size() - 1);
    slots[at] = slot;
}

template <typename Value>
StoredOption<Value>& OptionTable<Value>::rowForTypedAccess(std::string_view name) {
    const auto address = reinterpret_cast<std::uintptr_t>(name.data());
    RecentText& slot = recent[(address >> 3 ^ address >> 9) % recent.size()];
    if (slot.text.load(std::memory_order_relaxed) == name.data()) {
        // The lowest row of this name, as every row a slot holds is.
        StoredOption<Value>* row = slot.row.load(std::memory_order_relaxed);
        if (row && sameOptionName(row->name, name))
            return *row;
    }
    const auto found = findName(name);
    if (!found)
        return rows[0];
    StoredOption<Value>& row = rows[*found];
    slot.row.store(&row, std::memory_order_relaxed);
    slot.text.store(name.data(), std::memory_order_relaxed);
    return row;
}

template <typename Value>
void OptionTable<Value>::append(const OptionRow<Value>& row) {
    const StoredOption<Value>& stored = rows.emplace_back(row);
    // An index keeps the first row of a key: the lowest index wins.
    names.insertIfAbsent(stored.name, rows.size() - 1);
    if (!stored.shortName.empty()) {
        shortNames.insertIfAbsent(stored.shortName, rows.size() - 1);
        shortNamesFolded.insertIfAbsent(stored.shortName, rows.size() - 1);
    }
}

template class OptionTable<std::int32_t>;
template class OptionTable<double>;
template class OptionTable<std::string>;
template class OptionTable<bool>;

OptionStore::OptionStore() {
    for (const LegacyName& legacy : legacyOptionNames)
        meaningOf(legacy.oldName).replacedBy = legacy.currentName;
}

OptionStore::NameMeaning& OptionStore::meaningOf(std::string_view name) {
    if (const auto entry = meanings.find(name))
        return meaningEntries[*entry];
    meanings.insertIfAbsent(name, meaningEntries.size());
    return meaningEntries.emplace_back();
}

template <typename Value>
void OptionStore::append(OptionTable<Value>& table, const OptionRow<Value>& row) {
    table.append(row);
    const std::size_t index = table.size() - 1;
    std::size_t order = realTable;
    if constexpr (std::is_same_v<Value, std::string>)
        order = stringTable;
    else if constexpr (std::is_same_v<Value, bool>)
        order = booleanTable;
    else if constexpr (std::is_same_v<Value, std::int32_t>)
        order = integerTable;
    // The key views the row's own name, which never moves.
    std::size_t& lowest = meaningOf(table[index].name).rows[order];
    if (lowest == NameMeaning::none)
        lowest = index;
}

void OptionStore::buildOnce() {
    const std::lock_guard<std::mutex> lock(changes);
    if (built.load(std::memory_order_relaxed))
        return;
    const auto appendBackwards = [this](auto& table, const auto& builtin) {
        for (auto row = builtin.rbegin(); row != builtin.rend(); ++row)
            append(table, *row);
    };
    appendBackwards(ints, builtinIntOptions);
    appendBackwards(reals, builtinRealOptions);
    appendBackwards(strings, builtinStringOptions);
    appendBackwards(booleans, builtinBoolOptions);
    built.store(true, std::memory_order_release);
}

template <typename Value>
void OptionStore::add(OptionTable<Value>& table, const OptionRow<Value>& row) {
    {
        const std::lock_guard<std::mutex> lock(changes);
        append(table, row);
    }
    optionsRecorderInstance()->setDefault(row.name, ConfigValue(std::in_place_type<Value>, row.defaultValue));
}

template void OptionStore::add(OptionTable<std::int32_t>&, const IntOption&);
template void OptionStore::add(OptionTable<double>&, const RealOption&);
template void OptionStore::add(OptionTable<std::string>&, const StringOption&);
template void OptionStore::add(OptionTable<bool>&, const BoolOption&);

OptionStore::Resolved OptionStore::resolve(std::string_view name, bool mapOldNames) const {
    const auto lookUp = [this](const FoldedName& folded) {
        const auto entry = meanings.find(folded);
        return Resolved{folded, entry ? &meaningEntries[*entry] : nullptr};
    };
    const Resolved given = lookUp(FoldedName(name));
    if (!mapOldNames || !given.meaning || given.meaning->replacedBy.empty())
        return given;
    return lookUp(FoldedName(given.meaning->replacedBy));
}

std::optional<OptionStore::TextualRow> OptionStore::findTextual(const Resolved& name,
                                                                bool stringShortNamesFoldCase) const {
    const auto inTable = [&](const auto& table, TextualOrder order, bool shortNamesFoldCase) {
        // NameMeaning::none is the largest index, so min picks a real one.
        const std::size_t byName = name.meaning ? name.meaning->rows[order] : NameMeaning::none;
        const auto byShortName = table.findShortName(name.name, shortNamesFoldCase);
        return byShortName ? std::min(byName, *byShortName) : byName;
    };
    if (const std::size_t row = inTable(strings, stringTable, stringShortNamesFoldCase); row != NameMeaning::none)
        return TextualRow{stringTable, row};
    if (const std::size_t row = inTable(booleans, booleanTable, false); row != NameMeaning::none)
        return TextualRow{booleanTable, row};
    if (const std::size_t row = inTable(ints, integerTable, false); row != NameMeaning::none)
        return TextualRow{integerTable, row};
    if (const std::size_t row = inTable(reals, realTable, false); row != NameMeaning::none)
        return TextualRow{realTable, row};
    return std::nullopt;
}

void OptionStore::loadDefaults(bool transientOnly) {
    const auto recorder = optionsRecorderInstance();
    FXSettings& settings = settingsStore();
    for (const auto& row : ints) {
        // Through the setter, so that a row named "DvProgramType" sets the
        // process-wide value and not the registry.
        if (!transientOnly || !row.persistent)
            setOptionInt(row.name, row.defaultValue);
        recorder->setDefault(row.name, ConfigValue(std::in_place_type<int>, row.defaultValue));
    }
    for (const auto& row : reals) {
        if (!transientOnly || !row.persistent)
            settings.writeRealEntry(realSection, row.name.c_str(), row.defaultValue);
        recorder->setDefault(row.name, ConfigValue(std::in_place_type<double>, row.defaultValue));
    }
    for (const auto& row : booleans) {
        if (!transientOnly || !row.persistent)
            settings.writeIntEntry(boolSection, row.name.c_str(), row.defaultValue ? 1 : 0);
        recorder->setDefault(row.name, ConfigValue(std::in_place_type<bool>, row.defaultValue));
    }
    for (const auto& row : strings) {
        if (!transientOnly || !row.persistent)
            settings.writeStringEntry(stringSection, row.name.c_str(), row.defaultValue.c_str());
        recorder->setDefault(row.name, ConfigValue(std::in_place_type<std::string>, row.defaultValue));
    }
}

FXSettings& settingsStore() {
    FXApp& app = *FXApp::instance();
    noteSettingsAccess(app);
    return app.reg();
}

}  // namespace dv::env::internal
