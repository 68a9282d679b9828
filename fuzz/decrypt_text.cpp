// Opening an envelope text received from outside. The input is split at its first NUL into
// the text and the merchant key. The IV store is a temporary file set up once.
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"

namespace {

void setUpStore() {
  static const bool done = [] {
    char dir[] = "/tmp/qipg-fuzz-XXXXXX";
    if (mkdtemp(dir) == nullptr) std::abort();
    static const std::string file = std::string(dir) + "/defaults.sqlite3";
    setenv("QIPG_DEFAULTS_FILE", file.c_str(), 1);
    qipg::CommonUtilities::SetRandomIV("4e9a1c07b3d58f26", "randomIV");
    std::atexit([] {
      unlink(file.c_str());
      rmdir(file.substr(0, file.rfind('/')).c_str());
    });
    return true;
  }();
  (void)done;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  setUpStore();
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t nul = input.find('\0');
  const std::string text = input.substr(0, nul);
  const qipg::Text key =
      nul == std::string::npos ? qipg::Text("merchant-key") : qipg::Text(input.substr(nul + 1));
  const qipg::Text plain = qipg::decryptTextWithDecryptionKey(text, key);
  // A text that opens must seal again to one that opens to the same text.
  if (plain && !plain->empty()) {
    if (qipg::decryptTextWithDecryptionKey(qipg::encryptTextWithEncKey(*plain, key), key) !=
        plain) {
      std::abort();
    }
  }
  return 0;
}
