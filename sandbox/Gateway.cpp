#include "Gateway.h"

#include "Cards.h"
#include "GatewayCrypto.h"
#include "Pages.h"
#include "Text.h"

#include <ctime>

namespace qipg::sandbox::internal {
namespace {

constexpr std::size_t kManagementSlots = 14;
constexpr std::size_t kStandardSlots = 20;
constexpr std::size_t kCardSlots = 26;

constexpr char kPlain[] = "text/plain; charset=utf-8";
constexpr char kHtml[] = "text/html; charset=utf-8";

// A copy of secret text (a merchant key, a decrypted message), wiped when released.
class Secret {
 public:
  explicit Secret(std::string value) : value_(std::move(value)) {}
  ~Secret() { wipe(value_); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  const std::string& get() const { return value_; }

 private:
  std::string value_;
};

// Message slots, wiped when released (card-capture messages carry the card number and CVV).
class Slots {
 public:
  explicit Slots(std::vector<std::string> slots) : slots_(std::move(slots)) {}
  ~Slots() { wipe(slots_); }
  Slots(const Slots&) = delete;
  Slots& operator=(const Slots&) = delete;
  const std::vector<std::string>& get() const { return slots_; }

 private:
  std::vector<std::string> slots_;
};

Reply plainRefusal(const std::string& reason) { return {400, kPlain, reason + "\n"}; }

Reply pageRefusal(const std::string& reason, int status = 400) {
  return {status, kHtml, errorPage("Payment request refused", reason)};
}

std::string join(const std::vector<std::string>& fields) {
  std::string out;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) out.push_back('|');
    out += fields[i];
  }
  return out;
}

// How a transaction reads in a status answer.
struct StateView {
  std::string code;
  std::string description;
  std::string authN;
  std::string authZ;
  std::string capture;
};

StateView view(const TxnRecord& r) {
  switch (r.state) {
    case TxnState::kPending:
      return {"P", "Payment pending: the customer has not completed it", "N", "N", "N"};
    case TxnState::kAuthorized:
      return {"S", "Authorised, not captured", "Y", "Y", "N"};
    case TxnState::kCaptured:
      if (r.refundedMinor >= r.capturedMinor && r.refundedMinor > 0) {
        return {"R", "Fully refunded", "Y", "Y", "Y"};
      }
      if (r.refundedMinor > 0) {
        return {"R",
                "Partially refunded: " + formatAmount(r.refundedMinor) + " of " +
                    formatAmount(r.capturedMinor) + " " + r.currency,
                "Y", "Y", "Y"};
      }
      return {"S", "Captured", "Y", "Y", "Y"};
    case TxnState::kFailed:
      return {"F", r.resultDesc, r.authnStatus.empty() ? "N" : r.authnStatus, "N", "N"};
    case TxnState::kCancelled:
      return {"C", "Cancelled", "Y", "Y", "N"};
  }
  return {"F", "Unknown state", "N", "N", "N"};
}

std::string upperHex(std::size_t bytes) {
  std::string s = randomHex(bytes);
  for (char& c : s) {
    if (c >= 'a' && c <= 'f') c = static_cast<char>(c - 'a' + 'A');
  }
  return s;
}

// Applies a charge outcome to a pending payment.
void complete(TxnRecord& r, CardOutcome outcome, const std::string& reason,
              const std::string& responseCode) {
  r.completedAt = utcNow();
  r.responseCode = responseCode;
  if (outcome == CardOutcome::kInvalid) {
    r.authnStatus = "N";
  } else {
    r.authnStatus = "Y";
    r.rrn = randomDigits(12);
  }
  if (outcome != CardOutcome::kApproved) {
    r.state = TxnState::kFailed;
    r.resultCode = "F";
    r.resultDesc = reason;
    return;
  }
  r.authzCode = upperHex(3);
  r.resultCode = "S";
  if (r.requestType == "P") {
    r.state = TxnState::kAuthorized;
    r.resultDesc = "Authorised, not captured";
  } else {
    r.state = TxnState::kCaptured;
    r.capturedMinor = r.amountMinor;
    r.resultDesc = "Transaction successful";
  }
}

std::string stripSeparators(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c != ' ' && c != '\t' && c != '-' && c != '/') out.push_back(c);
  }
  return out;
}

TransactionInfo info(const TxnRecord& r) {
  const StateView v = view(r);
  TransactionInfo t;
  t.mid = r.mid;
  t.orderId = r.orderId;
  t.referenceNo = r.referenceNo;
  t.state = stateName(r.state);
  t.statusCode = v.code;
  t.statusDescription = v.description;
  t.requestType = r.requestType;
  t.payType = r.payType;
  t.currency = r.currency;
  t.responseUrl = r.responseUrl;
  t.cardLast4 = r.cardLast4;
  t.cardMasked = r.cardMasked;
  t.amountMinor = r.amountMinor;
  t.capturedMinor = r.capturedMinor;
  t.refundedMinor = r.refundedMinor;
  return t;
}

}  // namespace

Fault magicFault(std::int64_t amountMinor) {
  switch (amountMinor % 100) {
    case kMagicDelayCents:
      return Fault::kDelay;
    case kMagicHttp500Cents:
      return Fault::kHttp500;
    case kMagicCloseCents:
      return Fault::kClose;
    default:
      return Fault::kNone;
  }
}

std::string paymentResult(const TxnRecord& r) {
  std::vector<std::string> f = {
      r.orderId,
      r.referenceNo,
      r.rrn,
      r.resultCode,
      r.resultDesc,
      formatAmount(r.amountMinor),
      r.completedAt,
      r.authnStatus,
      r.authzCode,
      r.state == TxnState::kCaptured ? "Y" : "N",
      r.lastOperationId,
      r.refundedMinor > 0 ? formatAmount(r.refundedMinor) : std::string(),
  };
  for (const std::string& a : r.additional) f.push_back(a);
  f.resize(22);
  // No field may hold the separator: descriptions are the sandbox's own, the rest came out of
  // a message split at "|".
  for (std::string& field : f) {
    for (char& c : field) {
      if (c == '|') c = '/';
    }
  }
  return join(f);
}

Gateway::Gateway(Store& store, std::string iv, std::string baseURL, std::string environment,
                 std::chrono::seconds paymentSession)
    : store_(store),
      iv_(std::move(iv)),
      baseURL_(std::move(baseURL)),
      environment_(std::move(environment)),
      paymentSession_(paymentSession) {}

void Gateway::expireIfStale(TxnRecord& r) {
  if (r.state != TxnState::kPending) return;
  std::tm created{};
  const char* end = strptime(r.createdAt.c_str(), "%Y-%m-%d %H:%M:%S", &created);
  if (end == nullptr || *end != '\0') return;
  if (std::time(nullptr) - timegm(&created) < paymentSession_.count()) return;
  complete(r, CardOutcome::kInvalid, "Payment session expired: the customer did not complete it",
           "");
  store_.saveOutcome(r);
}

Reply Gateway::status(const std::string& body) { return management(Operation::kStatus, body); }
Reply Gateway::cancel(const std::string& body) { return management(Operation::kCancel, body); }
Reply Gateway::refund(const std::string& body) { return management(Operation::kRefund, body); }

Reply Gateway::sealed(const std::string& key, const std::vector<std::string>& fields) const {
  std::string envelope = sealEnvelope(join(fields), key, iv_);
  if (envelope.empty()) return {500, kPlain, "internal error: the answer could not be sealed\n"};
  return {200, kPlain, std::move(envelope)};
}

Reply Gateway::management(Operation operation, const std::string& body) {
  const auto form = splitForm(body);
  // The status form names the MID "mid", cancel and refund "MID".
  const char* midName = operation == Operation::kStatus ? "mid" : "MID";
  const auto rawMid = rawField(form, midName);
  if (!rawMid) return plainRefusal(std::string("missing form field ") + midName);
  const std::string mid = percentDecode(*rawMid, true);

  std::lock_guard<std::mutex> lock(mutex_);
  auto storedKey = store_.merchantKey(mid);
  if (!storedKey) return plainRefusal("unknown merchant ID");
  const Secret key(std::move(*storedKey));

  // A refusal that can be sealed: every field empty but the status and its description.
  const std::size_t answerFields = operation == Operation::kStatus ? 22 : 16;
  const std::size_t codeAt = operation == Operation::kStatus ? 10 : 4;
  auto refuse = [&](const std::string& description) {
    std::vector<std::string> f(answerFields);
    f[codeAt] = "F";
    f[codeAt + 1] = description;
    return sealed(key.get(), f);
  };

  const auto envelope = rawField(form, "merchantReqStrT");
  if (!envelope) return refuse("Missing form field merchantReqStrT");
  auto plain = openEnvelope(percentDecode(*envelope, false), key.get(), iv_);
  if (!plain) return refuse("The request could not be decrypted with this merchant's key");
  const Secret message(std::move(*plain));
  const Slots slots(splitPipes(message.get()));
  if (slots.get().size() != kManagementSlots) {
    return refuse("Wrong message layout: expected 14 fields, got " +
                  std::to_string(slots.get().size()));
  }
  if (slots.get()[0] != mid) return refuse("The MID in the message does not match the form");

  switch (operation) {
    case Operation::kStatus:
      return answerStatus(key.get(), slots.get());
    case Operation::kCancel:
      return answerCancel(key.get(), slots.get());
    case Operation::kRefund:
      return answerRefund(key.get(), slots.get());
  }
  return refuse("Unknown operation");
}

Reply Gateway::answerStatus(const std::string& key, const std::vector<std::string>& slots) {
  // MID|order|reference|eleven empty fields
  const std::string& mid = slots[0];
  const std::string& orderId = slots[1];
  const std::string& ref = slots[2];
  std::vector<std::string> f(22);
  f[0] = ref;
  f[1] = orderId;
  auto answer = [&](const std::string& code, const std::string& description) {
    f[10] = code;
    f[11] = description;
    return sealed(key, f);
  };
  if (!isAlphanumeric(orderId, 30)) return answer("F", "Invalid order ID");
  if (!ref.empty() && !isDigits(ref)) return answer("F", "Invalid transaction reference number");
  auto record = store_.byOrder(mid, orderId);
  if (!record) return answer("F", "Transaction not found");
  expireIfStale(*record);
  if (!ref.empty() && ref != record->referenceNo) {
    return answer("F", "Transaction not found: the reference number does not match the order");
  }
  const TxnRecord& r = *record;
  const StateView v = view(r);
  f = {r.referenceNo,
       r.orderId,
       formatAmount(r.amountMinor),
       v.authN,
       v.authZ,
       v.capture,
       r.rrn,
       r.authzCode,
       r.responseCode,
       r.completedAt.empty() ? r.createdAt : r.completedAt,
       v.code,
       v.description};
  for (const std::string& a : r.additional) f.push_back(a);
  f.resize(22);
  Reply reply = sealed(key, f);
  reply.fault = magicFault(r.amountMinor);
  return reply;
}

namespace {

// A cancel or refund request's 14 slots (MID|order|reference|amount|add1..add10, "-" for
// empty) and the 16-field answer made from them.
struct OperationAnswer {
  explicit OperationAnswer(const std::vector<std::string>& slots)
      : mid(slots[0]),
        orderId(slotValue(slots[1])),
        ref(slotValue(slots[2])),
        amount(slotValue(slots[3])),
        f(16) {
    f[0] = ref;
    f[1] = orderId;
    for (std::size_t i = 0; i < 10; ++i) f[6 + i] = slotValue(slots[4 + i]);
  }
  // Why the order id or reference number cannot name a transaction; absent when they can.
  std::optional<std::string> invalidIdentifiers() const {
    if (!isAlphanumeric(orderId, 30)) return "invalid order ID";
    if (!isDigits(ref)) return "invalid transaction reference number";
    return std::nullopt;
  }
  const std::vector<std::string>& fields(const std::string& code, const std::string& description) {
    f[4] = code;
    f[5] = description;
    return f;
  }
  std::string mid, orderId, ref, amount;
  std::vector<std::string> f;  // transactionReferenceNo|orderID|pgRefCancelReqID|refundAmount|...
};

}  // namespace

Reply Gateway::answerCancel(const std::string& key, const std::vector<std::string>& slots) {
  // MID|order|reference|amount|add1..add10, "-" for empty
  OperationAnswer op(slots);
  auto answer = [&](const std::string& code, const std::string& description) {
    return sealed(key, op.fields(code, description));
  };
  const std::string& amount = op.amount;
  if (auto refusal = op.invalidIdentifiers()) return answer("F", "Cancel refused: " + *refusal);
  auto record = store_.byOrder(op.mid, op.orderId);
  if (!record || record->referenceNo != op.ref) {
    return answer("F", "Cancel refused: transaction not found");
  }
  TxnRecord& r = *record;
  if (!amount.empty()) {
    const auto minor = parseAmount(amount);
    if (!minor || *minor == 0) return answer("F", "Cancel refused: invalid amount");
    if (*minor != r.amountMinor) {
      return answer("F", "Cancel refused: partial cancellation is not supported");
    }
  }
  switch (r.state) {
    case TxnState::kAuthorized:
      break;
    case TxnState::kCaptured:
      return answer("F", "Cancel refused: the transaction is captured; refund it instead");
    case TxnState::kCancelled:
      return answer("F", "Cancel refused: the transaction is already cancelled");
    case TxnState::kFailed:
      return answer("F", "Cancel refused: the transaction did not succeed");
    case TxnState::kPending:
      return answer("F", "Cancel refused: the payment is still pending");
  }
  r.state = TxnState::kCancelled;
  const auto operationId = store_.saveOperation(r, "cancel", r.amountMinor);
  if (!operationId) return answer("F", "Cancel failed: the sandbox could not store it");
  op.f[2] = *operationId;
  Reply reply = answer("S", "Transaction cancelled");
  reply.fault = magicFault(r.amountMinor);
  return reply;
}

Reply Gateway::answerRefund(const std::string& key, const std::vector<std::string>& slots) {
  OperationAnswer op(slots);
  op.f[3] = op.amount;
  auto answer = [&](const std::string& code, const std::string& description) {
    return sealed(key, op.fields(code, description));
  };
  if (auto refusal = op.invalidIdentifiers()) return answer("F", "Refund refused: " + *refusal);
  if (op.amount.empty()) return answer("F", "Refund refused: the amount is missing");
  const auto minor = parseAmount(op.amount);
  if (!minor || *minor == 0) return answer("F", "Refund refused: invalid amount");
  auto record = store_.byOrder(op.mid, op.orderId);
  if (!record || record->referenceNo != op.ref) {
    return answer("F", "Refund refused: transaction not found");
  }
  TxnRecord& r = *record;
  switch (r.state) {
    case TxnState::kCaptured:
      break;
    case TxnState::kAuthorized:
      return answer("F", "Refund refused: the transaction is not captured; cancel it instead");
    case TxnState::kCancelled:
      return answer("F", "Refund refused: the transaction is cancelled");
    case TxnState::kFailed:
      return answer("F", "Refund refused: the transaction did not succeed");
    case TxnState::kPending:
      return answer("F", "Refund refused: the payment is still pending");
  }
  const std::int64_t left = r.capturedMinor - r.refundedMinor;
  if (left <= 0) return answer("F", "Refund refused: the transaction is already fully refunded");
  if (*minor > left) {
    return answer("F", "Refund refused: the amount exceeds the refundable balance of " +
                           formatAmount(left) + " " + r.currency);
  }
  r.refundedMinor += *minor;
  const auto operationId = store_.saveOperation(r, "refund", *minor);
  if (!operationId) return answer("F", "Refund failed: the sandbox could not store it");
  op.f[2] = *operationId;
  op.f[3] = formatAmount(*minor);
  const std::int64_t rest = r.capturedMinor - r.refundedMinor;
  Reply reply =
      answer("S", "Refund of " + formatAmount(*minor) + " " + r.currency + " accepted; " +
                      (rest == 0 ? std::string("fully refunded")
                                 : formatAmount(rest) + " " + r.currency + " left to refund"));
  reply.fault = magicFault(*minor) != Fault::kNone ? magicFault(*minor) : magicFault(r.amountMinor);
  return reply;
}

Reply Gateway::paymentPage(const std::string& body) { return payment(false, body); }
Reply Gateway::cardPaymentPage(const std::string& body) { return payment(true, body); }

Reply Gateway::payment(bool cardCapture, const std::string& body) {
  const auto form = splitForm(body);
  const auto rawMid = rawField(form, "MID");
  if (!rawMid) return pageRefusal("The form has no MID field.");
  const auto envelope = rawField(form, "merchantRequest");
  if (!envelope) return pageRefusal("The form has no merchantRequest field.");
  const std::string mid = percentDecode(*rawMid, true);

  std::lock_guard<std::mutex> lock(mutex_);
  auto storedKey = store_.merchantKey(mid);
  if (!storedKey) return pageRefusal("Unknown merchant ID.");
  const Secret key(std::move(*storedKey));
  // A browser form encodes the envelope once more: "%2B" arrives as "%252B". One decoding
  // pass, then openEnvelope reads any remaining "%2B" as "+".
  auto plain = openEnvelope(percentDecode(*envelope, false), key.get(), iv_);
  if (!plain)
    return pageRefusal(
        "The payment request could not be decrypted with this "
        "merchant's key.");
  const Secret message(std::move(*plain));
  const Slots holder(splitPipes(message.get()));
  const std::vector<std::string>& s = holder.get();
  const std::size_t expected = cardCapture ? kCardSlots : kStandardSlots;
  if (s.size() != expected) {
    return pageRefusal("Wrong message layout: expected " + std::to_string(expected) +
                       " fields, got " + std::to_string(s.size()) + ".");
  }
  if (s[0] != mid) return pageRefusal("The MID in the message does not match the form.");

  TxnRecord r;
  r.mid = mid;
  r.orderId = s[1];
  if (!isAlphanumeric(r.orderId, 30)) {
    return pageRefusal("Invalid order ID: 1 to 30 letters and digits.");
  }
  const auto amount = parseAmount(s[2]);
  if (!amount || *amount == 0) {
    return pageRefusal("Invalid amount: a positive decimal with at most two decimals.");
  }
  r.amountMinor = *amount;
  r.currency = slotValue(s[3]);
  if (cardCapture && r.currency.empty()) r.currency = "INR";
  if (r.currency != "INR" && r.currency != "USD") {
    return pageRefusal("Unsupported currency: INR and USD only.");
  }
  r.remarks = slotValue(s[4]);
  r.requestType = s[5];
  if (r.requestType != "S" && r.requestType != "P" && r.requestType != "R") {
    return pageRefusal("Invalid request type: S (sale), P (authorisation) or R (recurring).");
  }
  if (r.requestType == "R" &&
      (slotValue(s[6]).empty() || slotValue(s[7]).empty() || slotValue(s[8]).empty())) {
    return pageRefusal("A recurring payment needs its period, day and number of payments.");
  }
  r.responseUrl = slotValue(s[9]);
  if (r.responseUrl.empty()) return pageRefusal("The response URL is missing.");
  for (std::size_t i = 0; i < 10; ++i) r.additional[i] = slotValue(s[10 + i]);

  if (cardCapture) {
    r.flow = "card";
    r.payType = s[20];
    if (r.payType == "NB") {
      r.bankCode = slotValue(s[25]);
      if (r.bankCode.empty() || r.bankCode == "NA") {
        return pageRefusal("Net banking needs a bank code.");
      }
      r.preparedOutcome = outcomeName(CardOutcome::kApproved);
      r.preparedCode = "00";
    } else if (r.payType == "CC" || r.payType == "DC" || r.payType == "CUG" || r.payType == "NA") {
      const CardCheck check =
          checkCard(slotValue(s[21]), slotValue(s[22]), slotValue(s[23]), slotValue(s[24]));
      r.preparedOutcome = outcomeName(check.outcome);
      r.preparedReason = check.reason;
      r.preparedCode = check.responseCode;
      r.cardLast4 = check.last4;
      r.cardMasked = check.masked;
    } else {
      return pageRefusal("Unsupported payment type: CC, DC, CUG, NA or NB.");
    }
  } else {
    r.flow = "standard";
    r.payType = "CC";
  }

  if (const auto existing = store_.byOrder(mid, r.orderId);
      existing && existing->state != TxnState::kPending) {
    return pageRefusal("Order ID " + r.orderId + " was already used (transaction " +
                       existing->referenceNo + ").");
  }
  r.token = randomHex(16);
  if (r.token.empty() || !store_.savePending(r)) {
    return pageRefusal("The sandbox could not store the payment.", 500);
  }
  return {200, kHtml, cardCapture ? confirmationPage(r) : cardFormPage(r)};
}

Reply Gateway::paymentInvoice(const std::string& body) {
  const auto form = splitForm(body);
  const std::string token = formValue(form, "token").value_or("");
  std::lock_guard<std::mutex> lock(mutex_);
  auto record = store_.byToken(token);
  if (!record) {
    return {404, kHtml,
            errorPage("No such payment",
                      "This payment session is unknown. Start the payment "
                      "again from the merchant.")};
  }
  TxnRecord& r = *record;
  expireIfStale(r);
  if (r.state == TxnState::kPending) {
    if (r.flow == "standard") {
      std::string number = stripSeparators(formValue(form, "cardNumber").value_or(""));
      std::string cvv = formValue(form, "cvv").value_or("");
      const CardCheck check =
          checkCard(number, stripSeparators(formValue(form, "expiry").value_or("")), cvv,
                    formValue(form, "holder").value_or(""));
      wipe(number);
      wipe(cvv);
      r.cardLast4 = check.last4;
      r.cardMasked = check.masked;
      complete(r, check.outcome, check.reason, check.responseCode);
    } else {
      complete(r, outcomeFromName(r.preparedOutcome), r.preparedReason, r.preparedCode);
    }
    if (!store_.saveOutcome(r)) {
      return {500, kHtml,
              errorPage("Payment not completed", "The sandbox could not store the payment.")};
    }
  }
  const bool own = r.responseUrl == baseURL_ + "paymentInvoice";
  return {200, kHtml, finalPage(r, paymentResult(r), own)};
}

Reply Gateway::invoiceWithoutPayment() const {
  return {400, kHtml,
          errorPage("No payment in progress",
                    "This page shows the result of a payment made on the sandbox's payment "
                    "pages.")};
}

Reply Gateway::index() const { return {200, kHtml, indexPage(baseURL_, environment_)}; }

std::optional<TransactionInfo> Gateway::transaction(const std::string& mid,
                                                    const std::string& orderId) {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto record = store_.byOrder(mid, orderId);
  if (!record) return std::nullopt;
  return info(*record);
}

}  // namespace qipg::sandbox::internal
