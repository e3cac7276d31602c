#pragma once

// Option names compared and hashed with ASCII case folded, whatever the
// process's C and C++ locales say: a host that sets a Turkish locale, whose
// upper case of "i" is not "I", must not make "dvimportfile" miss DvImportFile.
//
// Names are taken eight bytes at a time: they are read on every typed access,
// and the fold of a word costs a few instructions where a byte-wise fold
// through a table costs a load per byte.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace dv::env::internal {

namespace names {

// 'A' to 'Z' become 'a' to 'z', every other byte stays. No byte carries into
// its neighbour: a byte's low seven bits plus 0x3f stay below 0x100.
inline std::uint64_t foldAsciiCase(std::uint64_t bytes) {
    constexpr std::uint64_t ones = 0x0101010101010101;
    const std::uint64_t low = bytes & 0x7f * ones;
    const std::uint64_t fromA = low + (0x80 - 'A') * ones;
    const std::uint64_t pastZ = low + (0x80 - 'Z' - 1) * ones;
    const std::uint64_t upper = fromA & ~pastZ & ~bytes & 0x80 * ones;
    return bytes | upper >> 2;
}

// The word of `text` at `offset`, zero-filled past its end.
inline std::uint64_t wordAt(std::string_view text, std::size_t offset) {
    const std::size_t left = text.size() - offset;
    std::uint64_t word = 0;
    if (left >= sizeof word) {
        std::memcpy(&word, text.data() + offset, sizeof word);
        return word;
    }
    for (std::size_t i = 0; i < left; ++i)
        word |= std::uint64_t{static_cast<unsigned char>(text[offset + i])} << (8 * i);
    return word;
}

}  // namespace names

// Equal ignoring ASCII case: same length, and the same bytes once 'A'-'Z' are
// taken as 'a'-'z'.
inline bool sameOptionName(std::string_view a, std::string_view b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t offset = 0; offset < a.size(); offset += 8) {
        const std::uint64_t left = names::wordAt(a, offset), right = names::wordAt(b, offset);
        if (left != right && names::foldAsciiCase(left) != names::foldAsciiCase(right))
            return false;
    }
    return true;
}

// A hash of `name` that is the same for every ASCII case of it; `foldCase`
// false hashes the bytes as they are.
inline std::size_t optionNameHash(std::string_view name, bool foldCase) {
    std::uint64_t hash = 0x9e3779b97f4a7c15 ^ name.size();
    for (std::size_t offset = 0; offset < name.size(); offset += 8) {
        const std::uint64_t word = names::wordAt(name, offset);
        hash = (hash ^ (foldCase ? names::foldAsciiCase(word) : word)) * 0xbf58476d1ce4e5b9;
        hash ^= hash >> 31;
    }
    // Hash tables use the low bits: mix the high ones in.
    hash ^= hash >> 33;
    hash *= 0xff51afd7ed558ccd;
    hash ^= hash >> 33;
    return static_cast<std::size_t>(hash);
}

// A name with its case-blind hash, for several look-ups of one name.
struct FoldedName {
    explicit FoldedName(std::string_view name) : text(name), hash(optionNameHash(name, true)) {}
    std::string_view text;
    std::size_t hash;
};

}  // namespace dv::env::internal
