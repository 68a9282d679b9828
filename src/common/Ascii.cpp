#include "common/Ascii.h"

#include <cstdint>

namespace qipg::internal {
namespace {

char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Length of the well-formed UTF-8 sequence at `i`, with its code point; 0 when ill-formed.
std::size_t sequenceAt(std::string_view s, std::size_t i, std::uint32_t& codePoint) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
  const unsigned char b0 = byte(i);
  if (b0 < 0x80) {
    codePoint = b0;
    return 1;
  }
  std::size_t len;
  std::uint32_t cp;
  unsigned char lo = 0x80, hi = 0xBF;
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    len = 2, cp = b0 & 0x1F;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    len = 3, cp = b0 & 0x0F;
    if (b0 == 0xE0) lo = 0xA0;
    if (b0 == 0xED) hi = 0x9F;  // no surrogates
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    len = 4, cp = b0 & 0x07;
    if (b0 == 0xF0) lo = 0x90;
    if (b0 == 0xF4) hi = 0x8F;
  } else {
    return 0;
  }
  if (i + len > s.size()) return 0;
  for (std::size_t k = 1; k < len; ++k) {
    const unsigned char b = byte(i + k);
    if (b < (k == 1 ? lo : 0x80) || b > (k == 1 ? hi : 0xBF)) return 0;
    cp = (cp << 6) | (b & 0x3F);
  }
  codePoint = cp;
  return len;
}

}  // namespace

bool isAscii(std::string_view text) {
  for (char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

std::size_t utf16Length(std::string_view utf8) {
  std::size_t units = 0;
  for (std::size_t i = 0; i < utf8.size();) {
    std::uint32_t cp = 0;
    const std::size_t len = sequenceAt(utf8, i, cp);
    if (len == 0) {
      units += 1;
      i += 1;
    } else {
      units += cp >= 0x10000 ? 2 : 1;
      i += len;
    }
  }
  return units;
}

bool isValidUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    std::uint32_t cp = 0;
    const std::size_t len = sequenceAt(text, i, cp);
    if (len == 0) return false;
    i += len;
  }
  return true;
}

std::string utf16Prefix(std::string_view utf8, std::size_t units) {
  std::size_t taken = 0, i = 0;
  while (i < utf8.size()) {
    std::uint32_t cp = 0;
    std::size_t len = sequenceAt(utf8, i, cp);
    const std::size_t need = (len != 0 && cp >= 0x10000) ? 2 : 1;
    if (len == 0) len = 1;
    if (taken + need > units) break;
    taken += need;
    i += len;
  }
  return std::string(utf8.substr(0, i));
}

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

std::size_t findIgnoringAsciiCase(std::string_view haystack, std::string_view needle,
                                  std::size_t from) {
  if (needle.size() > haystack.size()) return std::string_view::npos;
  for (std::size_t i = from; i + needle.size() <= haystack.size(); ++i) {
    if (equalsIgnoringAsciiCase(haystack.substr(i, needle.size()), needle)) return i;
  }
  return std::string_view::npos;
}

std::string replaceAll(std::string_view text, std::string_view from, std::string_view to) {
  std::string out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (true) {
    const std::size_t at = text.find(from, i);
    if (at == std::string_view::npos || from.empty()) break;
    out.append(text.substr(i, at - i)).append(to);
    i = at + from.size();
  }
  out.append(text.substr(i));
  return out;
}

}  // namespace qipg::internal
