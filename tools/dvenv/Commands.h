#pragma once

// The commands of the host tool, each with what its command line gave it,
// each returning the process's exit status. main.cpp parses the command line
// and loads the registry for the commands that use options.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace dv::env {
class AppLog;
}

namespace dvenv {

struct OptionListing {
    std::string pattern;        // part of the name, or a pattern with * and ?; ignores case
    bool changedOnly = false;   // only options whose value differs from the default
    std::string format = "table";  // table, tsv or json
};

int listOptions(const OptionListing& listing);
int getOption(const std::string& name);
int setOption(const std::string& name, const std::string& value);
int resetOptions(const std::vector<std::string>& names, bool all);
int printVersion();
int runApplication(const std::vector<std::string>& arguments, bool save);
int writeReport(const std::optional<std::string>& logFile);
int openDialog();
int foldEvents(const std::string& file);
int crash(const std::optional<std::string>& logFile);
int extractDump(const std::string& logFile, const std::string& dumpFile);
int runAnalyzer(const std::vector<std::string>& arguments);

// Saves what this run changed in the registry, over what other instances
// saved meanwhile; says why not and gives runFailure when that fails.
int saveChanges();

// Paths on the command line and in messages are UTF-8 on every platform.
std::filesystem::path pathFromUtf8(const std::string& text);
std::string utf8Of(const std::filesystem::path& path);

// Where a user's application state lives by the desktop's conventions: the
// log of `report` and `crash` when no --log is given.
std::filesystem::path defaultLogPath();

// Points `log` at `logFile`, or at the default log, whose missing folders are
// created private to the user. The path, or nothing after a message.
std::optional<std::filesystem::path> openLog(const dv::env::AppLog& log, const std::optional<std::string>& logFile);

// Exit statuses: a failure at run time (a file that cannot be read or
// written, a registry that cannot be saved), and a command used wrongly or
// given bad input. 0 is success; crash ends by its signal.
inline constexpr int runFailure = 1;
inline constexpr int badInput = 2;

}  // namespace dvenv
