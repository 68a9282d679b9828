// Turns fuzzer input into the library's texts: each text is absent now and then, else a
// string of arbitrary bytes (NUL, "|", bytes that are not UTF-8 included).
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "qipg/Types.h"

namespace qipg_fuzz {

inline qipg::Text consumeText(FuzzedDataProvider& in) {
  if (in.ConsumeIntegralInRange<std::uint8_t>(0, 7) == 0) return std::nullopt;
  return in.ConsumeRandomLengthString(160);
}

// Stops the run with a crash report when an expectation does not hold.
inline void expect(bool holds) {
  if (!holds) std::abort();
}

}  // namespace qipg_fuzz
