#include <dv/env/OptionQueries.h>

#include <dv/env/Options.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <type_traits>

namespace dv::env {

namespace {

// The one check for a unit read from an option; it runs on the int as read.
std::int32_t checkedUnit(std::int32_t value) {
    if (value < static_cast<std::int32_t>(Unit::PerInch) || value > static_cast<std::int32_t>(Unit::DatabaseUnit))
        throw std::out_of_range("Invalid Unit");
    return value;
}

// A length that 64 bits cannot hold is refused rather than wrapped.
[[noreturn]] void lengthOutOfRange() { throw std::out_of_range("Length out of range"); }

std::int64_t times(std::int64_t a, std::int64_t b) {
    std::int64_t product = 0;
    if (__builtin_mul_overflow(a, b, &product))
        lengthOutOfRange();
    return product;
}

constexpr std::int64_t dbUnitsPerInch = 25400000000;

}  // namespace

std::int64_t dbUnitsPerUnit(Unit unit) {
    switch (unit) {
    case Unit::Nanometer: return 1000;
    case Unit::Micrometer: return 1000000;
    case Unit::Mil: return 25400000;
    case Unit::Point: return 352777778;
    case Unit::Millimeter: return 1000000000;
    case Unit::Centimeter: return 10000000000;
    case Unit::Inch: return dbUnitsPerInch;
    case Unit::Meter: return 1000000000000;
    case Unit::Foot: return 304800000000;
    default: return 1;
    }
}

// The whole-number point, not 1/72 inch, so both tables agree.
double dbUnitsPerUnitReal(Unit unit) { return static_cast<double>(dbUnitsPerUnit(unit)); }

Unit getOptionUnits(std::string_view name, bool record) {
    return static_cast<Unit>(checkedUnit(getOptionInt(name, record)));
}

void setOptionUnits(std::string_view name, Unit unit) { setOptionInt(name, static_cast<std::int32_t>(unit)); }

std::int64_t dbUnitsFromOptionReal(std::string_view valueName, std::string_view unitsName, bool record) {
    const double value = getOptionReal(valueName, record);
    const auto unit = static_cast<Unit>(checkedUnit(getOptionInt(unitsName, record)));
    const double length = std::floor(dbUnitsPerUnitReal(unit) * value + 0.5);
    // 2^63 is exact as a double; a NaN fails both tests.
    constexpr double limit = 9223372036854775808.0;
    if (!(length >= -limit && length < limit))
        lengthOutOfRange();
    return static_cast<std::int64_t>(length);
}

std::int64_t dbUnitsFromOptionInt(std::string_view valueName, std::string_view unitsName, bool record) {
    const std::int32_t value = getOptionInt(valueName, record);
    const auto unit = static_cast<Unit>(checkedUnit(getOptionInt(unitsName, record)));
    return times(dbUnitsPerUnit(unit), value);
}

dv::geom::Resolution<std::int64_t> getResolution(bool record) {
    const std::int32_t value = getOptionInt("ToolArcPrecValue", record);
    const auto unit = static_cast<Unit>(checkedUnit(getOptionInt("ToolArcPrecUnits", record)));
    // In 64 bits, so the magnitude of the lowest int is defined.
    const std::int64_t magnitude = std::llabs(value);
    switch (unit) {
    case Unit::Count:
        // The step count alone sets the precision; the lowest int's magnitude
        // is one past the highest, and is cut to it.
        return {std::numeric_limits<std::int64_t>::max(),
                static_cast<std::int32_t>(std::min<std::int64_t>(magnitude, std::numeric_limits<std::int32_t>::max()))};
    case Unit::PerInch:
        return {dbUnitsPerInch / (magnitude < 1 ? 1 : magnitude), 0};
    default: {
        const std::int64_t length = times(dbUnitsPerUnit(unit), value);
        return {length < 1 ? 1 : length, 0};
    }
    }
}

std::string importFormat(bool record) { return getOptionString("DvImportFormat", record); }

std::string exportFormat(bool record) { return getOptionString("DvExportFormat", record); }

template <typename Mode>
Mode getOption(bool record) {
    using dv::edit::CellHierarchy, dv::edit::EdgePolicy, dv::edit::ShapeFilter, dv::edit::ExtractHolesMode;
    using dv::geom::HolesMode, dv::geom::FillRule;
    if constexpr (std::is_same_v<Mode, CellHierarchy>) {
        return getOptionBoolean("ToolAutoFlatten", record) ? CellHierarchy::Flatten : CellHierarchy::Keep;
    } else if constexpr (std::is_same_v<Mode, EdgePolicy>) {
        return getOptionBoolean("ToolKeepInternalEdges", record) ? EdgePolicy::KeepInternalEdges
                                                                 : EdgePolicy::RemoveInternalEdges;
    } else if constexpr (std::is_same_v<Mode, ShapeFilter>) {
        return getOptionInt("ToolShapeFilter", record) != 0 ? ShapeFilter::FilteredShapes : ShapeFilter::AllShapes;
    } else if constexpr (std::is_same_v<Mode, ExtractHolesMode>) {
        return getOptionInt("ToolExtractionHolesMode", record) != 0 ? ExtractHolesMode::WithHoles
                                                                    : ExtractHolesMode::OutlinesOnly;
    } else if constexpr (std::is_same_v<Mode, HolesMode>) {
        // Without links the second option means nothing and is not read.
        if (!getOptionBoolean("ToolHolesModeLink", record))
            return HolesMode::Separate;
        return getOptionBoolean("ToolHolesModeOmitLink", record) ? HolesMode::LinkedCutsOmitted : HolesMode::Linked;
    } else {
        static_assert(std::is_same_v<Mode, FillRule>, "getOption<Mode> serves the six modes of OptionQueries.h");
        return getOptionBoolean("ToolEvenOddFill", record) ? FillRule::EvenOdd : FillRule::NonZero;
    }
}

template dv::edit::CellHierarchy getOption<dv::edit::CellHierarchy>(bool);
template dv::edit::EdgePolicy getOption<dv::edit::EdgePolicy>(bool);
template dv::edit::ShapeFilter getOption<dv::edit::ShapeFilter>(bool);
template dv::edit::ExtractHolesMode getOption<dv::edit::ExtractHolesMode>(bool);
template dv::geom::HolesMode getOption<dv::geom::HolesMode>(bool);
template dv::geom::FillRule getOption<dv::geom::FillRule>(bool);

}  // namespace dv::env
