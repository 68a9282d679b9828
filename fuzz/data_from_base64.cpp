// Text to bytes through the library codec, and back again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qipg/Base64.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const qipg::Bytes decoded = qipg::dataFromBase64String(text);
  if (decoded.size() > size) std::abort();
  // Whatever came out must survive a round trip through the encoder.
  for (const bool lines : {true, false}) {
    if (qipg::dataFromBase64String(qipg::base64EncodedStringWithSeparateLines(decoded, lines)) !=
        decoded) {
      std::abort();
    }
  }
  return 0;
}
