#pragma once

// What geometry code asks of the option store: units, lengths in database
// units, the arc resolution, the import and export formats and six enumerated
// modes. Each query reads its options through the typed getters (Options.h)
// and hands its `record` on to every read, so each option read is logged and,
// with `record` true, recorded, as if read directly.
//
// A unit read from an option must be -2 to 9. Any other value throws
// std::out_of_range with "Invalid Unit", after the reads, which are then
// already logged and recorded.

#include <dv/edit/CellHierarchy.h>
#include <dv/edit/EdgePolicy.h>
#include <dv/edit/ExtractHolesMode.h>
#include <dv/edit/ShapeFilter.h>
#include <dv/env/Export.h>
#include <dv/env/Unit.h>
#include <dv/geom/FillRule.h>
#include <dv/geom/HolesMode.h>
#include <dv/geom/Resolution.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace dv::env {

/// Reads an integer option as a unit.
///
///     dv::Unit units = dv::env::getOptionUnits("DvDisplayUnits", true);
DV_ENV_EXPORT dv::Unit getOptionUnits(std::string_view name, bool record);

/// Writes a unit to an integer option, without a range check.
///
///     dv::env::setOptionUnits("DvDisplayUnits", dv::Unit::Millimeter);
DV_ENV_EXPORT void setOptionUnits(std::string_view name, dv::Unit unit);

/// A length from a real option and its units option, in database units,
/// rounded to the nearest, halves upward (1.5 gives 2, -1.5 gives -1). `PerInch`
/// and `Count` count as factor 1. A length that is not finite or does not fit
/// 64 bits throws `std::out_of_range` ("Length out of range").
///
///     std::int64_t margin = dv::env::dbUnitsFromOptionReal("GbrOutRectAptLimitValue",
///                                                          "GbrOutRectAptLimitUnits", true);
DV_ENV_EXPORT std::int64_t dbUnitsFromOptionReal(std::string_view valueName, std::string_view unitsName, bool record);

/// A length from an integer option and its units option, in database units.
/// `PerInch` and `Count` count as factor 1. A length that does not fit 64 bits
/// throws `std::out_of_range` ("Length out of range").
///
///     std::int64_t width = dv::env::dbUnitsFromOptionInt("ToolPolyWidthValue", "ToolPolyWidthUnits", false);
DV_ENV_EXPORT std::int64_t dbUnitsFromOptionInt(std::string_view valueName, std::string_view unitsName, bool record);

/// The arc resolution from "ToolArcPrecValue" and "ToolArcPrecUnits":
/// - `Count`: `stepCount` is the value's magnitude (INT32_MAX for INT32_MIN)
///   and `length` the largest 64-bit value, no limit;
/// - `PerInch`: `length` is one inch divided by the value's magnitude (at
///   least 1), truncated, and `stepCount` 0;
/// - a length unit: `length` is value times unit, at least 1, `stepCount` 0;
///   one that does not fit 64 bits throws `std::out_of_range` ("Length out of
///   range").
///
///     auto resolution = dv::env::getResolution(true);  // defaults: {INT64_MAX, 32}
DV_ENV_EXPORT dv::geom::Resolution<std::int64_t> getResolution(bool record);

/// The current import format, the string option "DvImportFormat".
///
///     if (dv::env::importFormat(true) == "GDS") ...
DV_ENV_EXPORT std::string importFormat(bool record);

/// The current export format, the string option "DvExportFormat".
DV_ENV_EXPORT std::string exportFormat(bool record);

/// One of six modes, from its option(s):
///
/// | Mode                         | Option(s)                       | Value                        |
/// |------------------------------|---------------------------------|------------------------------|
/// | `dv::edit::CellHierarchy`    | ToolAutoFlatten                 | true: Flatten                |
/// | `dv::edit::EdgePolicy`       | ToolKeepInternalEdges           | true: KeepInternalEdges      |
/// | `dv::edit::ShapeFilter`      | ToolShapeFilter                 | non-zero: FilteredShapes     |
/// | `dv::edit::ExtractHolesMode` | ToolExtractionHolesMode         | non-zero: WithHoles          |
/// | `dv::geom::HolesMode`        | ToolHolesModeLink, then         | link false: Separate (second |
/// |                              | ToolHolesModeOmitLink           | not read); else omit true:   |
/// |                              |                                 | LinkedCutsOmitted, or Linked |
/// | `dv::geom::FillRule`         | ToolEvenOddFill                 | true: EvenOdd                |
///
///     auto fill = dv::env::getOption<dv::geom::FillRule>(true);
///
/// Defined in the library for these six types only.
template <typename Mode>
DV_ENV_EXPORT Mode getOption(bool record);

extern template DV_ENV_EXPORT dv::edit::CellHierarchy getOption<dv::edit::CellHierarchy>(bool);
extern template DV_ENV_EXPORT dv::edit::EdgePolicy getOption<dv::edit::EdgePolicy>(bool);
extern template DV_ENV_EXPORT dv::edit::ShapeFilter getOption<dv::edit::ShapeFilter>(bool);
extern template DV_ENV_EXPORT dv::edit::ExtractHolesMode getOption<dv::edit::ExtractHolesMode>(bool);
extern template DV_ENV_EXPORT dv::geom::HolesMode getOption<dv::geom::HolesMode>(bool);
extern template DV_ENV_EXPORT dv::geom::FillRule getOption<dv::geom::FillRule>(bool);

}  // namespace dv::env
