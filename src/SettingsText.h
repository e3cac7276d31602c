#pragma once

// FOX's settings file, read and written the way FOX 1.6 does, without its
// limit on the length of a line:
//
//     [Section]
//     Key=plain value
//     Other="quoted \"value\"\nwith escapes"
//
// FOX's own reader takes lines of at most `foxLineLimit` bytes with their line
// feed; a longer one is read in pieces, the later ones as lines of their own.
// The library writes such lines and reads them whole.

#include "platform/SettingsStorage.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace dv::env::internal {

// FOX's buffer for a line of the file, its line feed included.
inline constexpr std::size_t foxLineLimit = 2000;
// FOX's buffer for a name (of a section or an entry), its NUL included: on
// Windows it reads no longer name from the registry.
inline constexpr std::size_t foxNameLimit = 200;

// The file's text, sections and entries in their order in `entries`.
std::string formatSettingsText(const platform::SettingsEntries& entries);
// The file's entries; `beyondFoxReader` tells whether a line is longer than
// FOX's reader takes.
platform::StoredSettings parseSettingsText(std::string_view text);

// Why `name` cannot be an entry's name in the settings (FOX's reader could
// not give it back), or empty if it can.
std::string unstorableNameReason(std::string_view name);

}  // namespace dv::env::internal
