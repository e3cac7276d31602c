#pragma once

#include <dv/env/Export.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace dv::env {

// The option store. Every option has a name, a type and a built-in default; its
// current value lives in the registry of the FOX application object (sections
// "Integer", "Real", "String" and "Boolean", keyed by the option's own
// spelling), and every read goes there. Names are matched ignoring case.
//
// The application object must exist before any option is read or written
// (`testOption` tells); the one exception is "DvProgramType".
//
//     FXApp app("Dravik", "Dravik");
//     int precision = dv::env::getOptionInt("ToolArcPrecValue", true);
//     dv::env::setOptionBoolean("DxfOutFlatten", true);
//
// Each read also writes a log line to std::clog the first time it sees an
// option and whenever the value differs from the read before, and, with
// `record` true, notes the value in `optionsRecorder()`.
//
// A typed operation given a name that no row of its type matches is not
// reported: a getter answers with the value of the table's row at index 0 (the
// last built-in row unless an option was registered before the first look-up),
// and a setter writes nothing.

/// Reads an integer option. "DvProgramType" (exactly so) is a process-wide value
/// outside the registry: it is 0 until set, is never logged or recorded, and
/// needs no application object.
DV_ENV_EXPORT std::int32_t getOptionInt(std::string_view name, bool record);
/// Reads a real option.
DV_ENV_EXPORT double getOptionReal(std::string_view name, bool record);
/// Reads a boolean option; any non-zero entry reads as true.
DV_ENV_EXPORT bool getOptionBoolean(std::string_view name, bool record);
/// Reads a string option.
DV_ENV_EXPORT std::string getOptionString(std::string_view name, bool record);

/// Reads any option as text, by name or by its one-letter short name ("i", "o",
/// "q"; case matters for these). Tables are tried in the order string, boolean,
/// integer, real. Booleans read "true" or "false", reals as "%f".
///
///     std::string text;
///     if (dv::env::getOption("ToolErrorMargin", text, false)) ...  // "1.500000"
///
/// An unknown name gives the warning "Unknown option: NAME" through fxwarning,
/// leaves `value` unchanged and returns false.
DV_ENV_EXPORT bool getOption(std::string_view name, std::string& value, bool record);

/// Writes an integer option; "DvProgramType" sets the process-wide value. A
/// write logs and records nothing: a change shows in the log at the next read.
DV_ENV_EXPORT void setOptionInt(std::string_view name, std::int32_t value);
/// Writes a real option. The registry keeps about 15 significant digits.
DV_ENV_EXPORT void setOptionReal(std::string_view name, double value);
/// Writes a boolean option, stored as 1 or 0.
DV_ENV_EXPORT void setOptionBoolean(std::string_view name, bool value);
/// Writes a string option.
DV_ENV_EXPORT void setOptionString(std::string_view name, std::string_view value);

/// Whether the FOX application object exists, whatever the name: the test for
/// a caller that may run before it is created.
DV_ENV_EXPORT bool testOption(std::string_view name);

/// Notes an option's current value in the options recorder without wanting it,
/// under the option's own spelling. An unknown name gets the warning of
/// `getOption` and notes nothing.
DV_ENV_EXPORT void recordOption(std::string_view name);

}  // namespace dv::env
