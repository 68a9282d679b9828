// Output shared by the ipg commands: PaymentResponse records and errors, as text or JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

#include "qipg/PaymentResponse.h"

namespace ipg {

// One line of JSON; bytes that are not UTF-8 become U+FFFD.
std::string jsonLine(const nlohmann::ordered_json& value);

// The record as one JSON object (null for an absent value), in the record's declared order.
nlohmann::ordered_json recordJson(const qipg::PaymentResponse& response);

// The record as "property: value" lines ("(absent)" for an absent value), or with `json` as
// one JSON object (null for absent), in the record's declared order.
void printRecord(std::ostream& out, const qipg::PaymentResponse& response, bool json);

// "ipg COMMAND: KIND: MESSAGE" on `err`, or with `json` {"error": {"kind", "message"}} on
// `out`.
void printError(std::ostream& out, std::ostream& err, const std::string& command,
                const std::string& kind, const std::string& message, bool json);

}  // namespace ipg
