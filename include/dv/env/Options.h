#pragma once

#include <dv/env/Export.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace dv::env {

// The option store. Every option has a name, a type and a built-in default; its
// current value lives in the registry of the FOX application object (sections
// "Integer", "Real", "String" and "Boolean", keyed by the option's own
// spelling), and every read goes there. Names are matched ignoring ASCII case
// only, whatever the process's C and C++ locales: option names are ASCII, and
// a host's locale (a Turkish one, whose upper case of "i" is not "I") must not
// make a name unknown. This holds for setOption and the command input too.
// OptionReflection.h lists the options and assigns from text without ending
// the process.
//
// The application object must exist before any option is read or written
// (`testOption` tells); the one exception is "DvProgramType".
//
//     FXApp app("Dravik", "Dravik");
//     int precision = dv::env::getOptionInt("ToolArcPrecValue", true);
//     dv::env::setOptionBoolean("DxfOutFlatten", true);
//
// Numbers in option text always use a point, whatever the process's C and C++
// locales: setOption and everything that ends in it read "1.5" as one and a
// half, getOption writes "1.500000", and reals are kept in the registry the
// same way. The library never sets the process's locale.
//
// Every write, typed or from text, skips an entry that already holds what it
// would store: FOX writes the registry file at exit only when something
// changed, so a run that changes nothing leaves the file untouched.
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

/// Puts an option back to its built-in default by deleting its registry
/// entry, so that a later release's default applies to it too. The name is
/// resolved as `setOption` resolves it (any case, old names, short names).
/// Returns false for an unknown name, after the warning "Unknown option: NAME"
/// through fxwarning. An option without an entry is left alone, so the
/// registry is not marked modified.
///
///     dv::env::resetOption("ToolArcPrecValue");   // reads 32 again
///     dv::env::resetAllOptions();                 // every option
DV_ENV_EXPORT bool resetOption(std::string_view name);

/// Deletes the entries of every known option, in all four sections. Entries of
/// names no option has are kept: they may belong to another part of the
/// program. Unlike "DvLoadDefaults", which writes each default, this leaves
/// the defaults to the library.
DV_ENV_EXPORT void resetAllOptions();

/// Assigns an option from text, the one road from a command line or a command
/// file to the store. Returns true when the assignment was carried out, false
/// when the name is unknown (after the warning "Unknown option: NAME" through
/// fxwarning).
///
///     dv::env::setOption("ToolArcPrecValue", "64");    // Integer, 64
///     dv::env::setOption("toolcropx0", "1.5mm");       // Real, 1.5
///     dv::env::setOption("q", "");                     // DvExitWhenFinished on
///     dv::env::setOption("c", "/path/run.cmd");        // reads a command file
///     dv::env::setOption("DvLoadDefaults", "");        // every option to its default
///
/// Names are matched ignoring case; the old names of earlier releases (such as
/// "DvArcPrecValue") are taken for their current ones. The one-letter short
/// names ignore case for string options ("I" is "i") and match exactly for
/// the others. Tables are tried in the order string, boolean, integer, real,
/// and the registry key is always the option's own spelling.
///
/// Values: a string is stored as given. A boolean takes empty, "true" or "yes"
/// for true and "false" or "no" for false (ignoring case), or a number read as
/// by sscanf "%d" that must be 0 or 1. An integer takes "true" (1), "false"
/// (0) or a number read as by "%d"; a real a number read as by "%lf" in the C
/// locale, with a point whatever the process's locale ("0x1p3", "inf" and
/// "nan" too). Leading
/// white space is skipped and whatever follows the number is ignored ("1.5mm"
/// is 1.5). A number beyond the 32-bit range is rejected as invalid rather than
/// wrapped or clamped.
///
/// Fatal, through fxerror (the process ends, nothing of the assignment is
/// stored): "Missing parameter for option: NAME" for an empty value that a
/// string or boolean option does not take, and "Invalid numeric parameter for
/// option: NAME" for a value that does not convert. NAME is the current name.
/// So that a user who started the program from the desktop sees the reason,
/// the text is first written as a line of the log once the log is redirected
/// to a file (stamped "Options"), and shown in an error dialog ("Dravik Error",
/// by the program `AppLog::dialogProgram`) where a display can be opened; then
/// fxerror writes it to standard error and aborts. That abort is no crash: the
/// crash handler of an `AppLog` writes no diagnosis and no dump for it and asks
/// nothing.
DV_ENV_EXPORT bool setOption(std::string_view name, std::string_view value);

/// Reads a command file: a "[Dravik]" section of `name=value` lines, each
/// handed to `setOption`. Always returns true, also for a file that cannot be
/// opened or an empty path. The path is UTF-8; a relative one is taken against
/// the working directory.
///
///     [Dravik]
///     DvLoadDefaults=true
///     ToolArcPrecValue = 64
///     DvImportFile="  name with blanks.gds"
///
/// Only lines under a "[Dravik]" head count (the head in any case, nothing
/// behind its bracket); another line beginning with "[" ends the section. The
/// name and the value are trimmed, one pair of surrounding double quotes is
/// taken off the value, and a line with no "=", no name or an empty value is
/// dropped without a word. "ToolApply" lines join: the first of a file
/// replaces the stored list, each later one appends ";" and its value.
///
/// A file may read another through "DvCommandFile" or "c". A file that is
/// already being read further up the chain (the same file, however spelled) is
/// not read again, and files are not followed deeper than 64 levels; either is
/// reported through fxwarning, naming the file, and reading goes on.
DV_ENV_EXPORT bool parseCommandFile(std::string_view path);

/// Applies a program's command line. First puts every transient option back to
/// its default and tells the options recorder all defaults, then assigns the
/// arguments from argv[1] on, left to right, through `setOption`:
///
///     app -ToolArcPrecValue=64 -i in.gds -o out.cif -q -c more.cmd
///
/// "-name=value" or "-name value" (the next argument is the value unless it
/// begins with "-"), or "-name" alone for an empty value; the short names are
/// "c" (command file), "i", "o" and "q". Negative numbers need the "=" form.
/// Repeated "ToolApply" arguments join with ";". An argument that does not
/// begin with "-" is rejected: with an initialised FOX application a modal
/// error box titled "Invalid command line option" shows it, otherwise the title
/// and the text go to standard error; then parsing goes on.
///
/// Returns true if any assignment was carried out. The fatal reports of
/// `setOption` end the process at the argument that caused them.
///
/// The arguments are UTF-8. On Windows, where `main` gets them in the ANSI
/// code page, hand over those of `Utf8Arguments` (Utf8Arguments.h), read from
/// the process's command line as typed; elsewhere it changes nothing:
///
///     dv::env::Utf8Arguments arguments(argc, argv);
///     dv::env::parseCommandLine(arguments.argc, arguments.argv);
DV_ENV_EXPORT bool parseCommandLine(int argc, char** const argv);

}  // namespace dv::env
