// Output shared by the ipg commands: JSON strings and PaymentResponse records.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "qipg/PaymentResponse.h"

namespace ipg {

// `text` as a JSON string literal, quotes included.
std::string jsonString(std::string_view text);

// The record as "property: value" lines ("(absent)" for an absent value), or with `json` as
// one JSON object (null for absent), in the record's declared order.
void printRecord(std::ostream& out, const qipg::PaymentResponse& response, bool json);

}  // namespace ipg
