// The three transaction-management operations (status, cancel, refund), the form post they
// share, the client's shutdown and the delegate made of callables.
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "client/ManagementWire.h"
#include "client/QuandrelIPGImpl.h"
#include "cxx/ClientErrors.h"
#include "net/Events.h"
#include "net/Transport.h"
#include "qipg/Cryptography.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/QuandrelIPG.h"
#include "requests/RequestCommon.h"
#include "security/Wipe.h"

namespace qipg {
namespace {

using internal::kSuccess;
using internal::Operation;

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

// The end of a call as qipg::Client would report it, for its events.
void reportEnd(const internal::CallEvents& events, Operation operation,
               const internal::TransportReply& reply, const Text& plain,
               const PaymentResponse& response, const std::string& baseURL) {
  if (!events) return;
  events.transferred(reply);
  std::optional<Error> error;
  if (reply.error) {
    error = internal::transportFailure(*reply.error, baseURL, operation);
  } else if (reply.httpStatus != 200) {
    error = internal::httpFailure(reply.httpStatus, std::nullopt, baseURL, operation);
  } else if (!plain || plain->empty()) {
    error = internal::withOutcome(internal::makeError(ErrorKind::Unreadable, {}), operation, true);
  }
  events.ended(response.statusCode().value_or(""),
               error ? std::optional(error->kind) : std::nullopt, error && error->outcomeUnknown);
}

// Seals the message with `key` as the caller gave it, posts the form through the client's
// `transport` as sendPostRequestWithURL does, and has the answer, opened with the same key,
// parsed and handed to `delegate`. The completion keeps the client, the key and the delegate
// alive until it has run.
void postSealed(const std::shared_ptr<QuandrelIPG>& client, internal::Transport& transport,
                const CommonUtilities* parsers, Operation operation,
                internal::ManagementMessage call, const Text& key,
                const std::shared_ptr<IPGResponseDelegate>& delegate,
                internal::CallEvents events) {
  const std::string envelope = encryptTextWithEncKey(call.message, key);
  internal::wipe(call.message);
  auto secret = std::make_shared<internal::SecretText>(key);
  transport.post(
      internal::formPostRequest(call.url, internal::managementForm(operation, envelope, call.mid)),
      [client, parsers, operation, secret, delegate,
       events = std::move(events)](const internal::TransportReply& reply) {
        // The error is not examined: an absent answer opens to an absent text, which parses
        // to a record with statusCode "F".
        Text plain = decryptTextWithDecryptionKey(reply.answer, secret->value());
        internal::WipeOnExit wipePlain(plain);
        const PaymentResponse response = operation == Operation::Status
                                             ? parsers->getResponseFromString(plain)
                                             : parsers->getCancelOrRefundPaymentResponse(plain);
        reportEnd(events, operation, reply, plain, response, client->CurrentDomainURL());
        if (delegate) delegate->didReceivePaymentResponse(response);
      },
      internal::managementPostOptions(operation));
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
  impl_->transport_->post(
      internal::formPostRequest(url, parameters),
      [completion = std::move(completion)](const internal::TransportReply& reply) {
        if (completion) completion(reply.answer, reply.error);
      });
}

void QuandrelIPG::manage(Operation op, const Text& orderID, const Text& transactionRefNumber,
                         const Text& transactionAmount, const Text& merchantID,
                         const Text& encryptionString,
                         const std::shared_ptr<IPGResponseDelegate>& delegate) {
  auto [mid, key] = storeAndResolveCredentials(merchantID, encryptionString);
  internal::WipeOnExit wipe(key);
  std::shared_ptr<internal::EventSink> sink;
  {
    std::lock_guard lock(impl_->eventsMutex_);
    sink = impl_->events_;
  }
  internal::CallEvents events(std::move(sink), internal::operationName(op),
                              orderID.value_or(""), transactionRefNumber.value_or(""),
                              impl_->CurrentDomainURL_);
  internal::ManagementMessage call = internal::layOutManagement(
      op, impl_->CurrentDomainURL_, orderID, transactionRefNumber, transactionAmount, mid, key);
  if (call.verdict != kSuccess) {
    events.ended({}, ErrorKind::Input, false);
    return reportInputError(delegate, call.verdict);
  }
  postSealed(shared_from_this(), *impl_->transport_, &impl_->commonUtilities_, op, std::move(call),
             encryptionString, delegate, std::move(events));
}

void QuandrelIPG::setEventHook(EventHook hook) {
  std::shared_ptr<internal::EventSink> sink = internal::EventSink::create(hook);
  {
    std::lock_guard lock(impl_->eventsMutex_);
    std::swap(impl_->eventHook_, hook);
    std::swap(impl_->events_, sink);
  }
  // The old sink is let go outside the lock: it waits for the events it still holds.
}

EventHook QuandrelIPG::eventHook() const {
  std::lock_guard lock(impl_->eventsMutex_);
  return impl_->eventHook_;
}

void QuandrelIPG::getTransactionStatus(
    const Text& orderID, const Text& transactionRefNumber, const Text& merchantID,
    const Text& encryptionString,
    const std::shared_ptr<IPGResponseDelegate>& statusResponseDelegate) {
  manage(Operation::Status, orderID, transactionRefNumber, std::nullopt, merchantID,
         encryptionString, statusResponseDelegate);
}

void QuandrelIPG::cancelTransaction(
    const Text& orderID, const Text& transactionRefNumber, const Text& merchantID,
    const Text& encryptionString,
    const std::shared_ptr<IPGResponseDelegate>& cancelResponseDelegate) {
  manage(Operation::Cancel, orderID, transactionRefNumber, std::nullopt, merchantID,
         encryptionString, cancelResponseDelegate);
}

void QuandrelIPG::refundTransaction(
    const Text& orderID, const Text& transactionRefNumber, const Text& transactionAmount,
    const Text& merchantID, const Text& encryptionString,
    const std::shared_ptr<IPGResponseDelegate>& refundResponseDelegate) {
  manage(Operation::Refund, orderID, transactionRefNumber, transactionAmount, merchantID,
         encryptionString, refundResponseDelegate);
}

void QuandrelIPG::shutdown() {
  if (impl_->transport_) impl_->transport_->shutdown();
}

}  // namespace qipg
