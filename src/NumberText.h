#pragma once

// Numbers to and from the text of options, the same under every C and C++
// locale of the process: a point, never a comma. A host may set its user's
// locale after FOX has put LC_NUMERIC back to "C", and a command file or a
// registry file written on one desktop must read the same on another. None
// of these touches the process's locale (that would not be thread-safe).

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace dv::env::internal {

// As sscanf "%d" reads it: base ten after white space, the rest ignored.
// Beyond the 32-bit range it fails instead of wrapping.
std::optional<std::int32_t> scanInt(std::string_view text);

// As glibc's sscanf "%lf" reads it in the C locale: white space, a sign, then
// decimal digits with a point and an exponent, "0x" and hexadecimal ones with
// a "p" exponent, "inf", "infinity" or "nan" in any case; the rest is ignored,
// and a value beyond the range of a double reads as infinity or zero. Fails
// where "%lf" fails, also for a lone "0x" (where strtod takes the 0).
std::optional<double> scanReal(std::string_view text);

// A short number as a NUL-ended text without the heap.
struct ShortNumberText {
    char text[32];
    const char* c_str() const { return text; }
};

// As "%d".
ShortNumberText decimalText(std::int32_t value);
// As "%.16g": how FOX's registry keeps a real, about 16 significant digits.
ShortNumberText sixteenDigitsText(double value);
// As "%f": six decimals, however large the number.
std::string sixDecimalsText(double value);
// The shortest text that reads back as exactly `value`.
std::string roundTripText(double value);

}  // namespace dv::env::internal
