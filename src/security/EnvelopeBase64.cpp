// Hand-written rather than on EVP_EncodeBlock/EVP_DecodeBlock: those neither break lines at
// 76 columns nor skip foreign characters, and EVP_DecodeBlock does not report the padding,
// so the profile would need a filtering pass and a length fix-up around them anyway.

#include "security/EnvelopeBase64.h"

#include <array>

namespace qipg::internal {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kLineLength = 76;

constexpr std::uint8_t kIgnored = 0xFF;
constexpr std::uint8_t kPad = 0xFE;

constexpr std::array<std::uint8_t, 256> makeDecodeTable() {
  std::array<std::uint8_t, 256> table{};
  for (auto& v : table) v = kIgnored;
  for (std::uint8_t i = 0; i < 64; ++i) table[static_cast<unsigned char>(kAlphabet[i])] = i;
  table[static_cast<unsigned char>('=')] = kPad;
  return table;
}

constexpr std::array<std::uint8_t, 256> kDecodeTable = makeDecodeTable();

}  // namespace

std::string envelopeBase64Encode(const std::uint8_t* data, std::size_t size) {
  const std::size_t chars = (size + 2) / 3 * 4;
  const std::size_t breaks = chars == 0 ? 0 : (chars - 1) / kLineLength;
  std::string out(chars + 2 * breaks, '\0');
  char* o = out.data();

  // 76 characters are 19 whole groups, so a line break only ever falls between groups.
  static_assert(kLineLength % 4 == 0);
  std::size_t column = 0;
  const auto group = [&](std::uint32_t v, int pads) {
    if (column == kLineLength) {
      *o++ = '\r';
      *o++ = '\n';
      column = 0;
    }
    o[0] = kAlphabet[(v >> 18) & 0x3F];
    o[1] = kAlphabet[(v >> 12) & 0x3F];
    o[2] = pads > 1 ? '=' : kAlphabet[(v >> 6) & 0x3F];
    o[3] = pads > 0 ? '=' : kAlphabet[v & 0x3F];
    o += 4;
    column += 4;
  };

  std::size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    group((std::uint32_t{data[i]} << 16) | (std::uint32_t{data[i + 1]} << 8) | data[i + 2], 0);
  }
  if (size - i == 2) {
    group((std::uint32_t{data[i]} << 16) | (std::uint32_t{data[i + 1]} << 8), 1);
  } else if (size - i == 1) {
    group(std::uint32_t{data[i]} << 16, 2);
  }
  return out;
}

std::optional<Bytes> envelopeBase64Decode(std::string_view text) {
  Bytes out;
  out.reserve(text.size() / 4 * 3);

  std::uint8_t group[4];
  std::size_t count = 0;  // characters of the current group
  std::size_t pads = 0;   // "=" in the current group
  bool finished = false;  // a padded group has been closed: nothing may follow
  for (const char c : text) {
    const std::uint8_t v = kDecodeTable[static_cast<unsigned char>(c)];
    if (v == kIgnored) continue;
    if (finished) return std::nullopt;
    if (v == kPad) {
      if (count < 2) return std::nullopt;  // "=" may stand only third or fourth
      ++pads;
    } else if (pads > 0) {
      return std::nullopt;  // data after a "=" inside the group
    }
    group[count++] = v;
    if (count < 4) continue;

    out.push_back(static_cast<std::uint8_t>((group[0] << 2) | (group[1] >> 4)));
    if (pads < 2) out.push_back(static_cast<std::uint8_t>((group[1] << 4) | (group[2] >> 2)));
    if (pads < 1) out.push_back(static_cast<std::uint8_t>((group[2] << 6) | group[3]));
    finished = pads > 0;
    count = 0;
    pads = 0;
  }
  if (count != 0) return std::nullopt;
  return out;
}

}  // namespace qipg::internal
