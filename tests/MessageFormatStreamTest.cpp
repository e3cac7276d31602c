#include <dv/notelib/MessageFormatStream.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace dv::notelib {
namespace {

TEST(MessageFormatStream, FillsPlaceholdersInTheOrderOfTheArguments) {
    MessageFormatStream message(0xC0000001u, "Layer %2% of %1%\ncell %1%, %3%%%\n");
    message << "TOP" << 12 << 2.5;
    EXPECT_EQ(message.toString(), "Layer 12 of TOP\ncell TOP, 2.5%\n");
    EXPECT_EQ(message.toString(), message.toString());
    EXPECT_EQ(message.messageId(), 0xC0000001u);
    EXPECT_EQ((MessageFormatStream(3, "[%1%][%2%]") << "a").toString(), "[a][]");
}

TEST(MessageFormatStream, GivesTextWithoutPlaceholdersBackUnchanged) {
    for (const char* text : {"", "one line", "Sum\r\nctx\r\n\ndetails\n\n"})
        EXPECT_EQ((MessageFormatStream(1, text) << "ignored").toString(), text);
}

TEST(MessageFormatStream, RejectsAFormatItCannotParseNamingIt) {
    try {
        MessageFormatStream(42, "done 100%");
        FAIL() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_NE(std::string(error.what()).find("'done 100%'"), std::string::npos) << error.what();
    }
}

}  // namespace
}  // namespace dv::notelib
