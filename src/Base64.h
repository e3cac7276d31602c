#pragma once

// Base64 (RFC 4648: "+" and "/", "=" padding, no line breaks), for the dump's
// lines in the log. Heap-free: the fault handler uses it.

#include <cstddef>

namespace dv::env::internal {

// The longest text one call writes, for 54 bytes: a log line of the dump.
inline constexpr std::size_t base64LineLength = 72;

// Encodes `size` bytes into `out`, which has room for base64LineLength + 1
// characters, with a closing NUL. Returns the text's length, or -1 if it
// would not fit.
std::ptrdiff_t base64Encode(const unsigned char* data, std::size_t size, char* out);

}  // namespace dv::env::internal
