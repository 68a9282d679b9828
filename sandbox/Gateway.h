// The gateway's protocol, apart from HTTP: each endpoint takes the request body and gives the
// status, content type and body of the answer.
//
// Management endpoints answer with a sealed text (status: 22 fields; cancel and refund: 16)
// whenever the MID is known, refusals included (status code "F" and a one-line description);
// an unknown MID gets a plain-text HTTP 400, since there is no key to seal with. Payment
// endpoints answer with HTML pages; refusals get an HTML error page with HTTP 400.
//
// Thread-safe: one mutex serialises every request, so each check-and-write on a transaction
// is atomic, and every change is committed before the answer is returned.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Sandbox.h"
#include "Store.h"

namespace qipg::sandbox::internal {

struct Reply {
  int status = 200;
  std::string contentType;
  std::string body;
  Fault fault = Fault::kNone;  // a magic amount's fault, applied by the server to this answer
};

// The fault that a magic amount (see Sandbox.h) asks for; kNone for any other amount.
Fault magicFault(std::int64_t amountMinor);

class Gateway {
 public:
  // `store` must outlive the gateway. `iv` is the environment's 16-character IV text.
  Gateway(Store& store, std::string iv, std::string baseURL, std::string environment,
          std::chrono::seconds paymentSession);

  Reply status(const std::string& body);
  Reply cancel(const std::string& body);
  Reply refund(const std::string& body);
  Reply paymentPage(const std::string& body);      // doMEPayRequest
  Reply cardPaymentPage(const std::string& body);  // doMEPayRequestCard
  Reply paymentInvoice(const std::string& body);   // POST from the card form or confirmation
  Reply invoiceWithoutPayment() const;             // GET paymentInvoice
  Reply index() const;

  std::optional<TransactionInfo> transaction(const std::string& mid, const std::string& orderId);

 private:
  enum class Operation { kStatus, kCancel, kRefund };

  Reply management(Operation operation, const std::string& body);
  Reply answerStatus(const std::string& key, const std::vector<std::string>& slots);
  Reply answerCancel(const std::string& key, const std::vector<std::string>& slots);
  Reply answerRefund(const std::string& key, const std::vector<std::string>& slots);
  Reply payment(bool cardCapture, const std::string& body);
  Reply sealed(const std::string& key, const std::vector<std::string>& fields) const;
  // Fails a payment still pending after the session's lifetime (and stores that).
  void expireIfStale(TxnRecord& record);

  Store& store_;
  const std::string iv_;
  const std::string baseURL_;
  const std::string environment_;
  const std::chrono::seconds paymentSession_;
  std::mutex mutex_;
};

// The payment page result of a completed payment: 22 fields joined by "|".
std::string paymentResult(const TxnRecord& record);

}  // namespace qipg::sandbox::internal
