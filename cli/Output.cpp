#include "Output.h"

#include <iostream>
#include <mutex>

#include "common/RecordFields.h"

namespace ipg {
namespace {
bool verbose = false;
}  // namespace

void setVerbose(bool on) { verbose = on; }

qipg::EventHook verboseHook() {
  if (!verbose) return {};
  return [](const qipg::Event& event) {
    static std::mutex oneLineAtATime;
    const std::string line = "* " + qipg::formatEvent(event) + "\n";
    std::lock_guard lock(oneLineAtATime);
    std::cerr << line << std::flush;
  };
}

ErrorReport errorReport(const qipg::Error& error) {
  return {std::string(qipg::errorKindName(error.kind)), error.message, error.outcomeUnknown,
          error.httpStatus};
}

std::string jsonLine(const nlohmann::ordered_json& value) {
  return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

nlohmann::ordered_json recordJson(const qipg::PaymentResponse& response) {
  nlohmann::ordered_json record = nlohmann::ordered_json::object();
  for (const qipg::internal::RecordField& field : qipg::internal::kRecordFields) {
    const qipg::Text& value = (response.*field.get)();
    record[field.name] = value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json(nullptr);
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
  for (const qipg::internal::RecordField& field : qipg::internal::kRecordFields) {
    const qipg::Text& value = (response.*field.get)();
    out << field.name << ": " << (value ? *value : "(absent)") << "\n";
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
