// What the payment windows read from their web view: the address of the page shown (put in
// canonical form and cut down to its host) and the certificate chain of a failed handshake.
// Any text gives an answer; a canonical form is stable; no chain is trusted without a CA file.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzedText.h"
#include "common/Url.h"
#include "ui/window/TlsTrust.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const std::string url = in.ConsumeRandomLengthString(400);
  const std::string canonical = qipg::internal::canonicalURL(url);
  qipg_fuzz::expect(qipg::internal::canonicalURL(canonical) == canonical);
  const std::string host = qipg::internal::hostOf(url);
  std::vector<std::string> chain;
  while (in.remaining_bytes() > 0 && chain.size() < 3) {
    chain.push_back(in.ConsumeRandomLengthString(2000));
  }
  qipg_fuzz::expect(!qipg::internal::certificateTrustedForHost(chain, "", host, url));
  qipg_fuzz::expect(
      !qipg::internal::certificateTrustedForHost(chain, "/nonexistent/ca.pem", host, url));
  return 0;
}
