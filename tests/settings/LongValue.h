#pragma once

// Long values that the settings file must carry whole: plain, or mixed with
// line feeds, quotes, "=", backslashes, tabs and bytes beyond ASCII.

#include <cstddef>
#include <string>
#include <string_view>

namespace dv::env::test {

inline std::string longValue(std::size_t length, std::string_view kind) {
    static constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyz/0123456789:";
    static constexpr std::string_view mixed = "path=/a b\n\"quoted\" 'single'\\\t;#[x]\xc3\xa9=";
    const std::string_view pattern = kind == "mixed" ? mixed : plain;
    std::string value;
    value.reserve(length);
    for (std::size_t i = 0; value.size() < length; ++i)
        value += pattern[(i * 7 + i / pattern.size()) % pattern.size()];
    return value;
}

}  // namespace dv::env::test
