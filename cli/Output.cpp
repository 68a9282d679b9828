#include "Output.h"

#include <cstdio>
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

std::string jsonString(std::string_view text) {
  std::string out = "\"";
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (byte < 0x20 || byte == 0x7F) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
          out += escaped;
        } else {
          out += c;
        }
    }
  }
  return out + "\"";
}

void printRecord(std::ostream& out, const qipg::PaymentResponse& response, bool json) {
  if (json) {
    std::string line = "{";
    bool first = true;
    for (const auto& [name, value] : properties(response)) {
      line += (first ? "" : ",") + jsonString(name) + ":" + (*value ? jsonString(**value) : "null");
      first = false;
    }
    out << line << "}\n";
    return;
  }
  for (const auto& [name, value] : properties(response)) {
    out << name << ": " << (*value ? **value : "(absent)") << "\n";
  }
}

}  // namespace ipg
