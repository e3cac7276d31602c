#pragma once

// Stand-in for the geometry module's type: which points a polygon covers.

#include <cstdint>

namespace dv::geom {

enum class FillRule : std::uint8_t {
    NonZero = 0,
    EvenOdd = 1,
};

}  // namespace dv::geom
