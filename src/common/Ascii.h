// Text helpers shared by the subsystems. Texts are UTF-8; lengths "in characters" are
// counted in UTF-16 code units, as the gateway's reference client counts them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qipg::internal {

// True when every byte is below 0x80.
bool isAscii(std::string_view text);

// The number of UTF-16 code units of a UTF-8 text: 1 per code point below U+10000, 2 above.
// A byte that does not start a well-formed sequence counts as one unit (as U+FFFD would),
// so any byte string has a defined length.
std::size_t utf16Length(std::string_view utf8);

// True when `text` is well-formed UTF-8 (no overlongs, no surrogates, nothing above U+10FFFF).
bool isValidUtf8(std::string_view text);

// The first `units` UTF-16 code units of a UTF-8 text (never splits a code point; a code
// point that would straddle the cut is left out).
std::string utf16Prefix(std::string_view utf8, std::size_t units);

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b);

// Index of the first occurrence of `needle` in `haystack` at or after `from`, ignoring ASCII
// case; npos when there is none.
std::size_t findIgnoringAsciiCase(std::string_view haystack, std::string_view needle,
                                  std::size_t from = 0);

// Replaces every occurrence of `from` (non-empty) by `to`.
std::string replaceAll(std::string_view text, std::string_view from, std::string_view to);

}  // namespace qipg::internal
