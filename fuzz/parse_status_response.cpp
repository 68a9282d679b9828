// CommonUtilities::getResponseFromString on arbitrary answer texts: never a crash or an exception,
// and the answer is accepted exactly when it has 22 fields or more.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzedText.h"
#include "qipg/CommonUtilities.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const qipg::CommonUtilities parsers;
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto bars = std::count(text.begin(), text.end(), '|');
  const qipg::PaymentResponse record = parsers.getResponseFromString(text);
  const bool accepted = record.orderID().has_value();
  qipg_fuzz::expect(accepted == (bars >= 21));
  if (!accepted) {
    qipg::PaymentResponse failed;
    failed.setStatusCode("F");
    qipg_fuzz::expect(record == failed);
  }
  qipg_fuzz::expect(parsers.getResponseFromString(std::nullopt).statusCode() == "F");
  return 0;
}
