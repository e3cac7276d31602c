#include <dv/env/Event.h>
#include <dv/notelib/MessageFormatStream.h>

#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

namespace dv::env {
namespace {

using notelib::MessageFormatStream;
using Contexts = std::deque<std::string>;

// The texts here hold no '%', so each comes back from toString as written.
MessageFormatStream note(unsigned int id, const std::string& text) { return MessageFormatStream(id, text); }

std::string logLine(const char* id, const std::string& summary, const std::string& context) {
    return "Event           :56     Event: " + std::string(id) + ": " + summary + " / " + context + "\n";
}

TEST(Event, SplitsFirstMessageIntoSummaryContextAndDetails) {
    const std::tuple<const char*, const char*, Contexts, const char*> shapes[] = {
        {"Sum\nctx\nd1\nd2\n", "Sum", {"ctx"}, "d1\nd2\n"},
        {"Only line", "Only line", {}, ""},
        {"Sum\n\nd1\n", "Sum", {""}, "d1\n"},
        {"", "", {}, ""},
        {"Sum\r\nctx\r\nd1\r\n\nd2", "Sum\r", {"ctx\r"}, "d1\r\n\nd2"},
    };
    test::ClogCapture clog;
    for (const auto& [text, summary, contexts, details] : shapes) {
        const Event event(note(0x4000000au, text));
        EXPECT_STREQ(event.summary(), summary) << text;
        EXPECT_EQ(event.contexts(), contexts) << text;
        EXPECT_STREQ(event.message(), details) << text;
    }
    EXPECT_EQ(clog.text(), "");
}

TEST(Event, AddTakesOnlyNewNonEmptySecondLinesOfItsOwnIdentifier) {
    Event event(note(126, "Sum\nfirst\nDetails\n"));
    test::ClogCapture clog;
    event.add(note(126 | 0x80000000u, "Sum\nsecond\n"));
    event.add(note(126, "Sum\n\nmore\n"));  // no empty context yet, still not taken
    event.add(note(126, "Sum\nfirst\n"));
    event.add(note(126, "Sum"));
    event.add(note(126, "Sum\nFIRST"));
    EXPECT_EQ(event.contexts(), (Contexts{"first", "FIRST"}));
    EXPECT_EQ(clog.text(), logLine("0000007e", "Sum", "FIRST"));

    clog.reset();
    event.add(note(126, "Other summary\nsecond\nOther details\n"));
    EXPECT_EQ(event.contexts(), (Contexts{"first", "FIRST", "second"}));
    EXPECT_STREQ(event.summary(), "Sum");
    EXPECT_STREQ(event.message(), "Details\n");
    // The stream is left as the stamp leaves it: decimal, blank fill, left.
    std::clog << 255 << '|' << std::setw(4) << 7 << '|' << std::endl;
    EXPECT_EQ(clog.text(), logLine("0000007e", "Sum", "second") + "255|7   |\n");
}

TEST(Event, IdentifierIsEightLowerCaseDigitsWhateverTheCallerLeftOnTheStream) {
    Event event(note(0xabcdefu, "Sum\nfirst\n"));
    test::ClogCapture clog;
    const std::ios::fmtflags saved = std::clog.flags();
    std::clog << std::uppercase << std::showbase;
    event.add(note(0xabcdefu, "Sum\nsecond\n"));
    const std::ios::fmtflags after = std::clog.flags();
    std::clog.flags(saved);
    EXPECT_EQ(clog.text(), logLine("00abcdef", "Sum", "second"));
    EXPECT_TRUE(after & std::ios::uppercase);
    EXPECT_TRUE(after & std::ios::showbase);
}

TEST(Event, SeverityComesFromTheTopTwoBitsOnly) {
    EXPECT_EQ(Event(note(0x3FFFFFFFu, "")).severity(), Event::Severity::Success);
    EXPECT_EQ(Event(note(0x40000000u, "")).severity(), Event::Severity::Informational);
    EXPECT_EQ(Event(note(0xBFFFFFFFu, "")).severity(), Event::Severity::Warning);
    EXPECT_EQ(Event(note(0xC0000000u, "")).severity(), Event::Severity::Error);
}

TEST(Event, MovesEmptyTheSource) {
    test::ClogCapture clog;
    Event source(note(9, "Sum\nfirst\nDetails\n"));
    source.add(note(9, "Sum\nsecond\n"));
    Event target(note(2, "T\nt\n"));
    target = std::move(source);
    target = std::move(target);
    EXPECT_EQ(target.id(), 9u);
    EXPECT_STREQ(target.message(), "Details\n");
    EXPECT_EQ(source.id(), 9u);
    EXPECT_STREQ(source.summary(), "");
    EXPECT_STREQ(source.message(), "");
    source.add(note(9, "Sum\nfirst\n"));  // its seen contexts went too
    EXPECT_EQ(source.count(), 1);
    const Event moved(std::move(target));
    EXPECT_EQ(moved.count(), 2);
    EXPECT_EQ(target.count(), 0);
}

TEST(EventLog, KeepsOneEntryPerIdentifierAndAnswersItsContextCountUpToTwenty) {
    test::ClogCapture clog;
    EventLog log;
    EXPECT_EQ(log.addLog(note(5, "Sum\nc1\n")), 1);
    const Event* first = log.entries().front();
    EXPECT_EQ(log.addLog(note(1, "One line\n")), 0);
    std::string expected;  // every context but the first is logged
    for (int i = 2; i <= 20; ++i) {
        const std::string context = "c" + std::to_string(i);
        EXPECT_EQ(log.addLog(note(5, "Sum\n" + context + "\n")), i);
        expected += logLine("00000005", "Sum", context);
    }
    EXPECT_EQ(log.addLog(note(5, "Sum\nc21\n")), 20);
    EXPECT_EQ(first->contexts().back(), "c20");
    EXPECT_EQ(clog.text(), expected);

    EXPECT_EQ(log.addLog(note(1, "One line\n")), 0);
    log.addLog(note(0x80000005u, "Warning\n"));
    ASSERT_EQ(log.entryCount(), 3);
    EXPECT_EQ(log.entries()[0], first);
    EXPECT_EQ(log.entries()[1]->id(), 1u);
    EXPECT_EQ(log.entries()[2]->id(), 0x80000005u);
}

TEST(EventLog, HighestSeverityOnlyRisesFatalStandsApartAndClearLogResetsBoth) {
    test::ClogCapture clog;
    EventLog log;
    for (unsigned int id : {0x1u, 0x80000001u, 0xC0000001u, 0x3u})
        log.addLog(note(id, "S\nfirst\n"));
    EXPECT_EQ(log.highestSeverity(), Event::Severity::Error);
    EXPECT_FALSE(log.isFatal());
    EventLog fatal;
    fatal.setFatal();
    EXPECT_TRUE(fatal.isFatal());
    EXPECT_EQ(fatal.highestSeverity(), Event::Severity::Success);

    log.setFatal();
    log.clearLog();
    log.clearLog();
    EXPECT_TRUE(log.entries().empty());
    EXPECT_EQ(log.highestSeverity(), Event::Severity::Success);
    EXPECT_FALSE(log.isFatal());
    EXPECT_EQ(log.addLog(note(0xC0000001u, "New\nnew context\n")), 1);  // the index went too
    EXPECT_STREQ(log.entries().at(0)->summary(), "New");
}

// Each log owns its own events: under AddressSanitizer a double delete or a
// read of a deleted event fails this test.
TEST(EventLog, CopiesOwnTheirEvents) {
    test::ClogCapture clog;
    auto original = std::make_unique<EventLog>();
    original->addLog(note(0x80000001u, "A\na1\n"));
    original->addLog(note(2, "B\n"));
    original->setFatal();
    EventLog copy(*original);
    EventLog assigned;
    assigned.addLog(note(3, "Dropped\n"));
    assigned = *original;
    original.reset();

    for (const EventLog* log : {&copy, &assigned}) {
        ASSERT_EQ(log->entryCount(), 2);
        EXPECT_EQ(log->entries().front()->contexts(), Contexts{"a1"});
        EXPECT_EQ(log->highestSeverity(), Event::Severity::Warning);
        EXPECT_TRUE(log->isFatal());
    }
    EXPECT_EQ(copy.addLog(note(0x80000001u, "A\na2\n")), 2);  // through the copy's own index
    assigned = std::move(copy);
    EXPECT_EQ(assigned.entries().front()->count(), 2);
    EXPECT_EQ(copy.addLog(note(2, "B\n")), 0);  // a moved-from log is empty and usable
}

}  // namespace
}  // namespace dv::env
