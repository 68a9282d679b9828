// StatusRequest::validateInputForStatusRequest on arbitrary arguments, each sometimes absent:
// always a verdict, never a crash or an exception.
#include <cstddef>
#include <cstdint>

#include "FuzzedText.h"
#include "qipg/StatusRequest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  qipg::Text a[4];
  for (qipg::Text& t : a) t = qipg_fuzz::consumeText(in);
  qipg::StatusRequest request;
  qipg_fuzz::expect(!request.validateInputForStatusRequest(a[0], a[1], a[2], a[3]).empty());
  return 0;
}
