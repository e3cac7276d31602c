// events: folds a file of messages through an event log and prints the log.
//
// The file holds one message per block, blocks separated by blank lines. A
// block's first line is the message identifier in hexadecimal (0x optional);
// each further line is a line of the message's text. A line holding only "."
// stands for an empty line of the text. Lines starting with "#" between blocks
// are comments. The text is taken literally: a "%" is no placeholder here.

#include "Commands.h"

#include <dv/env/Event.h>
#include <dv/notelib/MessageFormatStream.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <optional>
#include <string>

namespace dvenv {

namespace {

using dv::env::Event;

const char* severityName(Event::Severity severity) {
    switch (severity) {
    case Event::Severity::Success: return "Success";
    case Event::Severity::Informational: return "Informational";
    case Event::Severity::Warning: return "Warning";
    case Event::Severity::Error: return "Error";
    }
    return "?";
}

std::optional<unsigned int> parseIdentifier(std::string text) {
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
        text.erase(0, 2);
    if (text.empty() || text.size() > 8)
        return std::nullopt;
    for (const char c : text)
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            return std::nullopt;
    return static_cast<unsigned int>(std::stoul(text, nullptr, 16));
}

// Doubles every "%", so that the text comes back from the message as written.
std::string literalFormat(const std::string& text) {
    std::string format;
    for (const char c : text) {
        format += c;
        if (c == '%')
            format += '%';
    }
    return format;
}

// Carriage returns and other control characters would garble the listing.
std::string shown(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\r')
            out += "\\r";
        else if (c == '\t')
            out += "\\t";
        else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
            out += escaped;
        } else
            out += c;
    }
    return out;
}

void printEvent(const Event& event) {
    std::cout << std::hex << std::setfill('0') << std::setw(8) << event.id() << std::dec << std::setfill(' ')
              << "  " << std::left << std::setw(13) << severityName(event.severity()) << std::right << "  "
              << shown(event.summary()) << '\n';
    std::cout << "    count: " << event.count() << '\n';
    for (const std::string& context : event.contexts())
        std::cout << "    context: \"" << shown(context) << "\"\n";
    const std::string details = event.message();
    std::size_t start = 0;
    while (start < details.size()) {
        const std::size_t end = std::min(details.find('\n', start), details.size());
        std::cout << "    details: " << shown(details.substr(start, end - start)) << '\n';
        start = end + 1;
    }
}

}  // namespace

int foldEvents(const std::string& path) {
    std::ifstream file(pathFromUtf8(path));
    if (!file) {
        std::cerr << "dvenv: cannot read '" << path << "': " << std::strerror(errno) << '\n';
        return runFailure;
    }

    dv::env::EventLog log;
    std::optional<unsigned int> id;  // set while inside a block
    std::string text;
    auto endBlock = [&] {
        if (id)
            log.addLog(dv::notelib::MessageFormatStream(*id, literalFormat(text)));
        id.reset();
        text.clear();
    };

    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        // A file written with CR LF keeps its CRs in the texts, but not in
        // the lines that only structure the file.
        if (line.empty() || line == "\r") {
            endBlock();
        } else if (id) {
            text += (line == "." || line == ".\r" ? line.substr(1) : line) + "\n";
        } else if (line[0] != '#') {
            if (line.back() == '\r')
                line.pop_back();
            id = parseIdentifier(line);
            if (!id) {
                std::cerr << "dvenv: " << path << ":" << number << ": '" << shown(line)
                          << "' is not a message identifier (expected 1 to 8 hexadecimal digits)\n";
                return badInput;
            }
        }
    }
    if (file.bad()) {
        std::cerr << "dvenv: cannot read '" << path << "': " << std::strerror(errno) << '\n';
        return runFailure;
    }
    endBlock();

    for (const Event* event : log.entries())
        printEvent(*event);
    std::cout << "entries: " << log.entryCount() << "\nhighest severity: " << severityName(log.highestSeverity())
              << '\n';
    return 0;
}

}  // namespace dvenv
