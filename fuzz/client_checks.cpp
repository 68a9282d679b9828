// The checks qipg::Client adds to payments and refunds, on arbitrary text: never a crash, and a
// text they accept has the shape each promises.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzedText.h"
#include "cxx/ClientChecks.h"

namespace {

bool digitsOnly(const std::string& text) {
  return text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qipg::internal;
  FuzzedDataProvider in(data, size);
  const int year = in.ConsumeIntegralInRange(2000, 2199);
  const int month = in.ConsumeIntegralInRange(1, 12);
  const std::string text = in.ConsumeRemainingBytesAsString();
  if (!amountProblem(text)) {
    qipg_fuzz::expect(text.find_first_not_of("0123456789.") == std::string::npos);
    qipg_fuzz::expect(text.find_first_not_of("0.") != std::string::npos);
  }
  if (!cardNumberProblem(text)) qipg_fuzz::expect(digitsOnly(text) && text.size() >= 12);
  if (!expiryProblem(text, year, month)) qipg_fuzz::expect(digitsOnly(text) && text.size() == 4);
  if (!cvvProblem(text)) qipg_fuzz::expect(digitsOnly(text) && text.size() <= 4);
  return 0;
}
