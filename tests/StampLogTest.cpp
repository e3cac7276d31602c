#include <dv/env/StampLog.h>

#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

namespace dv::env {
namespace {

std::string stamp(const char* file, int line) {
    std::ostringstream out;
    out << StampLog(file, line);
    return out.str();
}

TEST(StampLog, PadsBaseNameAndLine) {
    EXPECT_EQ(stamp("C:\\work\\src/Options.cpp", 1036), "Options         :1036   ");
    EXPECT_EQ(stamp("/x/y/Event.cpp", 56), "Event           :56     ");
    EXPECT_EQ(stamp("plain", 7), "plain           :7      ");
}

TEST(StampLog, CutsBaseNameAtLastSeparatorAndLastDot) {
    EXPECT_EQ(stamp("a.b.c", 1), "a.b             :1      ");
    EXPECT_EQ(stamp("dir.d/name", 1), "name            :1      ");
    EXPECT_EQ(stamp("dir\\sub/mixed\\file.cpp", 1), "file            :1      ");
    EXPECT_EQ(stamp(".hidden", 1), std::string(16, ' ') + ":1      ");
    EXPECT_EQ(stamp("dir/", 1), std::string(16, ' ') + ":1      ");
    EXPECT_EQ(stamp("", 1), std::string(16, ' ') + ":1      ");
}

TEST(StampLog, WritesLongFieldsWhole) {
    EXPECT_EQ(stamp("src/TwentyCharacterName.cpp", 12345), "TwentyCharacterName:12345   ");
    EXPECT_EQ(stamp("f", -3), "f               :-3     ");
}

TEST(StampLog, ResetsStreamSettingsItNeeds) {
    std::ostringstream out;
    out << std::right << std::setfill('0') << std::hex;
    out << StampLog("Event.cpp", 56) << 255;
    EXPECT_EQ(out.str(), "Event           :56     255");
}

TEST(StampLog, WriteLogWritesOneFlushedLine) {
    test::ClogCapture clog;
    writeLog("/src/Host.cpp", 12, "started");
    EXPECT_EQ(clog.text(), "Host            :12     started\n");
}

}  // namespace
}  // namespace dv::env
