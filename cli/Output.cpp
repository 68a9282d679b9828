#include "Output.h"

#include <utility>
#include <vector>

namespace ipg {
namespace {

std::vector<std::pair<const char*, const qipg::Text*>> properties(const qipg::PaymentResponse& r) {
  return {{"transactionReferenceNo", &r.transactionReferenceNo()},
          {"orderID", &r.orderID()},
          {"amount", &r.amount()},
          {"statusCode", &r.statusCode()},
          {"statusDescription", &r.statusDescription()},
          {"rrn", &r.rrn()},
          {"authnCode", &r.authnCode()},
          {"authzCode", &r.authzCode()},
          {"authNStatus", &r.authNStatus()},
          {"authZStatus", &r.authZStatus()},
          {"responseCode", &r.responseCode()},
          {"captureStatus", &r.captureStatus()},
          {"pgRefCancelReqID", &r.pgRefCancelReqID()},
          {"refundAmount", &r.refundAmount()},
          {"transactionDateTime", &r.transactionDateTime()},
          {"addtionalField1", &r.addtionalField1()},
          {"addtionalField2", &r.addtionalField2()},
          {"addtionalField3", &r.addtionalField3()},
          {"addtionalField4", &r.addtionalField4()},
          {"addtionalField5", &r.addtionalField5()},
          {"addtionalField6", &r.addtionalField6()},
          {"addtionalField7", &r.addtionalField7()},
          {"addtionalField8", &r.addtionalField8()},
          {"addtionalField9", &r.addtionalField9()},
          {"addtionalField10", &r.addtionalField10()}};
}

}  // namespace

ErrorReport errorReport(const qipg::Error& error) {
  return {std::string(qipg::errorKindName(error.kind)), error.message, error.outcomeUnknown,
          error.httpStatus};
}

std::string jsonLine(const nlohmann::ordered_json& value) {
  return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

nlohmann::ordered_json recordJson(const qipg::PaymentResponse& response) {
  nlohmann::ordered_json record = nlohmann::ordered_json::object();
  for (const auto& [name, value] : properties(response)) {
    record[name] = *value ? nlohmann::ordered_json(**value) : nlohmann::ordered_json(nullptr);
  }
  return record;
}

nlohmann::ordered_json errorJson(const ErrorReport& error) {
  nlohmann::ordered_json json = {
      {"kind", error.kind}, {"message", error.message}, {"outcomeUnknown", error.outcomeUnknown}};
  if (error.httpStatus) json["httpStatus"] = *error.httpStatus;
  return json;
}

void printRecord(std::ostream& out, const qipg::PaymentResponse& response, bool json) {
  if (json) {
    out << jsonLine(recordJson(response));
    return;
  }
  for (const auto& [name, value] : properties(response)) {
    out << name << ": " << (*value ? **value : "(absent)") << "\n";
  }
}

void printError(std::ostream& out, std::ostream& err, const std::string& command,
                const ErrorReport& error, bool json) {
  if (json) {
    out << jsonLine({{"error", errorJson(error)}});
  } else {
    err << "ipg " << command << ": " << error.kind << ": " << error.message << "\n";
  }
}

}  // namespace ipg
