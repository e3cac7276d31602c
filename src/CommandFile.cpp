// Command files: parseCommandFile, the "[Dravik]" section read line by line
// into setOption, with the chain of files that read each other.

#include <dv/env/Options.h>

#include "OptionNames.h"
#include "ToolApply.h"
#include "platform/Files.h"

#include <fx.h>

#include <algorithm>
#include <string>
#include <vector>

namespace dv::env {

namespace {

// Files may name each other; a chain deeper than this is taken for a mistake.
constexpr std::size_t maxCommandFileNesting = 64;

// The files being read on this thread, outermost first: a file that is already
// among them would repeat the chain without end.
thread_local std::vector<platform::FileIdentity> filesBeingRead;

class ReadingFile {
public:
    explicit ReadingFile(const platform::FileIdentity& identity) { filesBeingRead.push_back(identity); }
    ~ReadingFile() { filesBeingRead.pop_back(); }
    ReadingFile(const ReadingFile&) = delete;
    ReadingFile& operator=(const ReadingFile&) = delete;
};

bool isWhite(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

std::string_view trimmed(std::string_view text) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && isWhite(text[begin]))
        ++begin;
    while (end > begin && isWhite(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}

// A line without its line feed, and without a carriage return right before it.
std::string_view withoutLineEnd(std::string_view line) {
    if (!line.empty() && line.back() == '\n') {
        line.remove_suffix(1);
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
    }
    return line;
}

bool mayRead(std::string_view path, const platform::FileIdentity& identity) {
    const int length = static_cast<int>(path.size());
    if (std::find(filesBeingRead.begin(), filesBeingRead.end(), identity) != filesBeingRead.end()) {
        fxwarning("Command file is already being read, not read again: %.*s\n", length, path.data());
        return false;
    }
    if (filesBeingRead.size() >= maxCommandFileNesting) {
        fxwarning("Command files nested more than %d deep, not read: %.*s\n",
                  static_cast<int>(maxCommandFileNesting), length, path.data());
        return false;
    }
    return true;
}

}  // namespace

bool parseCommandFile(std::string_view path) {
    const auto file = platform::files().openInputFile(path);
    if (!file || !mayRead(path, file->identity()))
        return true;
    const ReadingFile reading(file->identity());

        bool inSection = false;
    bool toolApplySeen = false;
    std::string buffer;
    std::string joined;
    while (file->readLine(buffer)) {
        const std::string_view line = withoutLineEnd(buffer);
        std::size_t first = 0;
        while (first < line.size() && isWhite(line[first]))
            ++first;
        if (first == line.size())
            continue;
        if (line[first] == '[') {
            inSection = internal::sameOptionName(line.substr(first), "[Dravik]");
            continue;
        }
        if (!inSection)
            continue;
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos)
            continue;
        const std::string_view name = trimmed(line.substr(0, equals));
        if (name.empty())
            continue;
        std::string_view value = trimmed(line.substr(equals + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        if (value.empty())
            continue;
        setOption(name, internal::toolApplyValue(name, value, toolApplySeen, joined));
    }
    return true;
}

}  // namespace dv::env
