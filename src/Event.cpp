#include <dv/env/Event.h>

#include <dv/env/StampLog.h>
#include <dv/notelib/MessageFormatStream.h>

#include <algorithm>
#include <climits>
#include <iomanip>
#include <iostream>
#include <string_view>
#include <utility>

namespace dv::env {

namespace {

constexpr std::size_t contextLimit = 20;

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

}  // namespace

unsigned int Event::id() const { return id_; }

int Event::count() const { return static_cast<int>(contexts_.size()); }

void Event::add(const notelib::MessageFormatStream& stream) {
    if (stream.messageId() != id_ || contexts_.size() >= contextLimit)
        return;  // a full event formats nothing

    std::string text = stream.toString();
    // Line 1 is skipped as istream::ignore(INT_MAX, '\n') would skip it.
    const std::size_t firstEnd = std::string_view(text).find('\n');
    std::size_t pos = std::min<std::size_t>(firstEnd == std::string::npos ? text.size() : firstEnd + 1, INT_MAX);
    std::string_view line;
    if (!readLine(text, pos, line) || line.empty())
        return;
    // The text's own buffer becomes the context: a known one costs no copy.
    std::char_traits<char>::move(text.data(), line.data(), line.size());
    text.resize(line.size());
    if (!seenContexts_.insert(text).second)
        return;
    contexts_.push_back(std::move(text));

    // Keep this statement on line 56: readers of the log know its stamp.
    std::clog << StampLog(__FILE__, __LINE__) << "Event: " << std::right << std::setfill('0') << std::hex
              << std::setw(8) << id_ << std::left << std::setfill(' ') << std::dec  // as the stamp left it
              << ": " << summary_ << " / " << contexts_.back() << std::endl;
}

Event::Event(const notelib::MessageFormatStream& stream) : id_(stream.messageId()), spare_(0) {
    const std::string text = stream.toString();
    std::size_t pos = 0;
    std::string_view line;
    if (readLine(text, pos, line))
        summary_ = line;
    // Unlike a repeat, the first message keeps an empty second line.
    if (readLine(text, pos, line)) {
        contexts_.emplace_back(line);
        seenContexts_.emplace(line);
    }
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
      seenContexts_(std::move(other.seenContexts_)),
      spare_(other.spare_) {
    // The standard leaves moved-from containers valid but unspecified; the
    // source is promised to be empty.
    other.summary_.clear();
    other.message_.clear();
    other.contexts_.clear();
    other.seenContexts_.clear();
}

Event& Event::operator=(const Event& other) = default;

Event& Event::operator=(Event&& other) noexcept {
    if (this == &other)
        return *this;
    id_ = other.id_;
    summary_ = std::move(other.summary_);
    message_ = std::move(other.message_);
    contexts_ = std::move(other.contexts_);
    seenContexts_ = std::move(other.seenContexts_);
    spare_ = other.spare_;
    other.summary_.clear();
    other.message_.clear();
    other.contexts_.clear();
    other.seenContexts_.clear();
    return *this;
}

Event::~Event() = default;

}  // namespace dv::env
