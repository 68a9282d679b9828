// Builds every kind of request message from arbitrary stored fields, each sometimes absent:
// the only failure allowed to escape is std::invalid_argument for a slot whose field is absent.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "FuzzedText.h"
#include "qipg/CancelRequest.h"
#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"
#include "qipg/IPGCardCaptureRequest.h"
#include "qipg/IPGStandardRequest.h"
#include "qipg/RefundRequest.h"
#include "qipg/StatusRequest.h"

namespace {

std::string gStoreDir;

void removeStore() {
  const std::string file = gStoreDir + "/defaults.sqlite3";
  unlink(file.c_str());
  unlink((file + "-journal").c_str());
  rmdir(gStoreDir.c_str());
}

// A sealed message opens again with the same key; its plain text has at least the layout's
// separators (it is absent only when a field was not UTF-8).
template <typename Request>
void checkSealed(const Request& request, std::size_t separators) {
  if (request.statusDesc() != "Success" || !request.reqMsg() || request.reqMsg()->empty()) return;
  const qipg::Text plain = qipg::decryptTextWithDecryptionKey(request.reqMsg(), request.enckey());
  if (plain) {
    qipg_fuzz::expect(static_cast<std::size_t>(std::count(plain->begin(), plain->end(), '|')) >=
                      separators);
  }
}

void build(FuzzedDataProvider& in) {
  using qipg_fuzz::consumeText;
  qipg::Text t[28];
  switch (in.ConsumeIntegralInRange<int>(0, 4)) {
    case 0: {
      for (int i = 0; i < 23; ++i) t[i] = consumeText(in);
      qipg::IPGStandardRequest r(t[0], t[1], t[2], t[3], t[4], t[5], t[6], t[7], t[8], t[9], t[10],
                                 t[11], t[12], t[13], t[14], t[15], t[16], t[17], t[18], t[19],
                                 t[20], t[21], t[22]);
      checkSealed(r.getTransactionRequestMessage(), 19);
      break;
    }
    case 1: {
      for (qipg::Text& text : t) text = consumeText(in);
      qipg::IPGCardCaptureRequest r(t[0], t[1], t[2], t[3], t[4], t[5], t[6], t[7], t[8], t[9],
                                    t[10], t[11], t[12], t[13], t[14], t[15], t[16], t[17], t[18],
                                    t[19], t[20], t[21], t[22], t[23], t[24], t[25], t[26], t[27]);
      r.setNetBankCode(consumeText(in));
      checkSealed(r.getTransactionRequestMessage(), 25);
      break;
    }
    case 2: {
      for (int i = 0; i < 5; ++i) t[i] = consumeText(in);
      qipg::StatusRequest r(t[0], t[1], t[2], t[3], t[4]);
      r.getRequestMessage();
      break;
    }
    case 3: {
      for (int i = 0; i < 16; ++i) t[i] = consumeText(in);
      qipg::CancelRequest r(t[0], t[1], t[2], t[3], t[4], t[5], t[6], t[7], t[8], t[9], t[10],
                            t[11], t[12], t[13], t[14], t[15]);
      r.getRequestMessage();
      break;
    }
    default: {
      for (int i = 0; i < 16; ++i) t[i] = consumeText(in);
      qipg::RefundRequest r(t[0], t[1], t[2], t[3], t[4], t[5], t[6], t[7], t[8], t[9], t[10],
                            t[11], t[12], t[13], t[14], t[15]);
      r.getRequestMessage();
      break;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // A private store holding the test gateway's IV, removed when the run ends.
  char dir[] = "/tmp/qipg-fuzz-XXXXXX";
  if (mkdtemp(dir) == nullptr) return 0;
  gStoreDir = dir;
  setenv("QIPG_DEFAULTS_FILE", (gStoreDir + "/defaults.sqlite3").c_str(), 1);
  qipg::CommonUtilities::SetRandomIV("4e9a1c07b3d58f26", "randomIV");
  atexit(removeStore);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  try {
    build(in);
  } catch (const std::invalid_argument& e) {
    qipg_fuzz::expect(std::string(e.what()).ends_with(" is absent"));
  }
  return 0;
}
