// Output shared by the ipg commands: PaymentResponse records and errors, as text or JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <string>

#include "qipg/Error.h"
#include "qipg/Events.h"
#include "qipg/PaymentResponse.h"

namespace ipg {

// A command's failure as it is reported.
struct ErrorReport {
  std::string kind;  // an ErrorKind's name ("Network", "Input"...)
  std::string message;
  bool outcomeUnknown = false;  // the operation may have taken effect all the same
  std::optional<long> httpStatus;
};

// The report of a failed qipg::Client call.
ErrorReport errorReport(const qipg::Error& error);

// One line of JSON; bytes that are not UTF-8 become U+FFFD.
std::string jsonLine(const nlohmann::ordered_json& value);

// The record as one JSON object (null for an absent value), in the record's declared order.
nlohmann::ordered_json recordJson(const qipg::PaymentResponse& response);

// {"kind", "message", "outcomeUnknown"} and "httpStatus" when there was one.
nlohmann::ordered_json errorJson(const ErrorReport& error);

// The record as "property: value" lines ("(absent)" for an absent value), or with `json` as
// one JSON object (null for absent), in the record's declared order.
void printRecord(std::ostream& out, const qipg::PaymentResponse& response, bool json);

// "ipg COMMAND: KIND: MESSAGE" on `err`, or with `json` {"error": errorJson(error)} on `out`.
void printError(std::ostream& out, std::ostream& err, const std::string& command,
                const ErrorReport& error, bool json);

// -v/--verbose: the library's events on standard error, one line each ("* event=..."). The
// hook is empty (events off) until setVerbose(true).
void setVerbose(bool on);
qipg::EventHook verboseHook();

}  // namespace ipg
