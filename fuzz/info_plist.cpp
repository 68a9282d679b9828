// Info.plist as the client reads it: any bytes give two values or none, never a crash, a
// hang or a leak (deep nesting and shared binary objects included).
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "FuzzedText.h"
#include "client/InfoPlist.h"
#include "common/Ascii.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const qipg::internal::PListCredentials values = qipg::internal::parseInfoPlistCredentials(
      std::string_view(reinterpret_cast<const char*>(data), size));
  qipg_fuzz::expect(!values.merchantID || qipg::internal::isValidUtf8(*values.merchantID));
  qipg_fuzz::expect(!values.encryptionKey || qipg::internal::isValidUtf8(*values.encryptionKey));
  return 0;
}
