// The two payment operations and the payment page request they return.

#include <string>
#include <utility>

#include "client/QuandrelIPGImpl.h"
#include "common/Url.h"
#include "qipg/IPGCardCaptureRequest.h"
#include "qipg/IPGStandardRequest.h"
#include "qipg/QuandrelIPG.h"
#include "requests/RequestCommon.h"

namespace qipg {
namespace {

using internal::kSuccess;

// The request type codes the builders expect. The standard payment passes "NULL" on for an
// unknown type (its validator accepts it and its builder refuses it); card capture maps
// every non-zero type to a sale.
const char* standardTypeCode(std::uint64_t transactionType) {
  switch (transactionType) {
    case 0:
      return "P";
    case 1:
      return "S";
    default:
      return "NULL";
  }
}

const char* cardCaptureTypeCode(std::uint64_t transactionType) {
  return transactionType == 0 ? "P" : "S";
}

const char* paymentTypeCode(std::uint64_t paymentType) { return paymentType == 0 ? "CC" : "DC"; }

void reportFailure(const std::shared_ptr<IPGResponseDelegate>& delegate,
                   const std::string& message) {
  if (delegate) delegate->requestFailedError(message);
}

}  // namespace

URLRequest QuandrelIPG::getURLRequestforTransaction(const Text& reqMsg, const Text& andMID,
                                                    std::uint64_t txnRequesttype) {
  const std::string body =
      "merchantRequest=" + reqMsg.value_or("") + "&MID=" + andMID.value_or("") + "&iosEnc=true";

  URLRequest request;
  if (txnRequesttype == 1) {
    request.url = impl_->CurrentDomainURL_ + "doMEPayRequestCard";
  } else if (txnRequesttype == 0) {
    request.url = impl_->CurrentDomainURL_ + "doMEPayRequest";
  }
  request.httpMethod = "POST";
  request.setValueForHTTPHeaderField(std::to_string(body.size()), "Content-Length");
  request.httpBody.assign(body.begin(), body.end());
  // Nothing to empty before this: the library keeps no URL cache of its own.
  request.cachePolicy = URLRequestCachePolicy::ReloadIgnoringLocalCacheData;
  return request;
}

std::optional<URLRequest> QuandrelIPG::getStandardPaymentRequest(
    const Text& orderID, const Text& transactionAmount, const Text& transactionCurrency,
    const Text& transactionDescription, std::uint64_t transactionType, const Text& additionalField1,
    const Text& additionalField2, const Text& additionalField3, const Text& additionalField4,
    const Text& additionalField5, const Text& additionalField6, const Text& additionalField7,
    const Text& additionalField8, const Text& additionalField9, const Text& additionalField10,
    const Text& mid, const Text& encryptionString,
    const std::shared_ptr<IPGResponseDelegate>& requestDelegate) {
  const std::string typeCode = standardTypeCode(transactionType);
  std::pair<Text, Text> credentials = storeAndResolveCredentials(mid, encryptionString);
  internal::WipeOnExit wiper(credentials.second);
  const Text& resolvedMID = credentials.first;
  const Text& resolvedKey = credentials.second;
  const std::string responseURL = internal::returnURL(impl_->CurrentDomainURL_);

  IPGStandardRequest builder(resolvedMID, orderID, transactionAmount, transactionCurrency, "",
                             typeCode, "", "", "", responseURL, "", "", resolvedKey,
                             additionalField1, additionalField2, additionalField3, additionalField4,
                             additionalField5, additionalField6, additionalField7, additionalField8,
                             additionalField9, additionalField10);
  const std::string verdict = builder.validateInputForStandardRequest(
      orderID, transactionAmount, transactionCurrency, transactionDescription, typeCode,
      additionalField1, additionalField2, additionalField3, additionalField4, additionalField5,
      additionalField6, additionalField7, additionalField8, additionalField9, additionalField10,
      resolvedMID, resolvedKey);
  if (verdict != kSuccess) {
    reportFailure(requestDelegate, verdict);
    return std::nullopt;
  }

  // Validation has rejected every absent field that a message slot needs, so the build
  // cannot throw here.
  const IPGStandardRequest& built = builder.getTransactionRequestMessage();
  if (built.statusDesc() == kSuccess) {
    return getURLRequestforTransaction(built.reqMsg(), built.mid(), 0);
  }
  reportFailure(requestDelegate, built.statusDesc().value_or(""));
  return std::nullopt;
}

std::optional<URLRequest> QuandrelIPG::getCardCapturePaymentRequest(
    const Text& orderID, const Text& transactionAmount, const Text& transactionCurrency,
    const Text& transactionDescription, std::uint64_t transactionType, const Text& cardHolderName,
    const Text& cardNumber, const Text& cardExpiryDate, const Text& cvvNumber,
    std::uint64_t paymentType, const Text& additionalField1, const Text& additionalField2,
    const Text& additionalField3, const Text& additionalField4, const Text& additionalField5,
    const Text& additionalField6, const Text& additionalField7, const Text& additionalField8,
    const Text& additionalField9, const Text& additionalField10, const Text& mid,
    const Text& encryptionString, const std::shared_ptr<IPGResponseDelegate>& requestDelegate) {
  const std::string typeCode = cardCaptureTypeCode(transactionType);
  const std::string payTypeCode = paymentTypeCode(paymentType);
  std::pair<Text, Text> credentials = storeAndResolveCredentials(mid, encryptionString);
  internal::WipeOnExit wiper(credentials.second);
  const Text& resolvedMID = credentials.first;
  const Text& resolvedKey = credentials.second;
  const std::string responseURL = internal::returnURL(impl_->CurrentDomainURL_);

  IPGCardCaptureRequest builder(
      resolvedMID, orderID, transactionAmount, transactionCurrency, transactionDescription,
      typeCode, "", "", "", responseURL, "", "Initial", payTypeCode, cardNumber, cardExpiryDate,
      cardHolderName, cvvNumber, resolvedKey, additionalField1, additionalField2, additionalField3,
      additionalField4, additionalField5, additionalField6, additionalField7, additionalField8,
      additionalField9, additionalField10);
  const std::string verdict = builder.validateInputForCardCaptureRequest(
      orderID, transactionAmount, transactionCurrency, transactionDescription, typeCode,
      cardHolderName, cardNumber, cardExpiryDate, cvvNumber, payTypeCode, additionalField1,
      additionalField2, additionalField3, additionalField4, additionalField5, additionalField6,
      additionalField7, additionalField8, additionalField9, additionalField10, resolvedMID,
      resolvedKey);
  if (verdict != kSuccess) {
    reportFailure(requestDelegate, verdict);
    return std::nullopt;
  }

  const IPGCardCaptureRequest& built = builder.getTransactionRequestMessage();
  if (built.statusDesc() == kSuccess) {
    return getURLRequestforTransaction(built.reqMsg(), built.mid(), 1);
  }
  // The validation verdict, which is "Success" here, not the builder's own message.
  reportFailure(requestDelegate, verdict);
  return std::nullopt;
}

}  // namespace qipg
