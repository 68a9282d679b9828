// CancelRequest::validateInputForCancelRequest on arbitrary arguments, each sometimes absent:
// always a verdict, never a crash or an exception.
#include <cstddef>
#include <cstdint>

#include "FuzzedText.h"
#include "qipg/CancelRequest.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  qipg::Text a[4];
  for (qipg::Text& t : a) t = qipg_fuzz::consumeText(in);
  qipg::CancelRequest request;
  qipg_fuzz::expect(!request.validateInputForCancelRequest(a[0], a[1], a[2], a[3]).empty());
  return 0;
}
