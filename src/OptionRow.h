#pragma once

// An option as the library defines it: name, short name, default and whether
// it outlives a command line; and the built-in catalogue of them.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace dv::env::internal {

template <typename Value>
struct OptionRow {
    OptionRow(bool isPersistent, std::string optionName, std::string optionShortName, Value defaultVal)
        : persistent(isPersistent),
          name(std::move(optionName)),
          shortName(std::move(optionShortName)),
          defaultValue(std::move(defaultVal)) {}

    bool persistent;
    std::string name;
    std::string shortName;  // one letter or empty; only the textual access honours it
    Value defaultValue;
};

using IntOption = OptionRow<std::int32_t>;
using RealOption = OptionRow<double>;
using StringOption = OptionRow<std::string>;
using BoolOption = OptionRow<bool>;

// The built-in catalogue, in its listed order; read only by the store's build.
extern const std::vector<IntOption> builtinIntOptions;
extern const std::vector<RealOption> builtinRealOptions;
extern const std::vector<StringOption> builtinStringOptions;
extern const std::vector<BoolOption> builtinBoolOptions;

}  // namespace dv::env::internal
