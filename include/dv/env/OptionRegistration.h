#pragma once

// Options a module adds at run time. From then on the option is like a built-in
// one: read and written by name (ignoring case), logged, recordable, and reset
// by the defaults pass when it is not persistent; `getOption` and `setOption`
// also know it by `shortName`.
//
//     dv::env::registerOptionInt("MyToolPasses", 3, "", true);
//     int passes = dv::env::getOptionInt("MyToolPasses", true);
//
// Registration only appends a row and tells `optionsRecorder()` the default:
// - an empty name is ignored;
// - a name the settings cannot hold is refused with a warning through
//   fxwarning: 200 bytes or more, a control character or "=" in it, a blank
//   at either end, or "[", "#" or ";" first;
// - names are not checked for duplicates: registering a name again adds a
//   second row that reads never reach (the first row answers), but its default
//   becomes the recorder's default;
// - the registry is not touched, so a value stored under the name by an earlier
//   run is what the first read gives.
//
// Registration takes no lock: it must not overlap any other use of the option
// store, so modules register while the application starts up.

#include <dv/env/Export.h>
#include <dv/env/Unit.h>

#include <cstdint>
#include <string_view>

namespace dv::env {

/// Adds an integer option.
///
///     dv::env::registerOptionInt("MyToolPasses", 3, "", true);
DV_ENV_EXPORT void registerOptionInt(std::string_view name, std::int32_t defaultValue, std::string_view shortName,
                                     bool persistent);

/// Adds a boolean option.
///
///     dv::env::registerOptionBoolean("MyToolVerbose", false, "v", false);  // "-v=true" on the command line
DV_ENV_EXPORT void registerOptionBoolean(std::string_view name, bool defaultValue, std::string_view shortName,
                                         bool persistent);

/// Adds a real option.
///
///     dv::env::registerOptionReal("MyToolScale", 1.0, "", true);
DV_ENV_EXPORT void registerOptionReal(std::string_view name, double defaultValue, std::string_view shortName,
                                      bool persistent);

/// Adds a string option.
///
///     dv::env::registerOptionString("MyToolPrefix", "cell_", "", true);
DV_ENV_EXPORT void registerOptionString(std::string_view name, std::string_view defaultValue,
                                        std::string_view shortName, bool persistent);

/// Adds an integer option holding a unit, without a range check on the default.
///
///     dv::env::registerOptionUnits("MyToolUnits", dv::Unit::Micrometer, "", true);
///     dv::Unit units = dv::env::getOptionUnits("MyToolUnits", false);
DV_ENV_EXPORT void registerOptionUnits(std::string_view name, dv::Unit defaultValue, std::string_view shortName,
                                       bool persistent);

}  // namespace dv::env
