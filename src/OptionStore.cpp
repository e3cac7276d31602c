#include "OptionStore.h"

#include "OptionsRecorder.h"

#include <dv/env/Options.h>

#include <fx.h>

#include <algorithm>
#include <variant>

namespace dv::env::internal {

namespace {

// Eight bytes at a time: 'A' to 'Z' become 'a' to 'z', every other byte stays.
// No byte carries into its neighbour: a byte's low seven bits plus 0x3f stay
// below 0x100.
std::uint64_t foldAsciiCase(std::uint64_t bytes) {
    constexpr std::uint64_t ones = 0x0101010101010101;
    const std::uint64_t low = bytes & 0x7f * ones;
    const std::uint64_t fromA = low + (0x80 - 'A') * ones;
    const std::uint64_t pastZ = low + (0x80 - 'Z' - 1) * ones;
    const std::uint64_t upper = fromA & ~pastZ & ~bytes & 0x80 * ones;
    return bytes | upper >> 2;
}

// The word of `text` at `offset`, zero-filled past its end.
std::uint64_t wordAt(std::string_view text, std::size_t offset) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + offset, std::min<std::size_t>(8, text.size() - offset));
    return word;
}

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

template <typename Value>
void appendBackwards(OptionTable<Value>& table, const std::vector<OptionRow<Value>>& builtin) {
    for (auto row = builtin.rbegin(); row != builtin.rend(); ++row)
        table.append(*row);
}

}  // namespace

bool sameOptionName(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t offset = 0; offset < a.size(); offset += 8) {
        if (foldAsciiCase(wordAt(a, offset)) != foldAsciiCase(wordAt(b, offset)))
            return false;
    }
    return true;
}

std::size_t optionNameHash(std::string_view name, bool foldCase) {
    std::uint64_t hash = 0x9e3779b97f4a7c15 ^ name.size();
    for (std::size_t offset = 0; offset < name.size(); offset += 8) {
        const std::uint64_t word = wordAt(name, offset);
        hash = (hash ^ (foldCase ? foldAsciiCase(word) : word)) * 0xbf58476d1ce4e5b9;
        hash ^= hash >> 31;
    }
    return static_cast<std::size_t>(hash);
}

template <typename Value>
OptionTable<Value>::OptionTable()
    : names(0, OptionNameHash{true}, OptionNameEqual{true}),
      shortNames(0, OptionNameHash{false}, OptionNameEqual{false}),
      shortNamesFolded(0, OptionNameHash{true}, OptionNameEqual{true}) {}

template <typename Value>
std::optional<std::size_t> OptionTable<Value>::findName(std::string_view name) const {
    const auto found = names.find(name);
    return found == names.end() ? std::nullopt : std::optional<std::size_t>(found->second);
}

template <typename Value>
std::optional<std::size_t> OptionTable<Value>::findNameOrShortName(std::string_view name,
                                                                  bool shortNameFoldsCase) const {
    const auto byName = findName(name);
    const Index& shorts = shortNameFoldsCase ? shortNamesFolded : shortNames;
    const auto byShortName = shorts.find(name);
    if (byShortName == shorts.end())
        return byName;
    return byName ? std::min(*byName, byShortName->second) : byShortName->second;
}

template <typename Value>
void OptionTable<Value>::append(const OptionRow<Value>& row) {
    const StoredOption<Value>& stored = rows.emplace_back(row);
    // An index keeps the first row of a key: the lowest index wins.
    names.emplace(stored.name, rows.size() - 1);
    if (!stored.shortName.empty()) {
        shortNames.emplace(stored.shortName, rows.size() - 1);
        shortNamesFolded.emplace(stored.shortName, rows.size() - 1);
    }
}

template class OptionTable<std::int32_t>;
template class OptionTable<double>;
template class OptionTable<std::string>;
template class OptionTable<bool>;

OptionStore::OptionStore() {
    for (const LegacyName& legacy : legacyOptionNames)
        legacyNames.emplace(legacy.oldName, legacy.currentName);
}

void OptionStore::build() {
    if (built.load(std::memory_order_acquire))
        return;
    const std::lock_guard<std::mutex> lock(changes);
    if (built.load(std::memory_order_relaxed))
        return;
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
        table.append(row);
    }
    optionsRecorderInstance()->setDefault(row.name, ConfigValue(std::in_place_type<Value>, row.defaultValue));
}

template void OptionStore::add(OptionTable<std::int32_t>&, const IntOption&);
template void OptionStore::add(OptionTable<double>&, const RealOption&);
template void OptionStore::add(OptionTable<std::string>&, const StringOption&);
template void OptionStore::add(OptionTable<bool>&, const BoolOption&);

std::string_view OptionStore::currentName(std::string_view name) const {
    const auto found = legacyNames.find(name);
    return found == legacyNames.end() ? name : found->second;
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

FXSettings& settingsStore() { return FXApp::instance()->reg(); }

OptionStore& optionStore() {
    static OptionStore store;
    return store;
}

}  // namespace dv::env::internal
