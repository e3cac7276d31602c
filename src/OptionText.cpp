#include <dv/env/Options.h>

#include "CaseBlindName.h"
#include "OptionTables.h"

#include <fx.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>

namespace dv::env {

namespace internal {

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

// The first row whose name matches ignoring case, or whose short name matches;
// only the string table lets a short name ignore case ("I" is "i").
template <typename Row>
std::optional<std::size_t> scanTable(const std::vector<Row>& table, const CaseBlindName& name,
                                     bool shortNameIgnoresCase) {
    for (std::size_t index = 0; index < table.size(); ++index) {
        const Row& row = table[index];
        if (name.matches(row.name))
            return index;
        if (!row.shortName.empty() &&
            (shortNameIgnoresCase ? name.matches(row.shortName) : row.shortName == name.name()))
            return index;
    }
    return std::nullopt;
}

[[noreturn]] void fatalReport(const char* format, std::string_view name) {
    fxerror(format, static_cast<int>(name.size()), name.data());
    std::abort();  // fxerror ends the process; this is only its promise kept
}

[[noreturn]] void invalidNumber(std::string_view name) {
    fatalReport("Invalid numeric parameter for option: %.*s\n", name);
}

bool isWord(std::string_view value, std::string_view word) { return CaseBlindName(value).matches(word); }

std::optional<std::int32_t> scanInt(std::string_view text) {
    // As "%d" reads it: base ten after white space, the rest ignored. Beyond
    // the 32-bit range it fails instead of wrapping.
    const std::string terminated(text);
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(terminated.c_str(), &end, 10);
    if (end == terminated.c_str() || errno == ERANGE || value < std::numeric_limits<std::int32_t>::min() ||
        value > std::numeric_limits<std::int32_t>::max())
        return std::nullopt;
    return static_cast<std::int32_t>(value);
}

std::optional<double> scanReal(std::string_view text) {
    // sscanf itself: strtod takes a lone "0x" as 0 where "%lf" fails.
    const std::string terminated(text);
    double value = 0;
    if (std::sscanf(terminated.c_str(), "%lf", &value) != 1)
        return std::nullopt;
    return value;
}

}  // namespace

}  // namespace internal

using namespace internal;

bool setOption(std::string_view givenName, std::string_view value) {
    buildOptionTables();
    std::string_view name = givenName;
    {
        const CaseBlindName spelled(givenName);
        if (spelled.matches("DvCommandFile") || spelled.matches("c"))
            return parseCommandFile(value);
        if (spelled.matches("DvLoadDefaults") && (value.empty() || isWord(value, "true") || isWord(value, "yes"))) {
            loadDefaults(false);
            return true;
        }
        for (const LegacyName& legacy : legacyOptionNames) {
            if (spelled.matches(legacy.oldName)) {
                name = legacy.currentName;
                break;
            }
        }
    }
    const CaseBlindName wanted(name);

    if (const auto index = scanTable(stringOptions, wanted, true)) {
        settingsStore().writeStringEntry(stringSection, stringOptions[*index].name.c_str(),
                                         std::string(value).c_str());
        return true;
    }

    if (const auto index = scanTable(boolOptions, wanted, false)) {
        bool on = true;
        if (value.empty() || isWord(value, "true") || isWord(value, "yes")) {
            on = true;
        } else if (isWord(value, "false") || isWord(value, "no")) {
            on = false;
        } else {
            const auto number = scanInt(value);
            if (!number || (*number != 0 && *number != 1))
                invalidNumber(name);
            on = *number == 1;
        }
        settingsStore().writeIntEntry(boolSection, boolOptions[*index].name.c_str(), on ? 1 : 0);
        return true;
    }

    if (value.empty())
        fatalReport("Missing parameter for option: %.*s\n", name);

    if (const auto index = scanTable(intOptions, wanted, false)) {
        std::int32_t number = 0;
        if (isWord(value, "true")) {
            number = 1;
        } else if (isWord(value, "false")) {
            number = 0;
        } else if (const auto scanned = scanInt(value)) {
            number = *scanned;
        } else {
            invalidNumber(name);
        }
        const std::string& rowName = intOptions[*index].name;
        if (rowName == programTypeName)
            setOptionInt(rowName, number);  // the process-wide value, not the registry
        else
            settingsStore().writeIntEntry(intSection, rowName.c_str(), number);
        return true;
    }

    if (const auto index = scanTable(realOptions, wanted, false)) {
        const auto number = scanReal(value);
        if (!number)
            invalidNumber(name);
        settingsStore().writeRealEntry(realSection, realOptions[*index].name.c_str(), *number);
        return true;
    }

    fxwarning("Unknown option: %.*s\n", static_cast<int>(name.size()), name.data());
    return false;
}

}  // namespace dv::env
