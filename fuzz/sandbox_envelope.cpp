// The gateway's side of the envelope on arbitrary text: opening what a client posted (the test
// merchant's key, or a key taken from the input), sealing arbitrary bytes and opening them again,
// and the strict Base64 underneath.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "GatewayCrypto.h"
#include "Sandbox.h"

namespace {

using namespace qipg::sandbox::internal;

void expect(bool holds) {
  if (!holds) std::abort();
}

bool isBase64Symbol(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '/' ||
         c == '=';
}

// A sealed text is Base64 with "+" written "%2B", broken by CR LF after every 76 symbols when
// more follow.
void checkSealedLayout(const std::string& sealed) {
  std::size_t inLine = 0;
  std::size_t symbols = 0;
  for (std::size_t i = 0; i < sealed.size();) {
    if (sealed.compare(i, 2, "\r\n") == 0) {
      expect(inLine == 76 && i + 2 < sealed.size());
      inLine = 0;
      i += 2;
      continue;
    }
    if (sealed.compare(i, 3, "%2B") == 0) {
      i += 3;
    } else {
      expect(isBase64Symbol(sealed[i]));
      ++i;
    }
    ++inLine;
    ++symbols;
    expect(inLine <= 76);
  }
  // AES blocks of 16 bytes: a whole number of them, at least one.
  expect(symbols > 0 && symbols % 4 == 0);
}

void checkBase64(std::string_view text) {
  const auto bytes = base64Decode(text);
  if (!bytes) return;
  expect(bytes->size() <= text.size());
  const std::string encoded = base64Encode(*bytes);
  expect(base64Decode(encoded) == bytes);
  std::size_t symbols = 0;
  for (const char c : text) symbols += c == '\r' || c == '\n' || c == ' ' || c == '\t' ? 0 : 1;
  expect(encoded.size() == symbols);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const bool ownKey = in.ConsumeBool();
  const std::string key =
      ownKey ? in.ConsumeRandomLengthString(40) : std::string(qipg::sandbox::kTestMerchantKey);
  const std::string iv(in.ConsumeBool() ? kProductionIV : kTestIV);
  const std::string text = in.ConsumeRemainingBytesAsString();

  // Whatever opens is UTF-8 and survives sealing again.
  if (const auto opened = openEnvelope(text, key, iv)) {
    expect(isUtf8(*opened));
    expect(openEnvelope(sealEnvelope(*opened, key, iv), key, iv) == opened);
  }

  // Sealing takes any bytes; opening gives them back exactly when they are UTF-8.
  const std::string sealed = sealEnvelope(text, key, iv);
  checkSealedLayout(sealed);
  const auto back = openEnvelope(sealed, key, iv);
  if (isUtf8(text)) {
    expect(back == text);
  } else {
    expect(!back.has_value());
  }
  // Line breaks and blanks around the text do not matter; an IV of the wrong length opens nothing.
  if (back) expect(openEnvelope("\r\n " + sealed + "\t\n", key, iv) == back);
  expect(!openEnvelope(sealed, key, iv.substr(0, 15)).has_value());

  checkBase64(text);
  return 0;
}
