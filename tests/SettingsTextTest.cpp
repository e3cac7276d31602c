#include "SettingsText.h"
#include "support/Command.h"
#include "support/TempDir.h"

#include <fx.h>
#include <gtest/gtest.h>

#include <random>

namespace dv::env::internal {
namespace {

using platform::SettingsEntries;

SettingsEntries foxRead(const std::string& path) {
    FXSettings settings;
    settings.parseFile(path.c_str(), true);
    SettingsEntries entries;
    for (FXint s = settings.first(); s < settings.size(); s = settings.next(s))
        for (FXint e = settings.data(s)->first(); e < settings.data(s)->size(); e = settings.data(s)->next(e))
            entries[settings.key(s)][settings.data(s)->key(e)] = settings.data(s)->data(e);
    return entries;
}

// Values of every byte but NUL, which a C string cannot hold; keys as FOX
// takes them.
SettingsEntries randomEntries(std::mt19937& random, std::size_t longest) {
    SettingsEntries entries;
    for (int s = 0; s < 3; ++s)
        for (int e = 0; e < 40; ++e) {
            std::string value(random() % (longest + 1), ' ');
            for (char& c : value)
                c = static_cast<char>(1 + random() % 255);
            entries["Section " + std::to_string(s)]["Key." + std::to_string(e)] = value;
        }
    return entries;
}

// FOX's own reader and writer are the reference: what one writes the other
// reads alike, over values of every byte.
TEST(SettingsText, FoxReadsWhatIsWrittenAndWhatFoxWritesReadsAlike) {
    test::TempDir folder;
    std::mt19937 random(7);
    for (int round = 0; round < 50; ++round) {
        const SettingsEntries entries = randomEntries(random, 300);
        const std::string ours = folder.write("ours", formatSettingsText(entries));
        EXPECT_EQ(foxRead(ours), entries);

        FXSettings fox;
        for (const auto& [section, values] : entries)
            for (const auto& [key, value] : values)
                fox.writeStringEntry(section.c_str(), key.c_str(), value.c_str());
        ASSERT_TRUE(fox.unparseFile(folder.path("fox").c_str()));
        // FOX's writer leaves DEL bare and its reader stops there: compare
        // with what FOX reads, not with what it was given.
        const platform::StoredSettings parsed = parseSettingsText(test::fileText(folder.path("fox")));
        EXPECT_EQ(parsed.entries, foxRead(folder.path("fox")));
        EXPECT_FALSE(parsed.beyondFoxReader);
    }
}

TEST(SettingsText, LinesPastFoxsBufferAreReadWholeAndMarked) {
    std::mt19937 random(11);
    const SettingsEntries entries = randomEntries(random, 5000);
    const platform::StoredSettings parsed = parseSettingsText(formatSettingsText(entries));
    EXPECT_EQ(parsed.entries, entries);
    EXPECT_TRUE(parsed.beyondFoxReader);

    // The longest line FOX reads whole, line feed included, and one more.
    const std::string fits = "[S]\nK=" + std::string(foxLineLimit - 3, 'v') + "\n";
    EXPECT_FALSE(parseSettingsText(fits).beyondFoxReader);
    EXPECT_TRUE(parseSettingsText("[S]\nK=" + std::string(foxLineLimit - 2, 'v') + "\n").beyondFoxReader);
    EXPECT_EQ(parseSettingsText(fits).entries.at("S").at("K").size(), foxLineLimit - 3);
}

TEST(SettingsText, CommentsBadLinesAndBlanksAsFoxTakesThem) {
    const std::string text = "# comment\nOrphan=1\n[S]\n  ; also a comment\n Key  =  spaced value  \nNoEquals\n"
                             "Quoted=\"a\\x41\\101\\q\" ignored\n[Bad\n[T]\r\nK=v\r\n";
    test::TempDir folder;
    EXPECT_EQ(parseSettingsText(text).entries, foxRead(folder.write("file", text)));
    // FOX keeps an empty name, which none of its calls can look up (they
    // abort on one): dropped here.
    EXPECT_EQ(parseSettingsText("[S]\n=empty name\n[]\nLost=1\n").entries, (SettingsEntries{{"S", {}}}));
    EXPECT_EQ(parseSettingsText(text).entries.at("S").at("Quoted"), "aAAq");
}

TEST(SettingsText, NamesTheFileCannotHoldAreNamedWhy) {
    EXPECT_EQ(unstorableNameReason(std::string(199, 'n')), "");
    EXPECT_EQ(unstorableNameReason(std::string(200, 'n')), "200 bytes, at most 199");
    EXPECT_EQ(unstorableNameReason("a=b"), "an \"=\"");
    EXPECT_EQ(unstorableNameReason("a\nb"), "a control character");
    EXPECT_EQ(unstorableNameReason(" a"), "a blank at its start or end");
    EXPECT_EQ(unstorableNameReason("#a"), "\"#\" at its start");
}

}  // namespace
}  // namespace dv::env::internal
