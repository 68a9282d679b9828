// The 25 properties of a PaymentResponse by name, in their declared order: one table for
// everything that writes or reads a record by field name (the journal, ipg's output).
#pragma once

#include <array>

#include "qipg/PaymentResponse.h"

namespace qipg::internal {

struct RecordField {
  const char* name;
  const Text& (PaymentResponse::*get)() const;
  void (PaymentResponse::*set)(Text);
};

extern const std::array<RecordField, 25> kRecordFields;

}  // namespace qipg::internal
