// The Base64 profile of the message envelope: what travels in every request and management
// answer. Thread-safe (no state).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "qipg/Types.h"

namespace qipg::internal {

// Standard Base64 (RFC 4648 alphabet, "=" padding) with a CR LF after every 76 output
// characters when more follow; none after the last line.
std::string envelopeBase64Encode(const std::uint8_t* data, std::size_t size);
inline std::string envelopeBase64Encode(const Bytes& data) {
  return envelopeBase64Encode(data.data(), data.size());
}

// Lenient decoding: every character that is neither in the alphabet nor "=" is ignored; what
// remains must be whole 4-character groups, padded only at the very end with at most two
// "=" (the unused low bits of the last character are not checked). Anything else gives
// std::nullopt ("no data"), which is not the same as the empty Bytes of an empty text.
std::optional<Bytes> envelopeBase64Decode(std::string_view text);

}  // namespace qipg::internal
