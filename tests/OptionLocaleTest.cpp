// A host that sets its user's locale after the application object exists (in
// the C library and as the C++ global one): numbers in option text still read
// and write with a point, and the log's stream keeps the locale it was given.

#include <dv/env/ConfigRecorder.h>
#include <dv/env/ConfigSerializer.h>
#include <dv/env/OptionReflection.h>
#include <dv/env/Options.h>

#include "OptionStore.h"
#include "OptionsRecorder.h"
#include "support/Locales.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <clocale>
#include <fstream>
#include <locale>
#include <string>

namespace dv::env {
namespace {

class OptionsUnderLocale : public test::WithApp, public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        ASSERT_TRUE(test::makeLocale(dir, GetParam())) << "localedef could not make " << GetParam();
        const std::string name = std::string(GetParam()) + ".UTF-8";
        ASSERT_NE(std::setlocale(LC_ALL, name.c_str()), nullptr);
        previous = std::locale::global(std::locale(name));
        // The host's own check that its locale writes a comma.
        char text[16];
        std::snprintf(text, sizeof text, "%.1f", 1.5);
        ASSERT_STREQ(text, "1,5");
        internal::optionStore().build();
    }
    void TearDown() override {
        std::setlocale(LC_ALL, "C");
        std::locale::global(previous);
    }
    double real(const char* name) { return getOptionReal(name, false); }

    test::TempDir dir;
    std::locale previous;
};

TEST_P(OptionsUnderLocale, TextReadsAndWritesAPoint) {
    EXPECT_TRUE(setOption("DxfInScaling", "1.5"));
    EXPECT_EQ(real("DxfInScaling"), 1.5);
    EXPECT_EQ(assignOption("ToolCropX0", " 2.5mm").status, AssignStatus::Assigned);
    EXPECT_EQ(real("ToolCropX0"), 2.5);
    EXPECT_TRUE(setOption("ToolCropX1", "0x1.8p1"));
    EXPECT_EQ(real("ToolCropX1"), 3.0);
    // The registry file holds a point too, for a run under another locale.
    EXPECT_EQ(registry().readStringEntry("Real", "DxfInScaling", ""), std::string("1.5"));

    setOptionReal("DxfInScaling", 2.25);
    std::string text;
    EXPECT_TRUE(getOption("DxfInScaling", text, false));
    EXPECT_EQ(text, "2.250000");
}

// The host chose a German or French stream for its log: it keeps it, and the
// log's numbers stay those of every other desktop.
TEST_P(OptionsUnderLocale, LogShowsAPointInTheHostsStream) {
    const std::locale host(std::string(GetParam()) + ".UTF-8");
    const std::locale before = std::clog.imbue(host);
    test::ClogCapture clog;
    setOptionReal("DxfInScaling", 2.25);
    setOptionInt("ToolArcPrecValue", 12345);
    real("DxfInScaling");
    getOptionInt("ToolArcPrecValue", false);
    EXPECT_NE(clog.text().find("DxfInScaling = 2.25\n"), std::string::npos) << clog.text();
    EXPECT_NE(clog.text().find("ToolArcPrecValue = 12345\n"), std::string::npos) << clog.text();
    EXPECT_EQ(std::clog.getloc(), host);
    std::clog.imbue(before);
}

TEST_P(OptionsUnderLocale, CommandFilesAndConfigurationTextReadAsInTheCLocale) {
    const std::string commands = dir.write("run.cmd", "[Dravik]\nDxfInScaling=1e-3\nToolCropX0 = -0.5\n");
    parseCommandFile(commands);
    EXPECT_EQ(real("DxfInScaling"), 1e-3);
    EXPECT_EQ(real("ToolCropX0"), -0.5);

    // The configuration text of this run reads back to the same values.
    setOptionReal("ToolCropY0", 0.1 + 0.2);
    internal::optionsRecorderInstance()->clear();
    for (const char* name : {"DxfInScaling", "ToolCropX0", "ToolCropY0"})
        getOptionReal(name, true);
    const std::string configuration = dir.path("run.cfg");
    {
        std::ofstream file(configuration);
        ConfigSerializer(optionsRecorder()->getConfiguration()->params()).write(file);
    }
    const double values[] = {real("DxfInScaling"), real("ToolCropX0"), real("ToolCropY0")};
    resetAllOptions();
    parseCommandFile(configuration);
    EXPECT_EQ(real("DxfInScaling"), values[0]);
    EXPECT_EQ(real("ToolCropX0"), values[1]);
    EXPECT_EQ(real("ToolCropY0"), values[2]);
}

INSTANTIATE_TEST_SUITE_P(HostLocales, OptionsUnderLocale, ::testing::Values("de_DE", "fr_FR"));

}  // namespace
}  // namespace dv::env
