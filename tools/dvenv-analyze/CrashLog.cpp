#include "CrashLog.h"

#include "TextDecoding.h"

#include <cctype>
#include <sstream>

namespace dvanalyze {

namespace {

constexpr std::string_view runStart = "-----------------------------------------------";
constexpr std::string_view dumpBegin = "Memory Mini-Dump Begin";
constexpr std::string_view dumpEnd = "Memory Mini-Dump End";
constexpr std::string_view diagnosis = "Unhandled exception: ";
constexpr std::size_t blockSize = 54;

// The texts with which the library's fatal reports begin, and the crash
// filter's lines for a library that failed to load on first use.
constexpr std::string_view fatalReports[] = {
    "Invalid numeric parameter for option: ",
    "Missing parameter for option: ",
    "Unable to delay-load DLL: ",
};

bool startsWith(std::string_view text, std::string_view head) { return text.substr(0, head.size()) == head; }
bool endsWith(std::string_view text, std::string_view tail) {
    return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

// A stamped line: a source's base name padded to 16, ":", the line number
// padded to 4, three blanks. The text behind the stamp, and the name.
struct Stamped {
    std::string_view name;
    std::string_view text;
};
std::optional<Stamped> stamped(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == 0 || colon == std::string_view::npos || line[0] == ' ')
        return std::nullopt;
    std::string_view name = line.substr(0, colon);
    const std::size_t nameEnd = name.find(' ');
    if (nameEnd != std::string_view::npos) {
        if (name.find_first_not_of(' ', nameEnd) != std::string_view::npos)
            return std::nullopt;
        name = name.substr(0, nameEnd);
    }
    std::size_t at = colon + 1;
    const std::size_t digits = at;
    while (at < line.size() && std::isdigit(static_cast<unsigned char>(line[at])))
        ++at;
    if (at == digits || at + 3 > line.size() || line.substr(at, 1) != " ")
        return std::nullopt;
    while (at < line.size() && line[at] == ' ')
        ++at;
    return Stamped{name, line.substr(at)};
}

bool isModulePath(std::string_view text) {
    return startsWith(text, "/") ||
           (text.size() > 3 && std::isalpha(static_cast<unsigned char>(text[0])) && text[1] == ':' && text[2] == '\\');
}

// "Sun Nov 22 20:40:30 2026", as asctime writes it.
bool isDate(std::string_view text) {
    return text.size() == 24 && text[3] == ' ' && text[7] == ' ' && text[13] == ':' && text[16] == ':' && text[19] == ' ';
}

bool isVersion(std::string_view text) {
    int dots = 0;
    for (const char c : text) {
        if (c == '.')
            ++dots;
        else if (!std::isdigit(static_cast<unsigned char>(c)))
            return false;
    }
    return dots == 3 && !text.empty();
}

struct Run {
    std::string programPath, programVersion, date, system;
    bool lastWasModule = false;
    std::string reason;
    std::size_t reasonLine = 0;
};

class DumpCollector {
public:
    DumpCollector(std::vector<LogCrash>& crashes, std::size_t index, const std::string& logName, std::size_t beginLine)
        : all(crashes), at(index), where(logName), begin(beginLine) {
        all[at].hasDump = true;
    }

    void add(std::string_view line, std::size_t number) {
        LogCrash& crash = all[at];
        if (!crash.dumpError.empty())
            return;
        if (!pendingError.empty()) {
            crash.dumpError = pendingError;
            return;
        }
        if (lastLength != blockSize) {
            fail(lastLine, "a dump line of " + std::to_string(lastLength) +
                               " bytes is followed by another; only the last line may be shorter than 54 bytes");
            return;
        }
        const auto bytes = decodeBase64(line);
        if (!bytes || bytes->size() > blockSize) {
            // Final only if more follows: a log cut in the middle of a line
            // is reported as cut short.
            pendingError = where + ":" + std::to_string(number) + ": not a line of the dump (Base64 of at most 54 bytes): '" +
                           std::string(line.substr(0, 80)) + "'";
            return;
        }
        crash.dump += *bytes;
        lastLength = bytes->size();
        lastLine = number;
    }

    void ended() {
        LogCrash& crash = all[at];
        if (crash.dumpError.empty())
            crash.dumpError = pendingError;
    }

    void unfinished() {
        LogCrash& crash = all[at];
        if (crash.dumpError.empty())
            crash.dumpError = where + ": the dump that starts at line " + std::to_string(begin) +
                              " has no end (no line ending in \"Memory Mini-Dump End\"): the log is cut short";
    }

private:
    void fail(std::size_t number, const std::string& what) {
        all[at].dumpError = where + ":" + std::to_string(number) + ": " + what;
    }

    std::vector<LogCrash>& all;
    std::size_t at;
    const std::string& where;
    std::size_t begin;
    std::size_t lastLength = blockSize;
    std::size_t lastLine = 0;
    std::string pendingError;
};

}  // namespace

bool looksLikeLog(std::string_view text) {
    std::size_t start = 0;
    for (int lines = 0; start < text.size() && lines < 200; ++lines) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos)
            end = text.size();
        std::string_view line = text.substr(start, end - start);
        if (endsWith(line, "\r"))
            line.remove_suffix(1);
        if (line == runStart || stamped(line))
            return true;
        start = end + 1;
    }
    return false;
}

std::vector<LogCrash> findCrashes(std::string_view log, const std::string& where) {
    std::vector<LogCrash> crashes;
    Run run;
    std::optional<DumpCollector> dump;
    bool lastCrashOfRun = false;  // the last crash belongs to the current run

    const auto newCrash = [&](std::size_t line) -> LogCrash& {
        LogCrash crash;
        crash.line = line;
        crash.programPath = run.programPath;
        crash.programVersion = run.programVersion;
        crash.date = run.date;
        crash.system = run.system;
        crash.reason = run.reason;
        crashes.push_back(std::move(crash));
        lastCrashOfRun = true;
        return crashes.back();
    };
    // A fatal report with nothing after it: the process ended there.
    const auto endRun = [&] {
        if (dump)
            dump->unfinished();
        dump.reset();
        if (!run.reason.empty() && !(lastCrashOfRun && crashes.back().reason == run.reason))
            newCrash(run.reasonLine);
        run = Run{};
        lastCrashOfRun = false;
    };

    std::size_t number = 0;
    std::size_t start = 0;
    while (start < log.size()) {
        std::size_t end = log.find('\n', start);
        if (end == std::string_view::npos)
            end = log.size();
        std::string_view line = log.substr(start, end - start);
        start = end + 1;
        ++number;
        if (endsWith(line, "\r"))
            line.remove_suffix(1);

        if (line == runStart) {
            endRun();
            continue;
        }
        const auto stamp = stamped(line);
        if (dump) {
            if (endsWith(line, dumpEnd)) {
                dump->ended();
                dump.reset();
            } else if (line.find(' ') == std::string_view::npos) {
                // Lines of other threads can come between the dump's lines;
                // a dump line never holds a blank.
                dump->add(line, number);
            }
            continue;
        }
        if (!stamp) {
            run.lastWasModule = false;
            continue;
        }
        const std::string_view text = stamp->text;
        if (startsWith(text, diagnosis)) {
            LogCrash& crash = newCrash(number);
            const std::string code(text.substr(diagnosis.size()));
            try {
                crash.code = static_cast<std::uint32_t>(std::stoul(code, nullptr, 16));
            } catch (const std::exception&) {
            }
        } else if (endsWith(text, dumpBegin)) {
            if (!lastCrashOfRun || crashes.back().hasDump)
                newCrash(number);
            dump.emplace(crashes, crashes.size() - 1, where, number);
        } else if (stamp->name == "AppLog" && isModulePath(text)) {
            if (!run.lastWasModule) {
                // The first module of a report is the program.
                const std::size_t blank = text.rfind(' ');
                if (blank != std::string_view::npos && isVersion(text.substr(blank + 1))) {
                    run.programPath = text.substr(0, blank);
                    run.programVersion = text.substr(blank + 1);
                } else {
                    run.programPath = text;
                    run.programVersion.clear();
                }
            }
            run.lastWasModule = true;
            continue;
        } else if (stamp->name == "AppLog" && isDate(text)) {
            run.date = text;
        } else if (stamp->name == "AppLog" && (startsWith(text, "Linux ") || startsWith(text, "Windows "))) {
            run.system = text;
        } else {
            for (const std::string_view report : fatalReports) {
                if (startsWith(text, report)) {
                    run.reason = text;
                    run.reasonLine = number;
                }
            }
        }
        run.lastWasModule = false;
    }
    endRun();
    return crashes;
}

}  // namespace dvanalyze
