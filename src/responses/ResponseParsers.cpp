// The answer parsers of CommonUtilities: each answer kind is a text of fields separated by
// "|", with its own field order.
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "qipg/CommonUtilities.h"
#include "qipg/PaymentResponse.h"

namespace qipg {
namespace {

using Fields = std::vector<std::string_view>;
using Setter = void (PaymentResponse::*)(Text);

// Every "|" separates and empty fields are kept, so n separators give n + 1 fields. An
// absent text has no fields.
Fields splitFields(const Text& text) {
  Fields fields;
  if (!text.has_value()) return fields;
  std::string_view rest = *text;
  while (true) {
    const std::size_t bar = rest.find('|');
    if (bar == std::string_view::npos) break;
    fields.push_back(rest.substr(0, bar));
    rest.remove_prefix(bar + 1);
  }
  fields.push_back(rest);
  return fields;
}

std::string withoutAny(std::string_view text, std::string_view removed) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (removed.find(c) == std::string_view::npos) out += c;
  }
  return out;
}

PaymentResponse failed() {
  PaymentResponse response;
  response.setStatusCode("F");
  return response;
}

// Copies fields[first + i] into the record through setters[i].
template <std::size_t N>
void copyFields(PaymentResponse& response, const Fields& fields, std::size_t first,
                const std::array<Setter, N>& setters) {
  for (std::size_t i = 0; i < N; ++i) {
    (response.*setters[i])(std::string(fields[first + i]));
  }
}

constexpr std::array<Setter, 10> kAdditionalFields = {
    &PaymentResponse::setAddtionalField1, &PaymentResponse::setAddtionalField2,
    &PaymentResponse::setAddtionalField3, &PaymentResponse::setAddtionalField4,
    &PaymentResponse::setAddtionalField5, &PaymentResponse::setAddtionalField6,
    &PaymentResponse::setAddtionalField7, &PaymentResponse::setAddtionalField8,
    &PaymentResponse::setAddtionalField9, &PaymentResponse::setAddtionalField10};

}  // namespace

PaymentResponse CommonUtilities::getPaymentResponseFromString(const Text& responseString) const {
  const Fields fields = splitFields(responseString);
  if (fields.size() != 22) return failed();
  PaymentResponse response;
  response.setOrderID(withoutAny(fields[0], "\" "));
  copyFields<11>(response, fields, 1,
                 {&PaymentResponse::setTransactionReferenceNo, &PaymentResponse::setRrn,
                  &PaymentResponse::setStatusCode, &PaymentResponse::setStatusDescription,
                  &PaymentResponse::setAmount, &PaymentResponse::setTransactionDateTime,
                  &PaymentResponse::setAuthnCode, &PaymentResponse::setAuthzCode,
                  &PaymentResponse::setCaptureStatus, &PaymentResponse::setPgRefCancelReqID,
                  &PaymentResponse::setRefundAmount});
  copyFields(response, fields, 12, kAdditionalFields);
  return response;
}

PaymentResponse CommonUtilities::getResponseFromString(const Text& responseString) const {
  const Fields fields = splitFields(responseString);
  if (fields.size() < 22) return failed();
  PaymentResponse response;
  // A quoted answer keeps its closing quotation mark at the end of the last field.
  response.setTransactionReferenceNo(withoutAny(fields[0], "\""));
  copyFields<11>(
      response, fields, 1,
      {&PaymentResponse::setOrderID, &PaymentResponse::setAmount, &PaymentResponse::setAuthNStatus,
       &PaymentResponse::setAuthZStatus, &PaymentResponse::setCaptureStatus,
       &PaymentResponse::setRrn, &PaymentResponse::setAuthzCode, &PaymentResponse::setResponseCode,
       &PaymentResponse::setTransactionDateTime, &PaymentResponse::setStatusCode,
       &PaymentResponse::setStatusDescription});
  copyFields(response, fields, 12, kAdditionalFields);
  return response;
}

PaymentResponse CommonUtilities::getCancelOrRefundPaymentResponse(
    const Text& responseString) const {
  const Fields fields = splitFields(responseString);
  if (fields.size() < 16) return failed();
  PaymentResponse response;
  copyFields<6>(response, fields, 0,
                {&PaymentResponse::setTransactionReferenceNo, &PaymentResponse::setOrderID,
                 &PaymentResponse::setPgRefCancelReqID, &PaymentResponse::setRefundAmount,
                 &PaymentResponse::setStatusCode, &PaymentResponse::setStatusDescription});
  copyFields(response, fields, 6, kAdditionalFields);
  // Not part of this answer, but set (to the empty text) rather than left absent.
  response.setRrn("");
  response.setAmount("");
  response.setTransactionDateTime("");
  response.setAuthnCode("");
  response.setAuthzCode("");
  response.setCaptureStatus("");
  return response;
}

}  // namespace qipg
