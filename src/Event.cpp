#include <dv/env/Event.h>

#include <dv/env/StampLog.h>
#include <dv/notelib/MessageFormatStream.h>

#include "HexField.h"

#include <algorithm>
#include <climits>
#include <iomanip>
#include <iostream>
#include <string_view>
#include <utility>

namespace dv::env {

namespace {

constexpr std::size_t contextLimit = 20;

// The event line's stamp reads "Event" and 56, wherever the statement is:
// readers of the log know it by that stamp.
constexpr int eventLineNumber = 56;

// Reads the line at `pos` as std::getline reads a string stream, without the
// stream's cost: it fails only when nothing is left, an empty line is read, and
// the line end is passed over but not kept.
inline bool readLine(std::string_view text, std::size_t& pos, std::string_view& line) {
    if (pos >= text.size())
        return false;
    const std::size_t end = std::min(text.find('\n', pos), text.size());
    line = text.substr(pos, end - pos);
    pos = std::min(end + 1, text.size());
    return true;
}

// Whether `text` starts with the whole line `line`.
inline bool startsWithLine(std::string_view text, std::string_view line) {
    return text.size() >= line.size() && text.compare(0, line.size(), line) == 0 &&
           (text.size() == line.size() || text[line.size()] == '\n');
}

}  // namespace

unsigned int Event::id() const { return id_; }

int Event::count() const { return static_cast<int>(contexts_.size()); }

void Event::add(const notelib::MessageFormatStream& stream) {
    if (stream.messageId() != id_ || contexts_.size() >= contextLimit)
        return;  // a full event formats nothing

    const std::string text = stream.toString();
    // Line 1 is skipped as istream::ignore(INT_MAX, '\n') would skip it.
    const std::size_t firstEnd = std::string_view(text).find('\n');
    std::size_t pos = std::min<std::size_t>(firstEnd == std::string::npos ? text.size() : firstEnd + 1, INT_MAX);
    if (pos >= text.size() || text[pos] == '\n')
        return;  // no second line, or an empty one
    // A known context is recognised in place, without looking for its end.
    const std::string_view rest = std::string_view(text).substr(pos);
    for (const std::string& known : contexts_) {
        if (startsWithLine(rest, known))
            return;
    }
    std::string_view line;
    readLine(text, pos, line);
    contexts_.emplace_back(line);

    std::clog << StampLog(__FILE__, eventLineNumber) << "Event: " << internal::Hex8{id_} << std::left
              << std::setfill(' ') << std::dec  // as the stamp left it
              << ": " << summary_ << " / " << contexts_.back() << std::endl;
}

Event::Event(const notelib::MessageFormatStream& stream) : id_(stream.messageId()), spare_(0) {
    const std::string text = stream.toString();
    std::size_t pos = 0;
    std::string_view line;
    if (readLine(text, pos, line))
        summary_ = line;
    // Unlike a repeat, the first message keeps an empty second line.
    if (readLine(text, pos, line))
        contexts_.emplace_back(line);
    message_ = text.substr(pos);
}

const char* Event::summary() const { return summary_.c_str(); }

const char* Event::message() const { return message_.c_str(); }

Event::Severity Event::severity() const { return static_cast<Severity>(id_ >> 30); }

const std::deque<std::string>& Event::contexts() const { return contexts_; }

Event::Event(const Event& other) = default;

Event::Event(Event&& other)
    : id_(other.id_),
      summary_(std::move(other.summary_)),
      message_(std::move(other.message_)),
      contexts_(std::move(other.contexts_)),
      spare_(other.spare_) {
    // The standard leaves moved-from containers valid but unspecified; the
    // source is promised to be empty.
    other.summary_.clear();
    other.message_.clear();
    other.contexts_.clear();
}

Event& Event::operator=(const Event& other) = default;

Event& Event::operator=(Event&& other) noexcept {
    if (this == &other)
        return *this;
    id_ = other.id_;
    summary_ = std::move(other.summary_);
    message_ = std::move(other.message_);
    contexts_ = std::move(other.contexts_);
    spare_ = other.spare_;
    other.summary_.clear();
    other.message_.clear();
    other.contexts_.clear();
    return *this;
}

Event::~Event() = default;

}  // namespace dv::env
