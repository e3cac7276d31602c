#include <dv/env/OptionReflection.h>
#include <dv/env/OptionRegistration.h>
#include <dv/env/Options.h>

#include "OptionStore.h"
#include "support/Locales.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <clocale>
#include <locale>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace dv::env::internal {
namespace {

// What the indexes replace: a scan from row 0, comparing as the store does.
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameIgnoringCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (lower(a[i]) != lower(b[i]))
            return false;
    return true;
}

std::optional<std::size_t> scanName(const OptionTable<std::int32_t>& table, const std::string& name) {
    for (std::size_t i = 0; i < table.size(); ++i)
        if (sameIgnoringCase(table[i].name, name))
            return i;
    return std::nullopt;
}

std::optional<std::size_t> scanShortName(const OptionTable<std::int32_t>& table, const std::string& name, bool fold) {
    for (std::size_t i = 0; i < table.size(); ++i) {
        const std::string& shortName = table[i].shortName;
        if (!shortName.empty() && (fold ? sameIgnoringCase(shortName, name) : shortName == name))
            return i;
    }
    return std::nullopt;
}

// Names from a small alphabet in random case, so that rows repeat names and
// short names in other cases, and long names cross the eight-byte words.
TEST(OptionIndex, AnswersAsTheScanOnRandomRows) {
    std::mt19937 random(20261124);
    const auto anyName = [&](std::size_t longest) {
        std::string name(1 + random() % longest, ' ');
        for (char& c : name) {
            c = "abAB_9"[random() % 6];
        }
        return name;
    };
    OptionTable<std::int32_t> table;
    for (int row = 0; row < 3000; ++row) {
        table.append(IntOption(true, anyName(20), random() % 4 == 0 ? anyName(2) : "", row));
        for (int query = 0; query < 5; ++query) {
            const std::string name = anyName(20);
            ASSERT_EQ(table.findName(name), scanName(table, name)) << name;
            ASSERT_EQ(table.findName(FoldedName(name)), scanName(table, name)) << name;
            const std::string shortName = anyName(2);
            ASSERT_EQ(table.findShortName(FoldedName(shortName), false), scanShortName(table, shortName, false));
            ASSERT_EQ(table.findShortName(FoldedName(shortName), true), scanShortName(table, shortName, true));
        }
    }
    // Every row's own name finds the first row of that name.
    for (std::size_t i = 0; i < table.size(); ++i)
        ASSERT_EQ(table.findName(table[i].name), scanName(table, table[i].name));
}

TEST(OptionNames, FoldOnlyAsciiLetters) {
    EXPECT_TRUE(sameOptionName("DvImportFile", "dvIMPORTfile"));
    EXPECT_TRUE(sameOptionName("", ""));
    EXPECT_FALSE(sameOptionName("Dv@", "Dv`"));  // neighbours of 'A' and 'a'
    EXPECT_FALSE(sameOptionName("Z[", "z{"));    // and of 'Z' and 'z'
    EXPECT_FALSE(sameOptionName("\xc9t\xe9", "\xe9t\xe9"));
    EXPECT_FALSE(sameOptionName("ToolArcPrecValue", "ToolArcPrecValu"));
    EXPECT_EQ(optionNameHash("ToolArcPrecValue", true), optionNameHash("TOOLARCPRECVALUE", true));
}

class Store : public test::WithApp, public ::testing::Test {
protected:
    test::ClogCapture clog;
};

// The textual look-up across the four tables against a scan, with rows
// registered before and after the build, in several tables, with short names.
TEST_F(Store, TextualLookUpAnswersAsTheScanAcrossTables) {
    std::mt19937 random(7);
    const auto anyName = [&] {
        std::string name = "Opt";
        for (int i = 0; i < 2; ++i)
            name += "aAbB"[random() % 4];
        return name;
    };
    OptionStore& store = optionStore();
    const auto registerRandom = [&] {
        const std::string name = anyName();
        // Now and then a short name that is another row's name, so that a name
        // and a short name compete for the lowest row.
        const std::string shortName = random() % 5 != 0 ? ""
                                      : random() % 2 ? std::string(1, "xyXY"[random() % 4])
                                                     : anyName();
        switch (random() % 4) {
        case 0: registerOptionInt(name, 1, shortName, true); break;
        case 1: registerOptionReal(name, 1.0, shortName, true); break;
        case 2: registerOptionString(name, "", shortName, true); break;
        case 3: registerOptionBoolean(name, true, shortName, true); break;
        }
    };
    for (int i = 0; i < 40; ++i)
        registerRandom();
    store.build();
    for (int i = 0; i < 40; ++i)
        registerRandom();

    // Table (in textual order) and row, by a scan of each table from row 0.
    using Found = std::optional<std::pair<std::size_t, std::size_t>>;
    const auto scan = [&](const std::string& name, bool stringShortNamesFold) -> Found {
        const auto inTable = [&](const auto& table, bool fold) -> std::optional<std::size_t> {
            for (std::size_t index = 0; index < table.size(); ++index) {
                const auto& row = table[index];
                if (sameIgnoringCase(row.name, name) ||
                    (!row.shortName.empty() && (fold ? sameIgnoringCase(row.shortName, name) : row.shortName == name)))
                    return index;
            }
            return std::nullopt;
        };
        const std::optional<std::size_t> rows[] = {inTable(store.strings, stringShortNamesFold),
                                                   inTable(store.booleans, false), inTable(store.ints, false),
                                                   inTable(store.reals, false)};
        for (std::size_t table = 0; table < 4; ++table)
            if (rows[table])
                return std::make_pair(table, *rows[table]);
        return std::nullopt;
    };
    for (int i = 0; i < 400; ++i) {
        const std::string name = random() % 3 == 0 ? std::string(1, "xyXYoO"[random() % 6]) : anyName();
        for (const bool fold : {false, true}) {
            const auto found = store.findTextual(store.resolve(name, false), fold);
            const Found indexed = found ? Found(std::make_pair(std::size_t{found->table}, found->index)) : std::nullopt;
            ASSERT_EQ(indexed, scan(name, fold)) << name << " fold " << fold;
        }
    }
}

// A host with a Turkish locale, where the upper case of "i" is not "I": names
// are still found in any case. The locale is made for the test by localedef.
TEST_F(Store, NamesIgnoreTheProcessLocale) {
    const test::TempDir dir;
    ASSERT_TRUE(test::makeLocale(dir, "tr_TR")) << "localedef could not make tr_TR.UTF-8";
    const std::locale turkish("tr_TR.UTF-8");
    ASSERT_NE(std::use_facet<std::ctype<wchar_t>>(turkish).toupper(L'i'), L'I') << "not a Turkish locale";
    const std::locale previous = std::locale::global(turkish);
    std::setlocale(LC_ALL, "tr_TR.UTF-8");

    EXPECT_TRUE(setOption("dvimportfile", "in.gds"));
    std::string value;
    EXPECT_TRUE(getOption("DVIMPORTFILE", value, false));
    EXPECT_EQ(value, "in.gds");
    EXPECT_EQ(getOptionString("dvimportFILE", false), "in.gds");
    EXPECT_TRUE(setOption("I", "other.gds")) << "the string table's short names ignore case";
    EXPECT_EQ(findOption("dvimportfile")->name, "DvImportFile");
    EXPECT_EQ(assignOption("toolconverttext", "YES").status, AssignStatus::Assigned);

    std::setlocale(LC_ALL, "C");
    std::locale::global(previous);
}

}  // namespace
}  // namespace dv::env::internal
