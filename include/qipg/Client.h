/// @file
/// qipg::Client: the C++ way to use the gateway: request structs, futures or callbacks, typed
/// errors and cancellation with std::stop_token.
#pragma once

#include <functional>
#include <future>
#include <memory>
#include <stop_token>
#include <vector>

#include "qipg/ClientOptions.h"
#include "qipg/ClientRequests.h"
#include "qipg/Error.h"
#include "qipg/Export.h"
#include "qipg/Journal.h"
#include "qipg/PaymentResponse.h"
#include "qipg/Result.h"
#include "qipg/URLRequest.h"

namespace qipg {

/// A client of one gateway for one merchant, built on QuandrelIPG, its request builders, the
/// envelope and the answer parsers.
///
/// Thread-safe: one client may be used from any number of threads at once. Every call uses the
/// credentials fixed at creation, so calls never race on shared credential fields.
///
/// Status, cancel and refund each come in two forms, each with an optional std::stop_token:
/// - returning a std::future, fulfilled on the network thread as soon as the answer is in (at
///   once, on the calling thread, for a call that ends before anything is sent); never through
///   a completion thread or the callback executor, so a callback may wait for one;
/// - taking a callback, run on ClientOptions::callbackExecutor when one is set, else on the
///   client's completion threads; never on the thread that made the call and never on the
///   network thread. Exceptions thrown by a callback are caught and dropped.
///
/// A cancel or refund goes out at most once: when its connection dies after the request was
/// sent, the call ends with Error::outcomeUnknown instead of being sent again.
///
/// Every call completes exactly once. A readable answer is a value, even when the gateway's
/// statusCode is "F": that is the gateway's verdict, with its statusDescription. An Error is
/// only for "no usable answer"; see ErrorKind and Error::outcomeUnknown.
///
/// Stopping the token of a call under way closes its connection and completes the call with
/// ErrorKind::Cancelled; a token already stopped completes it so without sending anything.
///
/// Always shared-owned. Destroying (or shutting down) the client completes every call under way
/// with ErrorKind::ShutDown.
class QIPG_EXPORT Client {
 public:
  /// Receives a call's result, exactly once, on the options' callbackExecutor or else on one of
  /// the client's completion threads; never on the caller's thread.
  using Callback = std::function<void(Result<PaymentResponse>)>;

  /// Makes a client. The only possible error is Config: the gateway configuration has a problem
  /// (its GatewayConfig::problem() text), the selected gateway's base URL is still the built-in
  /// placeholder, no merchant ID is given and Info.plist has none, the merchant key is missing
  /// or not 32 letters and digits, the journal cannot be opened, or the transport cannot
  /// start. Like QuandrelIPG::create it
  /// stores the gateway's envelope IV for the process.
  [[nodiscard]] static Result<std::shared_ptr<Client>> create(ClientOptions options);

  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /// The state of an earlier payment (nothing changes at the gateway).
  ///
  /// Errors, all with Error::outcomeUnknown false since an inquiry changes nothing:
  /// - Input: the order ID or reference number was refused; nothing was sent.
  /// - Config: the request could not be sealed with the merchant key; nothing was sent.
  /// - Network, Timeout, Tls: no answer came (refused or lost connection, unknown host, no answer
  ///   in time, an untrusted certificate or a failed handshake).
  /// - Http: the gateway answered with a status other than 200 (Error::httpStatus).
  /// - Unreadable: the answer did not open with the merchant key or is not a record.
  /// - Cancelled: `stop` was stopped, before sending or during the transfer.
  /// - ShutDown: the client was shut down before the call or before its answer.
  std::future<Result<PaymentResponse>> status(const TransactionQuery& query,
                                              std::stop_token stop = {});
  /// status() with a callback instead of a future.
  void status(const TransactionQuery& query, Callback callback, std::stop_token stop = {});

  /// Cancels a pre-authorisation that was not captured.
  ///
  /// Errors: the same kinds as status(), and Journal when the client's journal cannot record
  /// the call (nothing was sent). Error::outcomeUnknown is true, and the message says to
  /// confirm with a status inquiry before retrying, when the request may have reached the
  /// gateway: Network, Timeout, Tls, Cancelled or ShutDown once the request was sent, and every
  /// Http and Unreadable error.
  std::future<Result<PaymentResponse>> cancel(const TransactionQuery& query,
                                              std::stop_token stop = {});
  /// cancel() with a callback instead of a future.
  void cancel(const TransactionQuery& query, Callback callback, std::stop_token stop = {});

  /// Gives back part or all of a captured payment.
  ///
  /// Errors: the same kinds as cancel(), with outcomeUnknown set the same way; Input also when
  /// the amount is not greater than zero or has more than two decimals. A refund whose outcome
  /// is unknown may already have been applied: retried blindly, it may be applied twice.
  std::future<Result<PaymentResponse>> refund(const RefundQuery& query, std::stop_token stop = {});
  /// refund() with a callback instead of a future.
  void refund(const RefundQuery& query, Callback callback, std::stop_token stop = {});

  /// The request that opens the gateway's payment page (nothing is sent; hand it to a payment
  /// window). The only possible error is Input. Synchronous.
  Result<URLRequest> standardPayment(const StandardPayment& payment);

  /// The same with card data the merchant collected; the card is checked (Luhn, expiry, CVV)
  /// and its copies are wiped. The only possible error is Input. Synchronous.
  Result<URLRequest> cardCapturePayment(CardCapturePayment payment);

  /// The journal of ClientOptions::journalPath, shared with the client; nullptr without one.
  std::shared_ptr<Journal> journal() const;

  /// The journal's open and unknown entries, oldest first. Errors: Config when the client has
  /// no journal, Journal when it cannot be read.
  [[nodiscard]] Result<std::vector<JournalEntry>> unresolved() const;

  /// Receives the entries reconcile() looked at, exactly once, where Callback runs.
  using ReconcileCallback = std::function<void(Result<std::vector<JournalEntry>>)>;

  /// Asks the gateway's status of every unresolved entry (by order ID, and the reference
  /// number when known) and records the answer on the entry: a payment is Settled by a
  /// status that is not pending; a cancel or refund is Settled when the status shows its
  /// effect, else Attention (see reconciledState()). Nothing is ever sent again. An entry
  /// whose status cannot be had, whose payment is still pending, or that was recorded for
  /// another gateway, keeps its state and gets a reconcileError. The result is those entries as they now stand; the errors are those of
  /// unresolved(). The future is fulfilled like those of status().
  std::future<Result<std::vector<JournalEntry>>> reconcile();
  /// reconcile() with a callback instead of a future.
  void reconcile(ReconcileCallback callback);

  /// The gateway's base URL in use (canonical form), e.g. "https://127.0.0.1:4431/ipg/".
  const std::string& baseURL() const;

  /// The gateway configuration the client was made with, its base URLs in canonical form (a
  /// payment window given this client looks for the final page under them).
  const GatewayConfig& config() const;

  /// ClientOptions::eventHook as given; empty without one (a payment window given this client
  /// tells its events to it).
  EventHook eventHook() const;

  /// Completes every call under way with ShutDown and stops the client's threads; later calls
  /// complete with ShutDown too. Idempotent; may be called from a callback.
  void shutdown();

 private:
  struct Impl;
  explicit Client(std::shared_ptr<Impl> impl);
  std::shared_ptr<Impl> impl_;
};

}  // namespace qipg
