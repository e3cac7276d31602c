#pragma once

#include <dv/env/Export.h>

#include <cstdint>

namespace dv {

// A unit of length as options hold it, by its integer value. The database unit
// is one picometre. `PerInch` and `Count` are no lengths: they give the value
// beside them another meaning (see `dv::env::getResolution`).
enum class Unit : std::int32_t {
    PerInch = -2,
    Count = -1,
    Nanometer = 0,
    Micrometer = 1,
    Mil = 2,
    Point = 3,
    Millimeter = 4,
    Centimeter = 5,
    Inch = 6,
    Meter = 7,
    Foot = 8,
    DatabaseUnit = 9,
};

}  // namespace dv

namespace dv::env {

/// The size of one `unit` in database units (picometres); 1 for `PerInch`,
/// `Count`, `DatabaseUnit` and any value outside the enumeration.
///
///     std::int64_t pitch = 5 * dv::env::dbUnitsPerUnit(dv::Unit::Micrometer);  // 5000000
///
/// A point counts as 352777778, rounded to a whole number.
DV_ENV_EXPORT std::int64_t dbUnitsPerUnit(dv::Unit unit);

/// The same factors as doubles, with the same whole number for a point.
///
///     double inch = dv::env::dbUnitsPerUnitReal(dv::Unit::Inch);  // 25400000000.0
DV_ENV_EXPORT double dbUnitsPerUnitReal(dv::Unit unit);

}  // namespace dv::env
