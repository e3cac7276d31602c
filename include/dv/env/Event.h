#pragma once

#include <dv/env/Export.h>

#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>

namespace dv::notelib {
class MessageFormatStream;  // <dv/notelib/MessageFormatStream.h>
}

namespace dv::env {

/// One reported condition of a run, made from a message of notelib: the
/// message's first line is the summary, its second line a context, and the rest
/// the details. Repeats of the same identifier add at most one context each,
/// up to 20; everything else stays as the first message said.
///
///     dv::notelib::MessageFormatStream first(0x8000007eu, "Open polygon\ncell %1%\nIt is closed.\n");
///     dv::env::Event event(first << "TOP");
///     event.summary();   // "Open polygon"
///     event.contexts();  // {"cell TOP"}
///     event.message();   // "It is closed.\n"
///
/// Not locked: one thread at a time.
class DV_ENV_EXPORT Event {
public:
    /// Gravity, from the two top bits of the identifier.
    enum class Severity : std::int32_t { Success = 0, Informational = 1, Warning = 2, Error = 3 };

    /// Builds the event from a first message. An empty second line is kept as
    /// an empty context; without a second line the event starts with none.
    /// Writes nothing to the log.
    explicit Event(const notelib::MessageFormatStream& stream);

    /// Takes in a repeat: a message with the same identifier whose second line
    /// is neither empty nor known yet adds that line as a context and writes a
    /// log line to std::clog, such as
    /// `Event           :56     Event: 8000007e: Open polygon / cell SUB`.
    /// Other identifiers, full events (20 contexts, tested before the message is
    /// formatted) and known or empty contexts are ignored in silence.
    ///
    ///     event.add(dv::notelib::MessageFormatStream(0x8000007eu, "Open polygon\ncell %1%\n") << "SUB");
    void add(const notelib::MessageFormatStream& stream);

    /// The message identifier.
    unsigned int id() const;
    /// The first line of the first message, without its line end.
    const char* summary() const;
    /// Everything behind the second line of the first message, line ends
    /// included; empty when there was nothing.
    const char* message() const;
    /// `severity()` of identifier 0xC0000001 is `Severity::Error`.
    Severity severity() const;
    /// The contexts, oldest first.
    const std::deque<std::string>& contexts() const;
    /// The number of contexts (0 to 20), not of occurrences.
    int count() const;

    /// Copies are independent. A moved-from event keeps its identifier and is
    /// otherwise empty.
    Event(const Event& other);
    Event(Event&& other);
    Event& operator=(const Event& other);
    Event& operator=(Event&& other) noexcept;
    ~Event();

private:
    unsigned int id_;
    std::string summary_;
    std::string message_;
    std::deque<std::string> contexts_;
    std::int32_t spare_;  // carried along by copies; nothing here reads it
};

/// The events of a module: one per message identifier, in order of first
/// appearance, with repeats folded in.
///
///     dv::env::EventLog log;
///     log.addLog(dv::notelib::MessageFormatStream(0x8000007eu, "Open polygon\ncell %1%\n") << "TOP");
///     log.addLog(dv::notelib::MessageFormatStream(0x8000007eu, "Open polygon\ncell %1%\n") << "SUB");
///     log.entryCount();       // 1
///     log.highestSeverity();  // Severity::Warning
///
/// Not locked: one thread at a time.
class DV_ENV_EXPORT EventLog {
public:
    /// An empty log: no entries, severity `Success`, not fatal.
    EventLog();
    /// A copy owns copies of the events; a moved-from log is empty.
    EventLog(const EventLog& other);
    EventLog(EventLog&& other);
    EventLog& operator=(const EventLog& other);
    EventLog& operator=(EventLog&& other) noexcept;
    virtual ~EventLog();

    /// Folds the message into the event of its identifier, or appends a new
    /// event, and raises `highestSeverity` if the event's is higher. Returns the
    /// number of contexts that event now holds (0 to 20). If a new event cannot
    /// be built, the exception passes out and the log is as it was.
    int addLog(const notelib::MessageFormatStream& stream);
    /// Deletes every event and resets the severity and the fatal flag.
    void clearLog();

    /// The events, oldest first. An event stays at its address until
    /// `clearLog` or the log's end.
    ///
    ///     for (const dv::env::Event* event : log.entries())
    ///         std::cout << event->summary() << " (" << event->count() << ")\n";
    const std::deque<Event*>& entries() const;
    /// The number of distinct identifiers since the last `clearLog`.
    int entryCount() const;
    /// The highest severity of the messages taken in since the last `clearLog`.
    Event::Severity highestSeverity() const;

    /// Marks the log fatal; only `clearLog` takes that back. The owner decides
    /// what is fatal: an `Error` does not set it.
    void setFatal();
    bool isFatal() const;

private:
    std::deque<Event*> entries_;
    std::unordered_map<unsigned int, Event*> eventIndex_;
    Event* lastEvent_;  // the event of the last message: repeats come in runs
    Event::Severity highestSeverity_;
    bool fatal_;
};

}  // namespace dv::env
