#include <dv/env/ConfigRecorder.h>
#include <dv/env/OptionQueries.h>
#include <dv/env/Options.h>

#include "OptionStore.h"
#include "OptionsRecorder.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <cmath>

#include <limits>
#include <set>
#include <stdexcept>
#include <utility>

namespace dv::env {
namespace {

class OptionQueries : public test::WithApp, public ::testing::Test {
protected:
    void SetUp() override {
        internal::optionStore().build();
        internal::optionsRecorderInstance()->clear();
    }

    static std::set<std::string> recordedNames() {
        std::set<std::string> names;
        const auto configuration = optionsRecorder()->getConfiguration();
        for (const auto& parameter : configuration->params())
            names.insert(parameter.name);
        return names;
    }

    test::ClogCapture clog;
};

TEST(Unit, FactorsGiveTheUnitInPicometresAndOneOutsideTheLengths) {
    // nm, um, mil, point (1/72 inch, rounded), mm, cm, inch, m, foot
    const std::int64_t lengths[] = {1000,        1000000,     25400000,      352777778,   1000000000,
                                    10000000000, 25400000000, 1000000000000, 304800000000};
    for (int value = -5; value <= 15; ++value) {
        const std::int64_t expected = value >= 0 && value <= 8 ? lengths[value] : 1;
        EXPECT_EQ(dbUnitsPerUnit(static_cast<Unit>(value)), expected) << value;
        EXPECT_EQ(dbUnitsPerUnitReal(static_cast<Unit>(value)), static_cast<double>(expected)) << value;
    }
}

TEST_F(OptionQueries, UnitsAreCheckedOnReadOnlyAndAfterTheRead) {
    for (int value : {-2, -1, 9}) {
        setOptionInt("DvDisplayUnits", value);
        EXPECT_EQ(getOptionUnits("DvDisplayUnits", false), static_cast<Unit>(value));
    }
    setOptionUnits("DvDisplayUnits", static_cast<Unit>(10));  // stored without a check
    setOptionInt("GbrOutRectAptLimitUnits", -3);
    setOptionInt("ToolPolyWidthUnits", 11);
    try {
        getOptionUnits("DvDisplayUnits", true);
        ADD_FAILURE() << "no exception";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "Invalid Unit");
    }
    EXPECT_THROW(dbUnitsFromOptionReal("GbrOutRectAptLimitValue", "GbrOutRectAptLimitUnits", true), std::out_of_range);
    EXPECT_THROW(dbUnitsFromOptionInt("ToolPolyWidthValue", "ToolPolyWidthUnits", true), std::out_of_range);
    // Each option was read, so logged and recorded, before its unit was rejected.
    EXPECT_NE(clog.text().find("DvDisplayUnits = 10\n"), std::string::npos) << clog.text();
    EXPECT_EQ(getOptionInt("DvDisplayUnits", false), 10);
    EXPECT_EQ(recordedNames(), (std::set<std::string>{"DvDisplayUnits", "GbrOutRectAptLimitValue",
                                                      "GbrOutRectAptLimitUnits", "ToolPolyWidthValue",
                                                      "ToolPolyWidthUnits"}));
}

TEST_F(OptionQueries, LengthsRoundRealsHalvesUpAndMultiplyIntegersInSixtyFourBits) {
    const struct { bool real; double value; Unit unit; std::int64_t length; } cases[] = {
        {true, 1.5, Unit::DatabaseUnit, 2},    {true, -1.5, Unit::DatabaseUnit, -1},
        {true, -2.6, Unit::DatabaseUnit, -3},  {true, 0.25, Unit::Micrometer, 250000},
        {true, 2.0, Unit::Point, 705555556},   {true, 7.5, Unit::PerInch, 8},
        {false, 3, Unit::Inch, 76200000000},   {false, -2000000000, Unit::Millimeter, -2000000000000000000},
        {false, -17, Unit::Count, -17},        {false, 17, Unit::PerInch, 17},
    };
    for (const auto& c : cases) {
        setOptionReal("GbrOutRectAptLimitValue", c.value);
        setOptionUnits("GbrOutRectAptLimitUnits", c.unit);
        setOptionInt("ToolPolyWidthValue", static_cast<std::int32_t>(c.value));
        setOptionUnits("ToolPolyWidthUnits", c.unit);
        EXPECT_EQ(c.real ? dbUnitsFromOptionReal("GbrOutRectAptLimitValue", "GbrOutRectAptLimitUnits", false)
                         : dbUnitsFromOptionInt("ToolPolyWidthValue", "ToolPolyWidthUnits", false),
                  c.length)
            << c.value << " unit " << static_cast<int>(c.unit);
    }
}

// A length beyond 64 bits, or not finite, is refused by all three queries;
// the command line reaches them with any number.
TEST_F(OptionQueries, LengthsBeyondSixtyFourBitsOrNotFiniteAreOutOfRange) {
    const auto refused = [](auto query) {
        try {
            query();
        } catch (const std::out_of_range& error) {
            return std::string(error.what()) == "Length out of range";
        }
        return false;
    };
    char program[] = "dravik", crop[] = "-ToolCropX0=1e300";
    char* argv[] = {program, crop};
    parseCommandLine(2, argv);
    setOptionUnits("ToolPolyWidthUnits", Unit::Meter);
    const auto cropLength = [] { dbUnitsFromOptionReal("ToolCropX0", "ToolPolyWidthUnits", false); };
    EXPECT_TRUE(refused(cropLength));
    for (const double value : {std::numeric_limits<double>::infinity(), std::nan(""), -9.3e6}) {
        setOptionReal("ToolCropX0", value);
        EXPECT_TRUE(refused(cropLength)) << value;
    }
    setOptionReal("ToolCropX0", -9.2e6);
    EXPECT_EQ(dbUnitsFromOptionReal("ToolCropX0", "ToolPolyWidthUnits", false), -9200000000000000000);

    setOptionInt("ToolPolyWidthValue", std::numeric_limits<std::int32_t>::max());
    setOptionUnits("ToolPolyWidthUnits", Unit::Foot);
    EXPECT_TRUE(refused([] { dbUnitsFromOptionInt("ToolPolyWidthValue", "ToolPolyWidthUnits", false); }));
    setOptionInt("ToolArcPrecValue", -30300000);
    setOptionUnits("ToolArcPrecUnits", Unit::Foot);
    EXPECT_TRUE(refused([] { getResolution(false); }));
    setOptionInt("ToolArcPrecValue", std::numeric_limits<std::int32_t>::min());
    setOptionUnits("ToolArcPrecUnits", Unit::Count);
    EXPECT_EQ(getResolution(false).stepCount, std::numeric_limits<std::int32_t>::max());
}

TEST_F(OptionQueries, ResolutionByCountPerInchOrLength) {
    EXPECT_EQ(getResolution(false).stepCount, 32) << "by count at the defaults";
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    const struct { int value; Unit unit; std::int64_t length; std::int32_t stepCount; } cases[] = {
        {-5, Unit::Count, largest, 5},
        {std::numeric_limits<std::int32_t>::min() + 1, Unit::Count, largest, std::numeric_limits<std::int32_t>::max()},
        {0, Unit::PerInch, 25400000000, 0},  {1000, Unit::PerInch, 25400000, 0}, {-3, Unit::PerInch, 8466666666, 0},
        {5, Unit::DatabaseUnit, 5, 0},       {3, Unit::Millimeter, 3000000000, 0}, {0, Unit::Micrometer, 1, 0},
        {-5, Unit::Nanometer, 1, 0},
    };
    for (const auto& c : cases) {
        setOptionInt("ToolArcPrecValue", c.value);
        setOptionUnits("ToolArcPrecUnits", c.unit);
        const auto resolution = getResolution(false);
        EXPECT_EQ(std::make_pair(resolution.length, resolution.stepCount), std::make_pair(c.length, c.stepCount))
            << c.value << " unit " << static_cast<int>(c.unit);
    }
    setOptionInt("ToolArcPrecUnits", 12);
    EXPECT_THROW(getResolution(true), std::out_of_range);
    EXPECT_EQ(recordedNames(), (std::set<std::string>{"ToolArcPrecValue", "ToolArcPrecUnits"}));
}

TEST_F(OptionQueries, ModesMapTheirOptions) {
    using namespace dv::edit;
    using namespace dv::geom;
    for (bool on : {false, true}) {
        setOptionBoolean("ToolAutoFlatten", on);
        setOptionBoolean("ToolKeepInternalEdges", on);
        setOptionBoolean("ToolEvenOddFill", on);
        setOptionInt("ToolShapeFilter", on ? 7 : 0);  // any other number than 0 is on
        setOptionInt("ToolExtractionHolesMode", on ? -1 : 0);
        EXPECT_EQ(getOption<CellHierarchy>(false), on ? CellHierarchy::Flatten : CellHierarchy::Keep);
        EXPECT_EQ(getOption<EdgePolicy>(false), on ? EdgePolicy::KeepInternalEdges : EdgePolicy::RemoveInternalEdges);
        EXPECT_EQ(getOption<FillRule>(false), on ? FillRule::EvenOdd : FillRule::NonZero);
        EXPECT_EQ(getOption<ShapeFilter>(false), on ? ShapeFilter::FilteredShapes : ShapeFilter::AllShapes);
        EXPECT_EQ(getOption<ExtractHolesMode>(false), on ? ExtractHolesMode::WithHoles : ExtractHolesMode::OutlinesOnly);
    }
}

TEST_F(OptionQueries, HolesModeLeavesTheSecondOptionUnreadWithoutLinks) {
    using dv::geom::HolesMode;
    setOptionBoolean("ToolHolesModeOmitLink", true);
    setOptionBoolean("ToolHolesModeLink", false);
    EXPECT_EQ(getOption<HolesMode>(true), HolesMode::Separate);
    EXPECT_EQ(clog.text().find("ToolHolesModeOmitLink"), std::string::npos) << clog.text();
    EXPECT_EQ(recordedNames(), std::set<std::string>{"ToolHolesModeLink"});

    setOptionBoolean("ToolHolesModeLink", true);
    EXPECT_EQ(getOption<HolesMode>(true), HolesMode::LinkedCutsOmitted);
    EXPECT_NE(clog.text().find("ToolHolesModeOmitLink = 1"), std::string::npos) << clog.text();
    EXPECT_EQ(recordedNames(), (std::set<std::string>{"ToolHolesModeLink", "ToolHolesModeOmitLink"}));
    setOptionBoolean("ToolHolesModeOmitLink", false);
    EXPECT_EQ(getOption<HolesMode>(false), HolesMode::Linked);
}

}  // namespace
}  // namespace dv::env
