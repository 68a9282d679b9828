// The sandbox's fault names as its admin endpoint and command line read them, on arbitrary
// text: a name is either refused with a reason or read as exactly one endpoint and fault, with
// a delay only for delay=MS and never above the longest one.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "Sandbox.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  const std::string endpointName = in.ConsumeRandomLengthString(32);
  const std::string kind = in.ConsumeRemainingBytesAsString();
  qipg::sandbox::Endpoint endpoint{};
  qipg::sandbox::Fault fault{};
  std::chrono::milliseconds delay{-1};
  std::string error;
  if (!qipg::sandbox::parseFault(endpointName, kind, &endpoint, &fault, &delay, &error)) {
    if (error.empty()) std::abort();
    return 0;
  }
  const bool delayed = fault == qipg::sandbox::Fault::kDelay;
  if (!error.empty() || delay.count() < 0 || delay > qipg::sandbox::kLongestDelay ||
      (!delayed && delay.count() != 0) || delayed != (kind.rfind("delay=", 0) == 0)) {
    std::abort();
  }
  return 0;
}
