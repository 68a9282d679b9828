// IPGStandardRequest::validateInputForStandardRequest on arbitrary arguments, each sometimes
// absent: always a verdict, never a crash or an exception.
#include <cstddef>
#include <cstdint>

#include "FuzzedText.h"
#include "qipg/IPGStandardRequest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  qipg::Text a[17];
  for (qipg::Text& t : a) t = qipg_fuzz::consumeText(in);
  qipg::IPGStandardRequest request;
  const std::string verdict = request.validateInputForStandardRequest(
      a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10], a[11], a[12], a[13], a[14],
      a[15], a[16]);
  qipg_fuzz::expect(!verdict.empty());
  return 0;
}
