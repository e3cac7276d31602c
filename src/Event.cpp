#include <dv/env/Event.h>

#include <dv/env/StampLog.h>
#include <dv/notelib/MessageFormatStream.h>

#include <climits>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <sstream>
#include <utility>

namespace dv::env {

namespace {

constexpr int contextLimit = 20;

}  // namespace

Event::Event(const notelib::MessageFormatStream& stream) : id_(stream.messageId()), spare_(0) {
    std::istringstream text(stream.toString());
    std::getline(text, summary_);
    // Unlike a repeat, the first message keeps an empty second line.
    std::string context;
    if (std::getline(text, context)) {
        seenContexts_.insert(context);
        contexts_.push_back(std::move(context));
    }
    message_.assign(std::istreambuf_iterator<char>(text), std::istreambuf_iterator<char>());
}

unsigned int Event::id() const { return id_; }

const char* Event::summary() const { return summary_.c_str(); }

const char* Event::message() const { return message_.c_str(); }

void Event::add(const notelib::MessageFormatStream& stream) {
    if (stream.messageId() != id_)
        return;
    // Tested before the text is formatted: a full event costs nothing more.
    if (count() >= contextLimit)
        return;

    std::istringstream text(stream.toString());
    text.ignore(INT_MAX, '\n');
    std::string context;
    if (!std::getline(text, context) || context.empty())
        return;
    if (!seenContexts_.insert(context).second)
        return;
    contexts_.push_back(std::move(context));

    // Keep this statement on line 56: readers of the log know its stamp.
    std::clog << StampLog(__FILE__, __LINE__) << "Event: " << std::right << std::setfill('0') << std::hex
              << std::setw(8) << id_ << std::left << std::setfill(' ') << std::dec  // as the stamp left it
              << ": " << summary_ << " / " << contexts_.back() << std::endl;
}

Event::Severity Event::severity() const { return static_cast<Severity>(id_ >> 30); }

const std::deque<std::string>& Event::contexts() const { return contexts_; }

int Event::count() const { return static_cast<int>(contexts_.size()); }

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
