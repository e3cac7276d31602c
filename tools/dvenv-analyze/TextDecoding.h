#pragma once

// The two transfer encodings a log meets on its way to support: Base64 (the
// dump's lines in the log, and a mailed attachment) and quoted-printable (a
// mailed attachment). Written here rather than taken from a mail library:
// support must learn where a text is damaged, and the lenient decoders of
// mail libraries skip what they cannot read without a word.

#include <optional>
#include <string>
#include <string_view>

namespace dvanalyze {

// RFC 4648 Base64 with its padding; nothing if `text` holds anything else.
std::optional<std::string> decodeBase64(std::string_view text);

// Base64 as a mail carries it: lines of it, each a whole number of groups
// except the padded last; blanks and line ends are passed over. Nothing on
// any other character, and `badLine` then tells which line (from 0).
std::optional<std::string> decodeBase64Lines(std::string_view text, std::size_t& badLine);

// RFC 2045 quoted-printable: "=XX" escapes and "=" soft line breaks; a line's
// trailing blanks are dropped. Nothing on a "=" not followed by two hex
// digits or a line end, and `badLine` then tells which line (from 0).
std::optional<std::string> decodeQuotedPrintable(std::string_view text, std::size_t& badLine);

}  // namespace dvanalyze
