// The URL module and the base-URL check, from any text:
// - the loopback rule's verdict holds for the URL as libcurl writes it back, so the text and
//   what libcurl connects to never disagree, and a text libcurl cannot read is not loopback;
// - the base-URL check gives a one-line verdict; a URL that is accepted has a canonical form
//   that is https, or http on a loopback host, read by curl with that very host right after
//   "//", ending in "/", and its own canonical form.
#include "common/Url.h"

#include <curl/curl.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "FuzzedText.h"
#include "qipg/GatewayConfig.h"

namespace {

using qipg::internal::hasLoopbackHost;
using qipg::internal::parseURL;
using qipg::internal::urlPart;

void checkLoopbackRule(const std::string& url) {
  const bool loopback = hasLoopbackHost(url);
  // libcurl reads a C string: text with a NUL in it is not the URL libcurl would see.
  if (url.find('\0') != std::string::npos) {
    qipg_fuzz::expect(!loopback);
    return;
  }
  const qipg::Text again = urlPart(parseURL(url, 0), CURLUPART_URL);
  qipg_fuzz::expect(again ? hasLoopbackHost(*again) == loopback : !loopback);
}

void checkCanonical(const std::string& canonical) {
  const qipg::internal::UrlHandle url = parseURL(canonical, 0);
  qipg_fuzz::expect(url != nullptr);
  const std::string scheme = urlPart(url, CURLUPART_SCHEME).value_or("");
  const std::string host = urlPart(url, CURLUPART_HOST).value_or("");
  qipg_fuzz::expect(scheme == "https" || (scheme == "http" && hasLoopbackHost(canonical)));
  qipg_fuzz::expect(canonical.rfind(scheme + "://" + host, 0) == 0);
  qipg_fuzz::expect(canonical.back() == '/');
  qipg_fuzz::expect(qipg::GatewayConfig::canonicalBaseURL(canonical) == canonical);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  checkLoopbackRule(std::string(reinterpret_cast<const char*>(data), size));

  FuzzedDataProvider in(data, size);
  qipg::GatewayConfig config;
  config.testBaseURL = in.ConsumeRandomLengthString(300);
  config.productionBaseURL = in.ConsumeRemainingBytesAsString();
  const qipg::Text problem = config.problem();
  qipg_fuzz::expect(!problem || problem->find('\n') == std::string::npos);
  const qipg::GatewayConfig canonical = config.canonical();
  for (const auto& [url, form] :
       {std::pair(config.testBaseURL, canonical.testBaseURL),
        std::pair(config.productionBaseURL, canonical.productionBaseURL)}) {
    const qipg::Text accepted = qipg::GatewayConfig::canonicalBaseURL(url);
    qipg_fuzz::expect(accepted || problem);
    if (!accepted) continue;
    qipg_fuzz::expect(*accepted == form);
    checkCanonical(*accepted);
  }
  return 0;
}
