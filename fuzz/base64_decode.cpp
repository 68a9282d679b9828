// The library codec's decoder on any bytes: with their length, and NUL-terminated.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "qipg/Base64.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  std::size_t length = SIZE_MAX;
  void* decoded = qipg::NewBase64Decode(text, size, &length);
  if (decoded == nullptr || length > size) std::abort();
  // Touch every byte reported, so that a length beyond the buffer shows up under ASan.
  volatile std::uint8_t sink = 0;
  for (std::size_t i = 0; i < length; ++i) sink = sink ^ static_cast<std::uint8_t*>(decoded)[i];
  std::free(decoded);

  const std::string terminated(text, strnlen(text, size));
  std::size_t measured = SIZE_MAX;
  decoded = qipg::NewBase64Decode(terminated.c_str(), SIZE_MAX, &measured);
  std::size_t given = SIZE_MAX;
  void* again = qipg::NewBase64Decode(terminated.data(), terminated.size(), &given);
  if (decoded == nullptr || again == nullptr || measured != given ||
      std::memcmp(decoded, again, measured) != 0) {
    std::abort();
  }
  std::free(decoded);
  std::free(again);
  return 0;
}
