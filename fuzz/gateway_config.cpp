// The base-URL check: any text gives a one-line verdict; a URL that is accepted has a
// canonical form that is https, or http on a loopback host, read by curl with that very host
// right after "//", ending in "/", and its own canonical form.
#include <curl/curl.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "FuzzedText.h"
#include "qipg/GatewayConfig.h"

namespace {

std::string part(CURLU* url, CURLUPart which) {
  char* raw = nullptr;
  std::string out;
  if (curl_url_get(url, which, &raw, 0) == CURLUE_OK && raw != nullptr) out = raw;
  curl_free(raw);
  return out;
}

bool isLoopback(const std::string& host) {
  if (host == "localhost" || host == "[::1]") return true;
  return host.rfind("127.", 0) == 0 && host.find_first_not_of("0123456789.") == std::string::npos;
}

void checkCanonical(const std::string& canonical) {
  CURLU* url = curl_url();
  qipg_fuzz::expect(curl_url_set(url, CURLUPART_URL, canonical.c_str(), 0) == CURLUE_OK);
  const std::string scheme = part(url, CURLUPART_SCHEME);
  const std::string host = part(url, CURLUPART_HOST);
  curl_url_cleanup(url);
  qipg_fuzz::expect(scheme == "https" || (scheme == "http" && isLoopback(host)));
  qipg_fuzz::expect(canonical.rfind(scheme + "://" + host, 0) == 0);
  qipg_fuzz::expect(canonical.back() == '/');
  qipg_fuzz::expect(qipg::GatewayConfig::canonicalBaseURL(canonical) == canonical);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
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
