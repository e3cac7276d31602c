#pragma once

// Codes and identifiers in the log as support staff read them: eight
// lower-case hexadecimal digits, zero-filled, without a base prefix.

#include <cstdint>
#include <iomanip>
#include <ostream>

namespace dv::env::internal {

struct Hex8 {
    std::uint32_t value;
};

// Whatever `uppercase` or `showbase` a caller left on the stream, the digits
// read the same; those two flags are given back afterwards. The stream stays
// hexadecimal, right-adjusted and '0'-filled: the next stamp resets those.
inline std::ostream& operator<<(std::ostream& os, Hex8 number) {
    constexpr std::ios::fmtflags spelling = std::ios::uppercase | std::ios::showbase;
    const std::ios::fmtflags caller = os.flags() & spelling;
    os.unsetf(spelling);
    os << std::hex << std::right << std::setfill('0') << std::setw(8) << number.value;
    os.setf(caller);
    return os;
}

}  // namespace dv::env::internal
