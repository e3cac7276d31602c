#include "OptionEntry.h"
#include "support/StoredEntries.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <cmath>

namespace dv::env::internal {
namespace {

class OptionEntry : public test::WithApp, public ::testing::Test {
protected:
    const IntOption integer{true, "SomeInteger", "", 32};
    const RealOption real{true, "SomeReal", "", 1.5};
    const StringOption text{true, "SomeText", "", "default"};
    const BoolOption flag{true, "SomeFlag", "", true};
};

TEST_F(OptionEntry, EachTypeHasItsSectionAndReadsAsFoxDoes) {
    EXPECT_EQ(readEntry(integer), 32);
    EXPECT_EQ(readEntry(real), 1.5);
    EXPECT_EQ(readEntry(text), "default");
    EXPECT_TRUE(readEntry(flag));
    EXPECT_EQ(test::storedEntries(registry()), "");

    writeEntry(integer, -7);
    writeEntry(real, 0.1 + 0.2);
    writeEntry(text, std::string_view("with\0nul", 8));
    writeEntry(flag, false);
    EXPECT_EQ(test::storedEntries(registry()),
              "Boolean/SomeFlag=0\nInteger/SomeInteger=-7\nReal/SomeReal=0.3\nString/SomeText=with\n");
    EXPECT_EQ(readEntry(real), 0.3);  // FOX's 16 digits

    // Entries written by others: "0x" integers, any non-zero boolean, and a
    // real that does not read as a number gives the default.
    registry().writeStringEntry("Integer", "SomeInteger", "0x10");
    registry().writeStringEntry("Boolean", "SomeFlag", "2");
    registry().writeStringEntry("Real", "SomeReal", "abc");
    EXPECT_EQ(readEntry(integer), 16);
    EXPECT_TRUE(readEntry(flag));
    EXPECT_EQ(readEntry(real), 1.5);
    registry().writeStringEntry("Real", "SomeReal", " 2.5e1xyz");
    EXPECT_EQ(readEntry(real), 25.0);
}

// FOX marks its registry modified on every write; what is already stored is
// not written again, and a missing entry or another text is.
TEST_F(OptionEntry, WritesOnlyWhatIsNotStoredYet) {
    const auto modifiedBy = [this](auto write) {
        registry().setModified(false);
        write();
        return registry().isModified();
    };
    EXPECT_TRUE(modifiedBy([&] { writeEntry(text, ""); }));  // missing before
    EXPECT_FALSE(modifiedBy([&] { writeEntry(text, ""); }));
    EXPECT_TRUE(modifiedBy([&] { writeEntry(integer, 32); }));
    EXPECT_FALSE(modifiedBy([&] { writeEntry(integer, 32); }));
    EXPECT_TRUE(modifiedBy([&] { writeEntry(real, 2.25); }));
    EXPECT_FALSE(modifiedBy([&] { writeEntry(real, 2.25); }));
    // The registry keeps 16 digits: a difference beyond them stores the same text.
    EXPECT_FALSE(modifiedBy([&] { writeEntry(real, std::nextafter(2.25, 3.0)); }));
    EXPECT_TRUE(modifiedBy([&] { writeEntry(real, 2.5); }));
    EXPECT_TRUE(modifiedBy([&] { writeEntry(flag, true); }));
    EXPECT_FALSE(modifiedBy([&] { writeEntry(flag, true); }));
    // The same value in another text is rewritten in the library's own.
    registry().writeStringEntry("Integer", "SomeInteger", "0x20");
    EXPECT_TRUE(modifiedBy([&] { writeEntry(integer, 32); }));
    EXPECT_EQ(registry().readStringEntry("Integer", "SomeInteger", ""), std::string("32"));

    EXPECT_TRUE(modifiedBy([&] { deleteEntry(integer); }));
    EXPECT_FALSE(modifiedBy([&] { deleteEntry(integer); }));
    EXPECT_EQ(readEntry(integer), 32);
}

TEST_F(OptionEntry, TheProgramTypeLivesOutsideTheRegistry) {
    const IntOption programTypeRow{true, "DvProgramType", "", 5};
    const IntOption otherCase{true, "dvprogramtype", "", 5};
    EXPECT_TRUE(isProgramType("DvProgramType"));
    EXPECT_FALSE(isProgramType(otherCase.name));

    writeEntry(programTypeRow, 9);
    EXPECT_EQ(programType(), 9);
    EXPECT_EQ(readEntry(programTypeRow), 9);
    deleteEntry(programTypeRow);
    EXPECT_EQ(programType(), 5);
    writeEntry(otherCase, 3);  // an ordinary row
    EXPECT_EQ(programType(), 5);
    EXPECT_EQ(test::storedEntries(registry()), "Integer/dvprogramtype=3\n");
    setProgramType(0);
}

}  // namespace
}  // namespace dv::env::internal
