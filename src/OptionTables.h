#pragma once

// The rows of the option store and the run-time tables that all access goes
// through. Internal to the library.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace FX {
class FXSettings;
}

namespace dv::env::internal {

template <typename Value>
struct OptionRow {
    OptionRow(bool isPersistent, std::string optionName, std::string optionShortName, Value defaultVal)
        : persistent(isPersistent),
          name(std::move(optionName)),
          shortName(std::move(optionShortName)),
          defaultValue(std::move(defaultVal)),
          lastValue(),
          logged(false) {}

    bool persistent;
    std::string name;
    std::string shortName;  // one letter or empty; only the textual scans honour it
    Value defaultValue;
    Value lastValue;  // what the last read saw, to decide whether to log
    bool logged;
};

using IntOption = OptionRow<std::int32_t>;
using RealOption = OptionRow<double>;
using StringOption = OptionRow<std::string>;
using BoolOption = OptionRow<bool>;

// The built-in catalogue, in its listed order; read only by the build.
extern const std::vector<IntOption> builtinIntOptions;
extern const std::vector<RealOption> builtinRealOptions;
extern const std::vector<StringOption> builtinStringOptions;
extern const std::vector<BoolOption> builtinBoolOptions;

// The run-time tables. Rows are only appended, so an index stays valid for the
// life of the process; an append may relocate a table, so no pointer to a row
// is held across one.
extern std::vector<IntOption> intOptions;
extern std::vector<RealOption> realOptions;
extern std::vector<StringOption> stringOptions;
extern std::vector<BoolOption> boolOptions;

// Copies the catalogue into the run-time tables, last row first, behind any
// rows registered before. Runs once; safe against concurrent callers.
void buildOptionTables();

// Case-blind equality through the global locale of the moment.
bool equalsIgnoringCase(std::string_view a, std::string_view b);

// The look-ups by name, ignoring case (short names play no part). They answer
// nullopt where no row matches; the store then acts on row 0.
std::optional<std::size_t> findIntOption(std::string_view name);
std::optional<std::size_t> findRealOption(std::string_view name);
std::optional<std::size_t> findStringOption(std::string_view name);
std::optional<std::size_t> findBoolOption(std::string_view name);

inline std::size_t intOptionIndex(std::string_view name) { return findIntOption(name).value_or(0); }
inline std::size_t realOptionIndex(std::string_view name) { return findRealOption(name).value_or(0); }
inline std::size_t stringOptionIndex(std::string_view name) { return findStringOption(name).value_or(0); }
inline std::size_t boolOptionIndex(std::string_view name) { return findBoolOption(name).value_or(0); }

// Writes the defaults back to the settings (all rows, or the transient ones
// only) and tells the options recorder every row's default.
void loadDefaults(bool transientOnly);

// The registry of the FOX application object, where the current values live.
FX::FXSettings& settingsStore();

// The integer option whose value is process-wide, not a registry entry.
inline constexpr std::string_view programTypeName = "DvProgramType";

// Settings sections, one per table.
inline constexpr const char* intSection = "Integer";
inline constexpr const char* realSection = "Real";
inline constexpr const char* stringSection = "String";
inline constexpr const char* boolSection = "Boolean";

}  // namespace dv::env::internal
