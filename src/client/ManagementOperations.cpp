// The three transaction-management operations (status, cancel, refund), the form post they
// share, the client's shutdown and the delegate made of callables.
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "net/Transport.h"
#include "qipg/CancelRequest.h"
#include "qipg/Cryptography.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/QuandrelIPG.h"
#include "qipg/RefundRequest.h"
#include "qipg/StatusRequest.h"
#include "requests/RequestCommon.h"

namespace qipg {
namespace {

using internal::kSuccess;

// A merchant key kept for a request under way, wiped when the last holder lets it go.
class SecretText {
 public:
  explicit SecretText(Text value) : value_(std::move(value)) {}
  ~SecretText() { internal::wipe(value_); }
  SecretText(const SecretText&) = delete;
  SecretText& operator=(const SecretText&) = delete;
  const Text& value() const { return value_; }

 private:
  Text value_;
};

enum class AnswerKind { kStatus, kCancelOrRefund };

// What a management call posts, and what its completion needs.
struct SealedCall {
  std::string plainMessage;
  Text mid;              // the built request's MID, written into the form
  Text url;              // the built request's endpoint
  const char* midField;  // "&mid=" (status) or "&MID=" (cancel, refund)
  AnswerKind answerKind;
};

// A status inquiry changes nothing at the gateway, so it may be sent again; a cancel or refund
// goes out at most once.
internal::PostOptions postOptions(AnswerKind kind) {
  internal::PostOptions options;
  options.atMostOnce = kind != AnswerKind::kStatus;
  return options;
}

class FunctionDelegate final : public IPGResponseDelegate {
 public:
  FunctionDelegate(std::function<void(const PaymentResponse&)> response,
                   std::function<void(const std::string&)> inputError,
                   std::function<void(const std::string&)> requestFailed)
      : response_(std::move(response)),
        inputError_(std::move(inputError)),
        requestFailed_(std::move(requestFailed)) {}

  void didReceivePaymentResponse(const PaymentResponse& response) override {
    if (response_) response_(response);
  }
  void didReceiveInputError(const std::string& message) override {
    if (inputError_) inputError_(message);
  }
  void requestFailedError(const std::string& message) override {
    if (requestFailed_) requestFailed_(message);
  }

 private:
  std::function<void(const PaymentResponse&)> response_;
  std::function<void(const std::string&)> inputError_;
  std::function<void(const std::string&)> requestFailed_;
};

// Seals the message with `key` as the caller gave it, posts the form through the client's
// `transport` as sendPostRequestWithURL does, and has the answer, opened with the same key,
// parsed and handed to `delegate`. The completion keeps the client, the key and the delegate
// alive until it has run.
void postSealed(const std::shared_ptr<QuandrelIPG>& client, internal::Transport& transport,
                const CommonUtilities* parsers, SealedCall call, const Text& key,
                const std::shared_ptr<IPGResponseDelegate>& delegate) {
  const std::string envelope = encryptTextWithEncKey(call.plainMessage, key);
  internal::wipe(call.plainMessage);
  const std::string body =
      "merchantReqStrT=" + envelope + call.midField + call.mid.value_or("") + "&iosEnc=true";
  auto secret = std::make_shared<SecretText>(key);
  const AnswerKind kind = call.answerKind;
  transport.post(
      internal::formPostRequest(call.url, body),
      [client, parsers, kind, secret, delegate](const internal::TransportReply& reply) {
        // The error is not examined: an absent answer opens to an absent text, which parses
        // to a record with statusCode "F".
        const Text plain = decryptTextWithDecryptionKey(reply.answer, secret->value());
        const PaymentResponse response = kind == AnswerKind::kStatus
                                             ? parsers->getResponseFromString(plain)
                                             : parsers->getCancelOrRefundPaymentResponse(plain);
        if (delegate) delegate->didReceivePaymentResponse(response);
      },
      postOptions(kind));
}

void reportInputError(const std::shared_ptr<IPGResponseDelegate>& delegate,
                      const std::string& message) {
  if (delegate) delegate->didReceiveInputError(message);
}

}  // namespace

std::shared_ptr<IPGResponseDelegate> makeResponseDelegate(
    std::function<void(const PaymentResponse&)> didReceivePaymentResponse,
    std::function<void(const std::string&)> didReceiveInputError,
    std::function<void(const std::string&)> requestFailedError) {
  return std::make_shared<FunctionDelegate>(std::move(didReceivePaymentResponse),
                                            std::move(didReceiveInputError),
                                            std::move(requestFailedError));
}

void QuandrelIPG::sendPostRequestWithURL(
    const Text& url, const std::string& parameters,
    std::function<void(const Text& answer, const std::optional<TransportError>& error)>
        completion) {
  transport_->post(internal::formPostRequest(url, parameters),
                   [completion = std::move(completion)](const internal::TransportReply& reply) {
                     if (completion) completion(reply.answer, reply.error);
                   });
}

void QuandrelIPG::getTransactionStatus(
    const Text& orderID, const Text& transactionRefNumber, const Text& merchantID,
    const Text& encryptionString,
    const std::shared_ptr<IPGResponseDelegate>& statusResponseDelegate) {
  auto [mid, key] = storeAndResolveCredentials(merchantID, encryptionString);
  internal::WipeOnExit wipe(key);
  StatusRequest validation;
  const std::string verdict =
      validation.validateInputForStatusRequest(orderID, transactionRefNumber, mid, key);
  if (verdict != kSuccess) return reportInputError(statusResponseDelegate, verdict);

  const StatusRequest built(orderID, transactionRefNumber,
                            CurrentDomainURL_ + "getTransactionStatus", mid, key);
  postSealed(shared_from_this(), *transport_, &commonUtilities_,
             {built.getRequestMessage(), built.mid(), built.url(), "&mid=", AnswerKind::kStatus},
             encryptionString, statusResponseDelegate);
}

void QuandrelIPG::cancelTransaction(
    const Text& orderID, const Text& transactionRefNumber, const Text& merchantID,
    const Text& encryptionString,
    const std::shared_ptr<IPGResponseDelegate>& cancelResponseDelegate) {
  CancelRequest validation;
  auto [mid, key] = storeAndResolveCredentials(merchantID, encryptionString);
  internal::WipeOnExit wipe(key);
  const std::string verdict =
      validation.validateInputForCancelRequest(orderID, transactionRefNumber, mid, key);
  if (verdict != kSuccess) return reportInputError(cancelResponseDelegate, verdict);

  const CancelRequest built(orderID, transactionRefNumber, CurrentDomainURL_ + "doCancelRequest",
                            "", mid, key, "", "", "", "", "", "", "", "", "", "");
  std::string message;
  try {
    message = built.getRequestMessage();
  } catch (const std::invalid_argument& absentField) {
    // Validation rejects every absent field a slot needs; kept for safety.
    return reportInputError(cancelResponseDelegate, absentField.what());
  }
  postSealed(shared_from_this(), *transport_, &commonUtilities_,
             {std::move(message), built.mid(), built.url(), "&MID=", AnswerKind::kCancelOrRefund},
             encryptionString, cancelResponseDelegate);
}

void QuandrelIPG::refundTransaction(
    const Text& orderID, const Text& transactionRefNumber, const Text& transactionAmount,
    const Text& merchantID, const Text& encryptionString,
    const std::shared_ptr<IPGResponseDelegate>& refundResponseDelegate) {
  auto [mid, key] = storeAndResolveCredentials(merchantID, encryptionString);
  internal::WipeOnExit wipe(key);
  RefundRequest validation;
  const std::string verdict = validation.validateInputForRefundRequest(
      orderID, transactionRefNumber, transactionAmount, mid, key);
  if (verdict != kSuccess) return reportInputError(refundResponseDelegate, verdict);

  const RefundRequest built(orderID, transactionRefNumber, CurrentDomainURL_ + "doRefundRequest",
                            transactionAmount, mid, key, "", "", "", "", "", "", "", "", "", "");
  std::string message;
  try {
    message = built.getRequestMessage();
  } catch (const std::invalid_argument& absentField) {
    return reportInputError(refundResponseDelegate, absentField.what());
  }
  postSealed(shared_from_this(), *transport_, &commonUtilities_,
             {std::move(message), built.mid(), built.url(), "&MID=", AnswerKind::kCancelOrRefund},
             encryptionString, refundResponseDelegate);
}

void QuandrelIPG::shutdown() {
  if (transport_) transport_->shutdown();
}

}  // namespace qipg
