#pragma once

// The sub-commands of the host tool. Each takes the arguments behind its name
// and returns the process's exit status.

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

// Exit status for a command used wrongly or given bad input.
inline constexpr int badInput = 2;

}  // namespace dvenv
