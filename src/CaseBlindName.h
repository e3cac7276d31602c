#pragma once

// Case-blind comparison of one name with many, for the linear scans over the
// option tables. Equal to equalsIgnoringCase, but the locale's upper-case
// mapping is fetched once per name instead of once per comparison, and a
// comparison fails on the length before it looks at a character.

#include <array>
#include <locale>
#include <string_view>

namespace dv::env::internal {

// The upper-case mapping of every byte under the global locale of the moment,
// rebuilt only when the global locale has changed since the last call on this
// thread.
inline const std::array<char, 256>& upperCaseTable() {
    struct Cache {
        std::locale locale;
        std::array<char, 256> upper{};
        bool filled = false;
    };
    thread_local Cache cache;
    const std::locale current;
    if (!cache.filled || !(current == cache.locale)) {
        const auto& ctype = std::use_facet<std::ctype<char>>(current);
        for (int byte = 0; byte < 256; ++byte)
            cache.upper[static_cast<std::size_t>(byte)] = ctype.toupper(static_cast<char>(byte));
        cache.locale = current;
        cache.filled = true;
    }
    return cache.upper;
}

class CaseBlindName {
public:
    explicit CaseBlindName(std::string_view name) : text(name), upper(upperCaseTable()) {}

    bool matches(std::string_view other) const {
        if (other.size() != text.size())
            return false;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (upper[static_cast<unsigned char>(other[i])] != upper[static_cast<unsigned char>(text[i])])
                return false;
        }
        return true;
    }

    std::string_view name() const { return text; }

private:
    std::string_view text;
    const std::array<char, 256>& upper;
};

}  // namespace dv::env::internal
