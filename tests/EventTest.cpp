#include <dv/env/Event.h>
#include <dv/notelib/MessageFormatStream.h>

#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <iomanip>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace dv::env {
namespace {

using notelib::MessageFormatStream;
using Contexts = std::deque<std::string>;

// The texts here hold no '%', so each comes back from toString as written.
MessageFormatStream note(unsigned int id, const std::string& text) { return MessageFormatStream(id, text); }

std::string logLine(unsigned int id, const std::string& summary, const std::string& context) {
    char hex[9];
    std::snprintf(hex, sizeof hex, "%08x", id);
    return "Event           :56     Event: " + std::string(hex) + ": " + summary + " / " + context + "\n";
}

TEST(Event, SplitsFirstMessageIntoSummaryContextAndDetails) {
    struct Shape {
        const char* text;
        const char* summary;
        Contexts contexts;
        const char* details;
    };
    const std::vector<Shape> shapes = {
        {"Sum\nctx\nd1\nd2\n", "Sum", {"ctx"}, "d1\nd2\n"},
        {"Only line\n", "Only line", {}, ""},
        {"Only line", "Only line", {}, ""},
        {"Sum\nctx", "Sum", {"ctx"}, ""},
        {"Sum\n\nd1\n", "Sum", {""}, "d1\n"},
        {"", "", {}, ""},
        {"Sum\r\nctx\r\nd1\r\n\nd2", "Sum\r", {"ctx\r"}, "d1\r\n\nd2"},
    };
    test::ClogCapture clog;
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(shape.text);
        const Event event(note(0x4000000au, shape.text));
        EXPECT_EQ(event.id(), 0x4000000au);
        EXPECT_STREQ(event.summary(), shape.summary);
        EXPECT_EQ(event.contexts(), shape.contexts);
        EXPECT_EQ(event.count(), static_cast<int>(shape.contexts.size()));
        EXPECT_STREQ(event.message(), shape.details);
    }
    EXPECT_EQ(clog.text(), "");
}

TEST(Event, AddTakesOnlyNewNonEmptySecondLinesOfItsOwnIdentifier) {
    Event event(note(126, "Sum\nfirst\nDetails\n"));
    test::ClogCapture clog;

    event.add(note(127, "Sum\nsecond\nDetails\n"));
    event.add(note(126 | 0x80000000u, "Sum\nsecond\n"));
    event.add(note(126, "Sum\n\nmore\n"));  // no empty context yet, still not taken
    event.add(note(126, "Sum\nfirst\n"));
    event.add(note(126, "Sum"));
    event.add(note(126, "Sum\nFIRST"));
    EXPECT_EQ(event.contexts(), (Contexts{"first", "FIRST"}));
    EXPECT_EQ(clog.text(), logLine(126, "Sum", "FIRST"));

    clog.reset();
    event.add(note(126, "Other summary\nsecond\nOther details\n"));
    EXPECT_EQ(event.contexts(), (Contexts{"first", "FIRST", "second"}));
    EXPECT_STREQ(event.summary(), "Sum");
    EXPECT_STREQ(event.message(), "Details\n");
    // The stream is left as the stamp leaves it: decimal, blank fill, left.
    std::clog << 255 << '|' << std::setw(4) << 7 << '|' << std::endl;
    EXPECT_EQ(clog.text(), "Event           :56     Event: 0000007e: Sum / second\n255|7   |\n");
}

TEST(Event, HoldsAtMostTwentyContextsAndLogsAllButTheFirst) {
    Event event(note(5, "Sum\nc1\n"));
    test::ClogCapture clog;
    std::string expected;
    for (int i = 2; i <= 20; ++i) {
        const std::string context = "c" + std::to_string(i);
        event.add(note(5, "Sum\n" + context + "\n"));
        expected += logLine(5, "Sum", context);
    }
    EXPECT_EQ(event.count(), 20);
    EXPECT_EQ(clog.text(), expected);

    event.add(note(5, "Sum\nc21\n"));
    EXPECT_EQ(event.count(), 20);
    EXPECT_EQ(event.contexts().back(), "c20");
    EXPECT_EQ(clog.text(), expected);
}

TEST(Event, SeverityComesFromTheTopTwoBitsOnly) {
    for (unsigned int low : {0u, 0x3FFFFFFFu, 0x12345678u}) {
        EXPECT_EQ(Event(note(low, "")).severity(), Event::Severity::Success);
        EXPECT_EQ(Event(note(low | 0x40000000u, "")).severity(), Event::Severity::Informational);
        EXPECT_EQ(Event(note(low | 0x80000000u, "")).severity(), Event::Severity::Warning);
        EXPECT_EQ(Event(note(low | 0xC0000000u, "")).severity(), Event::Severity::Error);
    }
}

TEST(Event, CopiesAreIndependentAndMovesEmptyTheSource) {
    test::ClogCapture clog;
    Event original(note(9, "Sum\nfirst\nDetails\n"));
    Event copy(original);
    copy.add(note(9, "Sum\nsecond\n"));
    EXPECT_EQ(original.contexts(), Contexts{"first"});
    Event target(note(2, "T\nt\n"));
    target = copy;
    target = *&target;
    EXPECT_EQ(target.contexts(), (Contexts{"first", "second"}));

    target = std::move(copy);
    target = std::move(target);
    EXPECT_EQ(target.id(), 9u);
    EXPECT_STREQ(target.message(), "Details\n");
    EXPECT_EQ(copy.id(), 9u);
    EXPECT_STREQ(copy.summary(), "");
    EXPECT_STREQ(copy.message(), "");
    copy.add(note(9, "Sum\nfirst\n"));  // its seen contexts went too
    EXPECT_EQ(copy.count(), 1);
    const Event moved(std::move(target));
    EXPECT_EQ(moved.count(), 2);
    EXPECT_EQ(target.count(), 0);
}

TEST(EventLog, AddLogAnswersTheContextCountOfItsEvent) {
    test::ClogCapture clog;
    EventLog log;
    EXPECT_EQ(log.addLog(note(1, "One line\n")), 0);
    EXPECT_EQ(log.addLog(note(2, "Sum\nc1\n")), 1);
    EXPECT_EQ(log.addLog(note(2, "Sum\nc2\n")), 2);
    EXPECT_EQ(log.addLog(note(2, "Sum\nc1\n")), 2);
    EXPECT_EQ(log.addLog(note(1, "One line\n")), 0);
    EXPECT_EQ(log.entryCount(), 2);
    for (int i = 3; i <= 20; ++i)
        log.addLog(note(2, "Sum\nc" + std::to_string(i) + "\n"));
    EXPECT_EQ(log.addLog(note(2, "Sum\nc21\n")), 20);
    EXPECT_EQ(log.addLog(note(2, "Sum\nc22\n")), 20);
}

TEST(EventLog, KeepsOneEntryPerIdentifierInOrderOfFirstAppearance) {
    test::ClogCapture clog;
    EventLog log;
    const unsigned int a = 0x10, b = 0x20, c = 0x30;
    log.addLog(note(a, "A\na1\n"));
    const Event* first = log.entries().front();
    log.addLog(note(b, "B\n"));
    log.addLog(note(a, "A\na2\n"));
    log.addLog(note(c, "C\n"));
    log.addLog(note(a | 0x80000000u, "A warning\n"));
    ASSERT_EQ(log.entryCount(), 4);
    EXPECT_EQ(log.entries()[0], first);
    EXPECT_EQ(log.entries()[1]->id(), b);
    EXPECT_EQ(log.entries()[2]->id(), c);
    EXPECT_EQ(log.entries()[3]->id(), a | 0x80000000u);
    EXPECT_EQ(first->count(), 2);
}

TEST(EventLog, HighestSeverityOnlyRisesAndIsIndependentOfFatal) {
    EventLog log;
    log.addLog(note(0x1, "ok\n"));
    EXPECT_EQ(log.highestSeverity(), EventLog().highestSeverity());
    log.addLog(note(0x80000001u, "warning\n"));
    log.addLog(note(0xC0000001u, "error\n"));
    log.addLog(note(0x00000003u, "success\n"));
    EXPECT_EQ(log.highestSeverity(), Event::Severity::Error);
    EXPECT_FALSE(log.isFatal());

    EventLog fatal;
    fatal.setFatal();
    EXPECT_TRUE(fatal.isFatal());
    EXPECT_EQ(fatal.highestSeverity(), Event::Severity::Success);
}

TEST(EventLog, ClearLogStartsAfreshAndResetsTheFatalFlag) {
    test::ClogCapture clog;
    EventLog log;
    log.addLog(note(0xC0000007u, "Old\nold context\n"));
    log.addLog(note(0xC0000007u, "Old\nsecond\n"));
    log.setFatal();
    log.clearLog();
    log.clearLog();
    EXPECT_TRUE(log.entries().empty());
    EXPECT_EQ(log.highestSeverity(), Event::Severity::Success);
    EXPECT_FALSE(log.isFatal());

    EXPECT_EQ(log.addLog(note(0xC0000007u, "New\nnew context\n")), 1);
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
