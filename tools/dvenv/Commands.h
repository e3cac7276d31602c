#pragma once

// The sub-commands of the host tool. Each takes the arguments behind its name
// and returns the process's exit status.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace dvenv {

using Arguments = std::vector<std::string>;

int listOptions(const Arguments& args);
int getOption(const Arguments& args);
int setOption(const Arguments& args);
int printVersion(const Arguments& args);
int runApplication(const Arguments& args);
int writeReport(const Arguments& args);
int openDialog(const Arguments& args);
int foldEvents(const Arguments& args);
int crash(const Arguments& args);
int extractDump(const Arguments& args);

// Where a user's application state lives by the desktop's conventions: the
// log of `report` and `crash` when no --log is given.
std::filesystem::path defaultLogPath();

// The log file of a command that takes no arguments or "--log FILE": FILE, or
// the default (its directory created). Nothing, after a usage message, for
// other arguments.
std::optional<std::filesystem::path> logFileArgument(const Arguments& args, const char* command);

// Exit statuses: a failure at run time (a file that cannot be read or
// written, a registry that cannot be saved), and a command used wrongly or
// given bad input. 0 is success; crash ends by its signal.
inline constexpr int runFailure = 1;
inline constexpr int badInput = 2;

}  // namespace dvenv
