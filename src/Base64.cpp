#include "Base64.h"

#include <cstdint>

namespace dv::env::internal {

std::ptrdiff_t base64Encode(const unsigned char* data, std::size_t size, char* out) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    if ((size + 2) / 3 * 4 > base64LineLength)
        return -1;
    char* at = out;
    for (std::size_t i = 0; i < size; i += 3) {
        const std::size_t left = size - i;
        const std::uint32_t group = std::uint32_t{data[i]} << 16 | (left > 1 ? std::uint32_t{data[i + 1]} << 8 : 0) |
                                    (left > 2 ? std::uint32_t{data[i + 2]} : 0);
        *at++ = alphabet[group >> 18 & 0x3f];
        *at++ = alphabet[group >> 12 & 0x3f];
        *at++ = left > 1 ? alphabet[group >> 6 & 0x3f] : '=';
        *at++ = left > 2 ? alphabet[group & 0x3f] : '=';
    }
    *at = '\0';
    return at - out;
}

}  // namespace dv::env::internal
