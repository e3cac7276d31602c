// EventLog, the log of events that folds repeats of one message identifier
// (declared beside Event in Event.h).

#include <dv/env/Event.h>

#include <dv/notelib/MessageFormatStream.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace dv::env {

EventLog::EventLog() : lastEvent_(nullptr), highestSeverity_(Event::Severity::Success), fatal_(false) {}

// A copy clones the events, so that each log deletes only what it owns. The
// constructor delegates, so if a clone fails the destructor frees the others.
EventLog::EventLog(const EventLog& other) : EventLog() {
    eventIndex_.reserve(other.eventIndex_.size());
    for (const Event* event : other.entries_) {
        auto clone = std::make_unique<Event>(*event);
        entries_.push_back(clone.get());
        clone.release();
        eventIndex_.emplace(event->id(), entries_.back());
    }
    highestSeverity_ = other.highestSeverity_;
    fatal_ = other.fatal_;
}

EventLog::EventLog(EventLog&& other) : EventLog() {
    entries_.swap(other.entries_);
    eventIndex_.swap(other.eventIndex_);
    std::swap(lastEvent_, other.lastEvent_);
    std::swap(highestSeverity_, other.highestSeverity_);
    std::swap(fatal_, other.fatal_);
}

EventLog& EventLog::operator=(const EventLog& other) {
    if (this != &other) {
        EventLog copy(other);
        *this = std::move(copy);
    }
    return *this;
}

EventLog& EventLog::operator=(EventLog&& other) noexcept {
    if (this != &other) {
        clearLog();
        entries_.swap(other.entries_);
        eventIndex_.swap(other.eventIndex_);
        std::swap(lastEvent_, other.lastEvent_);
        std::swap(highestSeverity_, other.highestSeverity_);
        std::swap(fatal_, other.fatal_);
    }
    return *this;
}

EventLog::~EventLog() { clearLog(); }

int EventLog::addLog(const notelib::MessageFormatStream& stream) {
    const unsigned int id = stream.messageId();
    Event* event = lastEvent_ && lastEvent_->id() == id ? lastEvent_ : nullptr;
    if (!event) {
        if (const auto found = eventIndex_.find(id); found != eventIndex_.end())
            event = found->second;
    }
    if (event) {
        event->add(stream);
    } else {
        auto fresh = std::make_unique<Event>(stream);
        entries_.push_back(fresh.get());
        try {
            eventIndex_.emplace(stream.messageId(), fresh.get());
        } catch (...) {
            entries_.pop_back();
            throw;
        }
        event = fresh.release();
    }
    lastEvent_ = event;
    highestSeverity_ = std::max(highestSeverity_, event->severity());
    return event->count();
}

void EventLog::clearLog() {
    for (Event* event : entries_)
        delete event;
    entries_.clear();
    eventIndex_.clear();
    lastEvent_ = nullptr;
    highestSeverity_ = Event::Severity::Success;
    fatal_ = false;
}

const std::deque<Event*>& EventLog::entries() const { return entries_; }

int EventLog::entryCount() const { return static_cast<int>(entries_.size()); }

Event::Severity EventLog::highestSeverity() const { return highestSeverity_; }

void EventLog::setFatal() { fatal_ = true; }

bool EventLog::isFatal() const { return fatal_; }

}  // namespace dv::env
