#pragma once

// What tools learn of the option store from the library itself: the options
// there are, one option by name, and an assignment from text that reports
// instead of ending the process.
//
//     for (const dv::env::OptionInfo& option : dv::env::listOptions())
//         std::cout << option.name << " = " << option.defaultText << '\n';
//
//     if (auto option = dv::env::findOption("DvArcPrecValue"))   // an old name
//         std::cout << option->name << '\n';                       // "ToolArcPrecValue"
//
//     dv::env::assignOption("ToolCropX0", "1.5mm");              // stored as 1.5
//     auto done = dv::env::assignOption("ToolCropX0", "wide");
//     if (done.status != dv::env::AssignStatus::Assigned)
//         std::cerr << dv::env::describe(done) << '\n';  // "Invalid numeric parameter for option: ToolCropX0"
//
// Option names are compared ignoring ASCII case only, whatever the C and C++
// locales of the process: option names are ASCII, and a host's locale (a
// Turkish one, say, whose upper case of "i" is not "I") must not make a name
// unknown. This holds for every operation of the store, also for the typed
// access of Options.h and for setOption.

#include <dv/env/Export.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dv::env {

/// The type of an option's value, which is also its registry section.
enum class OptionType { Integer, Real, String, Boolean };

/// One option as the store knows it; a copy, not a view of the store.
struct OptionInfo {
    std::string name;         ///< the option's own spelling: the registry key and the log's
    OptionType type;
    std::string defaultText;  ///< the default as text: "32", "1.5" (the shortest that reads back), "true"
    bool persistent;          ///< false: reset to the default at every `parseCommandLine`
    std::string shortName;    ///< one letter for the command line ("i", "o", "q"), or empty
};

/// Every option: the built-in ones and those registered so far, in the order
/// textual access tries them (string, boolean, integer, real) and within a type
/// by the store's order. A name registered twice in one type is listed once,
/// as the row that access reaches.
DV_ENV_EXPORT std::vector<OptionInfo> listOptions();

/// The option that textual access means by `name`: its name or short name
/// (see `getOption`), or an old name of an earlier release, which gives the
/// option that replaced it. Nothing for a name no option has.
DV_ENV_EXPORT std::optional<OptionInfo> findOption(std::string_view name);

enum class AssignStatus {
    Assigned,       ///< the value is stored
    UnknownName,    ///< no option of that name
    MissingValue,   ///< an empty value for an option that needs one
    InvalidNumber,  ///< a value that does not read as the option's number
    Command,        ///< "c", "DvCommandFile" or "DvLoadDefaults": an action, not carried out here
};

/// Whether `name` is one of the names that text uses for an action rather
/// than a value: "c" and "DvCommandFile" (read a command file) and
/// "DvLoadDefaults" (reset every option), in any case.
DV_ENV_EXPORT bool isCommandName(std::string_view name);

/// What `assignOption` did.
struct Assignment {
    AssignStatus status;
    /// With Assigned the option's own spelling, under which the value is
    /// stored; otherwise the name after an old name has been replaced by its
    /// current one, as setOption's reports name it.
    std::string name;
};

/// Stores `value` under the option `name` by the rules of `setOption`: old
/// names, short names, the order string, boolean, integer, real, and the same
/// conversions ("1.5mm" stores 1.5 in a real option, "yes" switches a boolean
/// on). Unlike `setOption` it reports instead of ending the process or
/// warning, stores nothing unless it returns Assigned, and does not carry out
/// the command names.
DV_ENV_EXPORT Assignment assignOption(std::string_view name, std::string_view value);

/// The report setOption gives for a failed assignment, e.g.
/// "Unknown option: ToolCropAddBounds"; empty for Assigned and Command.
DV_ENV_EXPORT std::string describe(const Assignment& assignment);

}  // namespace dv::env
