// qipg::Client: validation, layout, sealing and parsing are the interface layer's (the builders'
// validators and messages, the envelope functions, CommonUtilities' parsers, QuandrelIPG's
// payment operations); this file adds the request structs, futures and callbacks, and
// cancellation (the extra checks are in ClientChecks, the error wording in ClientErrors).
// Management calls take the interface layer's wire path (client/ManagementWire) and post through
// the QuandrelIPG's transport directly, so that each call can be cancelled and its transport
// failure and HTTP status reach the caller.
#include "qipg/Client.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <exception>
#include <functional>
#include <future>
#include <optional>
#include <stop_token>
#include <utility>
#include <vector>

#include "client/QuandrelIPGImpl.h"
#include "cxx/ClientChecks.h"
#include "cxx/ClientErrors.h"
#include "net/CompletionPool.h"
#include "net/Events.h"
#include "net/Transport.h"
#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"
#include "qipg/QuandrelIPG.h"
#include "requests/RequestCommon.h"
#include "security/Wipe.h"

namespace qipg {
namespace {

using internal::kSuccess;
using internal::makeError;
using internal::Operation;
using internal::Transport;
using internal::TransportReply;
using Deliver = Client::Callback;

// Where a call's result goes: a promise, which may be fulfilled on any thread and at once, or
// the host's callback, which never runs on the caller's thread nor on the transfer thread.
struct Sink {
  Deliver deliver;
  bool runsHostCode = true;
};

PaymentResponse failedRecord() {
  PaymentResponse record;
  record.setStatusCode(std::string("F"));
  return record;
}

// What a management call needs once it is under way.
struct Call {
  Call(Operation operation, Sink sink, const Text& key, internal::CallEvents events)
      : operation(operation),
        deliver(std::move(sink.deliver)),
        key(key),
        events(std::move(events)) {}
  Operation operation;
  Deliver deliver;
  internal::SecretText key;
  internal::CallEvents events;
  std::int64_t journalEntry = 0;  // 0: not journaled
  // Cancels the transfer when the caller's token is stopped; kept until the call is released.
  std::optional<std::stop_callback<std::function<void()>>> onStop;
};

}  // namespace

struct Client::Impl : std::enable_shared_from_this<Client::Impl> {
  ~Impl() {
    internal::wipe(mid);
    internal::wipe(key);
  }

  std::shared_ptr<QuandrelIPG> ipg;
  std::shared_ptr<Transport> transport;
  std::string baseURL;
  Text mid;
  Text key;
  CallbackExecutor executor;
  CommonUtilities parsers;
  std::shared_ptr<Journal> journal;
  std::string environment;  // "test" or "production", as the journal names it
  EventHook eventHook;                          // as given
  std::shared_ptr<internal::EventSink> events;  // nullptr: no hook
  std::atomic<bool> shutDown{false};
  // Runs the callbacks of calls that end before anything is sent, which must not run on the
  // caller's thread.
  internal::CompletionPool early{1};

  // Ends a call that sent nothing: a promise at once, a callback on the early thread.
  void endEarly(Sink sink, Error error, const internal::CallEvents& events) {
    events.ended({}, error.kind, error.outcomeUnknown);
    if (!sink.runsHostCode) return sink.deliver(std::move(error));
    early.submit(
        [deliver = std::move(sink.deliver), error = std::move(error)]() { deliver(error); });
  }

  void manage(Operation operation, const std::string& orderID, const std::string& ref,
              const std::string* amount, std::stop_token stop, Sink sink);
  // The future and the callback form of a management call.
  std::future<Result<PaymentResponse>> promise(Operation operation, const std::string& orderID,
                                               const std::string& ref, const std::string* amount,
                                               std::stop_token stop);
  void callBack(Operation operation, const std::string& orderID, const std::string& ref,
                const std::string* amount, Callback callback, std::stop_token stop);
  Result<PaymentResponse> read(const Call& call, const TransportReply& reply) const;
  // Writes a cancel or refund to the journal before it leaves; its entry's id, 0 without a
  // journal, an error when the journal cannot take it.
  Result<std::int64_t> journalBegin(Operation operation, const std::string& orderID,
                                    const std::string& ref, const Text& amount);
  void journalEnd(const Call& call, const Result<PaymentResponse>& result) const;
  // Runs `task` where host callbacks run: the executor, else the early thread.
  void runHostCode(std::function<void()> task);
  void reconcile(std::function<void(Result<std::vector<JournalEntry>>)> deliver);
};

Result<std::int64_t> Client::Impl::journalBegin(Operation operation, const std::string& orderID,
                                                const std::string& ref, const Text& amount) {
  if (!journal || operation == Operation::Status) return std::int64_t{0};
  JournalEntry entry;
  entry.operation =
      operation == Operation::Cancel ? JournalOperation::Cancel : JournalOperation::Refund;
  entry.orderID = orderID;
  entry.transactionRefNumber = ref;
  entry.amount = amount.value_or("");
  entry.environment = environment;
  entry.baseURL = baseURL;
  return journal->begin(entry);
}

void Client::Impl::journalEnd(const Call& call, const Result<PaymentResponse>& result) const {
  if (call.journalEntry == 0) return;
  if (result) {
    journal->answered(call.journalEntry, result.value());
  } else {
    journal->failed(call.journalEntry, result.error());
  }
}

void Client::Impl::manage(Operation operation, const std::string& orderID, const std::string& ref,
                          const std::string* amount, std::stop_token stop, Sink sink) {
  internal::CallEvents events(this->events, internal::operationName(operation), orderID, ref,
                              baseURL);
  if (shutDown) {
    return endEarly(std::move(sink),
                    makeError(ErrorKind::ShutDown, "the client has been shut down"), events);
  }
  const Text money = amount ? Text(*amount) : Text();
  internal::ManagementMessage laidOut =
      internal::layOutManagement(operation, baseURL, orderID, ref, money, mid, key);
  std::string& verdict = laidOut.verdict;
  if (verdict == kSuccess && amount) {
    if (auto problem = internal::amountProblem(*amount)) verdict = *problem;
  }
  if (verdict != kSuccess || stop.stop_requested()) {
    internal::wipe(laidOut.message);
    return endEarly(std::move(sink), verdict != kSuccess
                                         ? makeError(ErrorKind::Input, verdict)
                                         : makeError(ErrorKind::Cancelled,
                                                     "the call was cancelled before it was sent"),
                    events);
  }

  const std::string envelope = encryptTextWithEncKey(laidOut.message, key);
  internal::wipe(laidOut.message);
  if (envelope.empty()) {
    return endEarly(
        std::move(sink),
        makeError(ErrorKind::Config, "the request could not be sealed with this merchant key"),
        events);
  }
  // A promise is fulfilled on the transfer thread as soon as the answer is in, so that a future
  // never waits for a completion thread (which a host callback may be holding, perhaps while it
  // waits for that very future). A callback goes to a completion thread.
  internal::PostOptions options = internal::managementPostOptions(operation);
  options.completeOnTransferThread = !sink.runsHostCode;
  Result<std::int64_t> entry = journalBegin(operation, orderID, ref, money);
  if (!entry) return endEarly(std::move(sink), entry.error(), events);
  auto call = std::make_shared<Call>(operation, std::move(sink), key, std::move(events));
  call->journalEntry = entry.value();
  const internal::RequestId id = transport->post(
      internal::formPostRequest(laidOut.url, internal::managementForm(operation, envelope, mid)),
      [self = shared_from_this(), call](const TransportReply& reply) {
        call->events.transferred(reply);
        Result<PaymentResponse> result = self->read(*call, reply);
        self->journalEnd(*call, result);
        if (result) {
          call->events.ended(result.value().statusCode().value_or(""), std::nullopt, false);
        } else {
          call->events.ended({}, result.error().kind, result.error().outcomeUnknown);
        }
        call->deliver(std::move(result));
      },
      options);
  if (stop.stop_possible()) {
    std::weak_ptr<Transport> weak = transport;
    call->onStop.emplace(std::move(stop), [weak, id] {
      if (auto alive = weak.lock()) alive->cancel(id);
    });
  }
}

Result<PaymentResponse> Client::Impl::read(const Call& call, const TransportReply& reply) const {
  if (reply.error) return internal::transportFailure(*reply.error, baseURL, call.operation);
  if (reply.httpStatus != 200) {
    return internal::httpFailure(reply.httpStatus, reply.answer, baseURL, call.operation);
  }
  Text plain = decryptTextWithDecryptionKey(reply.answer, call.key.value());
  internal::WipeOnExit wipePlain(plain);
  if (!plain || plain->empty()) {
    return internal::withOutcome(
        makeError(ErrorKind::Unreadable,
                  reply.answer
                      ? "the answer could not be opened with this merchant key (wrong key?)"
                      : "the gateway's answer is not text"),
        call.operation, true);
  }
  PaymentResponse record = call.operation == Operation::Status
                               ? parsers.getResponseFromString(plain)
                               : parsers.getCancelOrRefundPaymentResponse(plain);
  if (record == failedRecord()) {
    return internal::withOutcome(
        makeError(ErrorKind::Unreadable,
                  "the gateway's answer opened but could not be read as a record"),
        call.operation, true);
  }
  return record;
}

// ---------------------------------------------------------------- creation

Result<std::shared_ptr<Client>> Client::create(ClientOptions options) {
  struct WipeGivenKey {
    std::string& key;
    ~WipeGivenKey() { internal::wipe(key); }
  } wipeGivenKey{options.encryptionKey};
  try {
    if (Text problem = options.gateway.problem()) return makeError(ErrorKind::Config, *problem);
    if (auto problem = internal::placeholderProblem(options.gateway,
                                                    options.environment == Environment::Test)) {
      return makeError(ErrorKind::Config, *problem);
    }
    auto impl = std::make_shared<Impl>();
    impl->ipg = QuandrelIPG::create(
        options.environment == Environment::Test ? IPGEnvironmentTest : IPGEnvironmentProduction,
        options.gateway);
    if (impl->ipg) impl->transport = impl->ipg->impl_->transport_;
    if (!impl->ipg || !impl->transport) {
      return makeError(ErrorKind::Config,
                       "the client could not be set up: the HTTP transport did "
                       "not start");
    }
    impl->baseURL = impl->ipg->CurrentDomainURL();
    impl->environment = options.environment == Environment::Test ? "test" : "production";
    impl->executor = std::move(options.callbackExecutor);
    impl->eventHook = options.eventHook;
    impl->events = internal::EventSink::create(std::move(options.eventHook));
    if (!options.journalPath.empty()) {
      Result<std::shared_ptr<Journal>> journal = Journal::open(options.journalPath);
      if (!journal) return journal.error();
      impl->journal = std::move(journal.value());
    }
    if (options.merchantID.empty()) {
      impl->ipg->getMerchantIDandEncryptionKeyFromPList([&](const Text& mid, const Text& key) {
        impl->mid = mid;
        impl->key = key;
      });
      if (!internal::isFilled(impl->mid)) {
        return makeError(ErrorKind::Config,
                         "no merchant ID was given and Info.plist holds none (\"merchantID\")");
      }
    } else {
      impl->mid = options.merchantID;
      impl->key = options.encryptionKey;
    }
    if (!internal::isFilled(impl->key)) {
      return makeError(ErrorKind::Config, "no merchant key was given");
    }
    if (auto problem = internal::merchantKeyProblem(*impl->key)) {
      return makeError(ErrorKind::Config, *problem);
    }
    return std::shared_ptr<Client>(new Client(std::move(impl)));
  } catch (const std::exception& failure) {
    return makeError(ErrorKind::Config,
                     std::string("the client could not be set up: ") + failure.what());
  }
}

Client::Client(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

Client::~Client() { shutdown(); }

void Client::shutdown() {
  impl_->shutDown = true;
  impl_->ipg->shutdown();  // its transport is the client's
}

const std::string& Client::baseURL() const { return impl_->baseURL; }

const GatewayConfig& Client::config() const { return impl_->ipg->config(); }

EventHook Client::eventHook() const { return impl_->eventHook; }

// ---------------------------------------------------------------- management calls

namespace {

// Runs the caller's callback where the options say; its exceptions stay here.
Sink toCallback(const CallbackExecutor& executor, Client::Callback callback) {
  auto shared = std::make_shared<Client::Callback>(std::move(callback));
  return {[executor, shared](Result<PaymentResponse> result) {
            auto run = [shared, result = std::move(result)]() mutable {
              try {
                if (*shared) (*shared)(std::move(result));
              } catch (...) {
                // The callback's failure is the host's; the client goes on.
              }
            };
            if (!executor) return run();
            try {
              executor(std::move(run));
            } catch (...) {
              // An executor that throws loses the callback; nothing else can be done here.
            }
          },
          true};
}

struct Promised {
  Sink sink;
  std::future<Result<PaymentResponse>> future;
};

Promised toFuture() {
  auto promise = std::make_shared<std::promise<Result<PaymentResponse>>>();
  std::future<Result<PaymentResponse>> future = promise->get_future();
  return {
      {[promise](Result<PaymentResponse> result) { promise->set_value(std::move(result)); }, false},
      std::move(future)};
}

}  // namespace

std::future<Result<PaymentResponse>> Client::Impl::promise(Operation operation,
                                                           const std::string& orderID,
                                                           const std::string& ref,
                                                           const std::string* amount,
                                                           std::stop_token stop) {
  Promised promised = toFuture();
  manage(operation, orderID, ref, amount, std::move(stop), std::move(promised.sink));
  return std::move(promised.future);
}

void Client::Impl::callBack(Operation operation, const std::string& orderID, const std::string& ref,
                            const std::string* amount, Callback callback, std::stop_token stop) {
  manage(operation, orderID, ref, amount, std::move(stop),
         toCallback(executor, std::move(callback)));
}

std::future<Result<PaymentResponse>> Client::status(const TransactionQuery& query,
                                                    std::stop_token stop) {
  return impl_->promise(Operation::Status, query.orderID, query.transactionRefNumber, nullptr,
                        std::move(stop));
}

void Client::status(const TransactionQuery& query, Callback callback, std::stop_token stop) {
  impl_->callBack(Operation::Status, query.orderID, query.transactionRefNumber, nullptr,
                  std::move(callback), std::move(stop));
}

std::future<Result<PaymentResponse>> Client::cancel(const TransactionQuery& query,
                                                    std::stop_token stop) {
  return impl_->promise(Operation::Cancel, query.orderID, query.transactionRefNumber, nullptr,
                        std::move(stop));
}

void Client::cancel(const TransactionQuery& query, Callback callback, std::stop_token stop) {
  impl_->callBack(Operation::Cancel, query.orderID, query.transactionRefNumber, nullptr,
                  std::move(callback), std::move(stop));
}

std::future<Result<PaymentResponse>> Client::refund(const RefundQuery& query,
                                                    std::stop_token stop) {
  return impl_->promise(Operation::Refund, query.orderID, query.transactionRefNumber, &query.amount,
                        std::move(stop));
}

void Client::refund(const RefundQuery& query, Callback callback, std::stop_token stop) {
  impl_->callBack(Operation::Refund, query.orderID, query.transactionRefNumber, &query.amount,
                  std::move(callback), std::move(stop));
}

// ---------------------------------------------------------------- the journal

std::shared_ptr<Journal> Client::journal() const { return impl_->journal; }

Result<std::vector<JournalEntry>> Client::unresolved() const {
  if (!impl_->journal) return makeError(ErrorKind::Config, "this client has no journal");
  return impl_->journal->entries(true);
}

void Client::Impl::runHostCode(std::function<void()> task) {
  if (!executor) return early.submit(std::move(task));
  try {
    executor(std::move(task));
  } catch (...) {
    // An executor that throws loses the callback; nothing else can be done here.
  }
}

void Client::Impl::reconcile(std::function<void(Result<std::vector<JournalEntry>>)> deliver) {
  Result<std::vector<JournalEntry>> unresolved =
      journal ? journal->entries(true)
              : Result<std::vector<JournalEntry>>(
                    makeError(ErrorKind::Config, "this client has no journal"));
  if (!unresolved || unresolved.value().empty()) return deliver(std::move(unresolved));

  // Every entry's status call runs at once; the last answer delivers them all.
  struct Round {
    std::vector<JournalEntry> entries;
    std::atomic<std::size_t> left;
    std::function<void(Result<std::vector<JournalEntry>>)> deliver;
  };
  auto round = std::make_shared<Round>();
  round->entries = std::move(unresolved.value());
  round->left = round->entries.size();
  round->deliver = std::move(deliver);
  auto settle = [self = shared_from_this(), round](JournalEntry& entry,
                                                   const Result<PaymentResponse>& status) {
    if (status) {
      const std::optional<JournalState> state = reconciledState(entry.operation, status.value());
      entry.state = state.value_or(entry.state);
      entry.status = status.value();
      entry.reconcileError =
          state ? "" : "the gateway shows the payment pending; reconcile again later";
    } else {
      entry.reconcileError = status.error().toString();
    }
    self->journal->reconciled(entry);
    if (self->events) {
      self->events->emitAbout(
          EventKind::Reconciled, std::string(journalOperationName(entry.operation)),
          entry.orderID, entry.transactionRefNumber, entry.baseURL,
          status ? status.value().statusCode().value_or("") : "",
          status ? std::nullopt : std::optional(status.error().kind));
    }
    if (--round->left == 0) round->deliver(std::move(round->entries));
  };
  for (JournalEntry& entry : round->entries) {
    if (entry.baseURL != baseURL) {
      settle(entry, makeError(ErrorKind::Config, "recorded for the gateway at " + entry.baseURL +
                                                     "; reconcile it with a client of that gateway"));
      continue;
    }
    manage(Operation::Status, entry.orderID, entry.transactionRefNumber, nullptr, {},
           {[settle, &entry](Result<PaymentResponse> status) mutable { settle(entry, status); },
            false});
  }
}

std::future<Result<std::vector<JournalEntry>>> Client::reconcile() {
  auto promise = std::make_shared<std::promise<Result<std::vector<JournalEntry>>>>();
  auto future = promise->get_future();
  impl_->reconcile([promise](Result<std::vector<JournalEntry>> entries) {
    promise->set_value(std::move(entries));
  });
  return future;
}

void Client::reconcile(ReconcileCallback callback) {
  auto shared = std::make_shared<ReconcileCallback>(std::move(callback));
  impl_->reconcile([impl = impl_, shared](Result<std::vector<JournalEntry>> entries) {
    impl->runHostCode([shared, entries = std::move(entries)]() mutable {
      try {
        if (*shared) (*shared)(std::move(entries));
      } catch (...) {
        // The callback's failure is the host's; the client goes on.
      }
    });
  });
}

// ---------------------------------------------------------------- payments

namespace {

// The interface's type codes: 0 authorises only ("P"), 1 also captures ("S").
std::uint64_t typeCode(TransactionType type) {
  return type == TransactionType::PreAuthorisation ? 0 : 1;
}

// Catches the failure message QuandrelIPG hands its delegate during a payment call.
struct Refusal {
  std::string message;
  std::shared_ptr<IPGResponseDelegate> delegate =
      makeResponseDelegate({}, {}, [this](const std::string& text) { message = text; });
  Refusal() = default;
  Refusal(const Refusal&) = delete;
  Refusal& operator=(const Refusal&) = delete;
};

std::tm nowUtc() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm parts{};
  gmtime_r(&now, &parts);
  return parts;
}

}  // namespace

Result<URLRequest> Client::standardPayment(const StandardPayment& payment) {
  const AdditionalFields& f = payment.additionalFields;
  Refusal refusal;
  std::optional<URLRequest> request = impl_->ipg->getStandardPaymentRequest(
      payment.orderID, payment.amount, payment.currency, payment.description,
      typeCode(payment.type), f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9],
      impl_->mid, impl_->key, refusal.delegate);
  if (!request) return makeError(ErrorKind::Input, refusal.message);
  if (auto problem = internal::amountProblem(payment.amount)) {
    return makeError(ErrorKind::Input, *problem);
  }
  return std::move(*request);
}

Result<URLRequest> Client::cardCapturePayment(CardCapturePayment payment) {
  Card& card = payment.card;
  Text number = card.number, expiry = card.expiry, cvv = card.cvv;
  for (std::string* secret : {&card.number, &card.expiry, &card.cvv}) internal::wipe(*secret);
  internal::WipeOnExit wipeNumber(number), wipeExpiry(expiry), wipeCvv(cvv);

  const AdditionalFields& f = payment.additionalFields;
  Refusal refusal;
  std::optional<URLRequest> request = impl_->ipg->getCardCapturePaymentRequest(
      payment.orderID, payment.amount, payment.currency, payment.description,
      typeCode(payment.type), card.holderName, number, expiry, cvv,
      payment.paymentType == PaymentType::CreditCard ? 0 : 1, f[0], f[1], f[2], f[3], f[4], f[5],
      f[6], f[7], f[8], f[9], impl_->mid, impl_->key, refusal.delegate);
  if (!request) return makeError(ErrorKind::Input, refusal.message);
  const std::tm now = nowUtc();
  std::optional<std::string> problem = internal::amountProblem(payment.amount);
  if (!problem) problem = internal::cardNumberProblem(*number);
  if (!problem) problem = internal::expiryProblem(*expiry, now.tm_year + 1900, now.tm_mon + 1);
  if (!problem) problem = internal::cvvProblem(*cvv);
  if (problem) return makeError(ErrorKind::Input, *problem);
  return std::move(*request);
}

}  // namespace qipg
