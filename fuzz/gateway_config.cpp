// The base-URL check: any text gives a verdict, and one that is accepted really is an
// https URL, or an http one, ending in "/".
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzedText.h"
#include "qipg/GatewayConfig.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  qipg::GatewayConfig config;
  config.testBaseURL = in.ConsumeRandomLengthString(300);
  config.productionBaseURL = in.ConsumeRemainingBytesAsString();
  const qipg::Text problem = config.problem();
  if (!problem) {
    for (const std::string& url : {config.testBaseURL, config.productionBaseURL}) {
      const std::string scheme = url.substr(0, url.find(':'));
      qipg_fuzz::expect(scheme.size() == 4 || scheme.size() == 5);
      qipg_fuzz::expect(!url.empty() && url.back() == '/');
    }
  }
  qipg_fuzz::expect(!problem || problem->find('\n') == std::string::npos);
  return 0;
}
