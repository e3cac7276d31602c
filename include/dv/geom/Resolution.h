#pragma once

// Stand-in for the geometry module's type: how finely arcs are broken into
// straight segments.

#include <cstdint>

namespace dv::geom {

template <typename Coord>
struct Resolution {
    Coord length;            // longest segment, in database units
    std::int32_t stepCount;  // segments per full circle; 0 when `length` rules
};

}  // namespace dv::geom
