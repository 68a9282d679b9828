// The envelope's lenient Base64 decoder; what it accepts must survive encode and decode.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "security/EnvelopeBase64.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto decoded = qipg::internal::envelopeBase64Decode(text);
  if (!decoded) return 0;
  if (decoded->size() > size) std::abort();
  const std::string encoded = qipg::internal::envelopeBase64Encode(*decoded);
  if (qipg::internal::envelopeBase64Decode(encoded) != decoded) std::abort();
  // Re-encoding gives the accepted characters back, up to the unused low bits of a padded
  // group's last character.
  std::size_t kept = 0;
  for (const char c : text) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
        c == '/' || c == '=') {
      ++kept;
    }
  }
  if (encoded.size() != kept + 2 * (kept == 0 ? 0 : (kept - 1) / 76)) std::abort();
  return 0;
}
