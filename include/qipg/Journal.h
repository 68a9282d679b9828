/// @file
/// qipg::Journal: the outcome journal, so that a payment, cancel or refund whose process died
/// is still known after a restart, until the gateway's status settles it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qipg/Error.h"
#include "qipg/Export.h"
#include "qipg/PaymentResponse.h"
#include "qipg/Result.h"

namespace qipg {

/// What a journal entry records.
enum class JournalOperation {
  Payment,  ///< a payment page that was about to be shown or posted
  Cancel,   ///< a cancel request
  Refund,   ///< a refund request
};

/// Where an entry stands.
enum class JournalState {
  Open,       ///< written before the request left; no end recorded (the process died?)
  Unknown,    ///< ended without a usable answer, and the request may have taken effect
  Answered,   ///< ended with the gateway's answer, or with an error that certainly changed nothing
  Settled,    ///< reconciled: the gateway's status shows how it ended
  Attention,  ///< reconciled, but the status does not show the cancel's or refund's effect
};

/// "payment", "cancel", "refund".
QIPG_EXPORT std::string_view journalOperationName(JournalOperation operation);
/// "open", "unknown", "answered", "settled", "attention".
QIPG_EXPORT std::string_view journalStateName(JournalState state);

/// One entry. Plain value. It never holds card data, keys, envelopes or messages.
struct QIPG_EXPORT JournalEntry {
  std::int64_t id = 0;  ///< the journal's own number of the entry
  JournalOperation operation = JournalOperation::Payment;  ///< what was sent
  std::string orderID{};  ///< the merchant's order ID of the payment
  std::string transactionRefNumber{};  ///< the payment's reference number, when known
  std::string amount{};                ///< the payment's or the refund's amount
  std::string currency{};              ///< payments only
  std::string transactionType{};       ///< payments: "S" (sale) or "P" (pre-authorisation)
  std::string environment{};           ///< "test" or "production"
  std::string baseURL{};               ///< the gateway's base URL, canonical form
  std::string startedAt{};             ///< UTC, "2026-11-24T14:32:05Z"
  JournalState state = JournalState::Open;  ///< where the entry stands
  std::string endedAt{};  ///< when the call ended (empty while open)
  /// The gateway's answer when the call ended with one (a payment: its final page's record).
  std::optional<PaymentResponse> answer{};
  /// When the call ended without one: the ErrorKind's name ...
  std::string errorKind{};
  std::string errorMessage{};  ///< ... and the error's message
  std::string reconciledAt{};  ///< when reconciliation last asked the gateway
  /// The gateway's status record, once reconciliation got one.
  std::optional<PaymentResponse> status{};
  /// Why the last reconciliation could not settle the entry (the status call's error, a
  /// payment still pending, an entry of another gateway); empty when it could.
  std::string reconcileError{};

  /// Open or Unknown: still waiting for the gateway's word.
  bool unresolved() const { return state == JournalState::Open || state == JournalState::Unknown; }
};

/// An owner-only SQLite file (WAL, full synchronous writes) of money-moving calls.
///
/// Thread-safe: one journal may be used from any number of threads, and several processes
/// may open the same file. Every write is a transaction of its own; begin() returns only once
/// the entry is on disk, so a call begun before its request leaves is known after any crash.
class QIPG_EXPORT Journal {
 public:
  /// Opens the journal at `path`, creating it (and missing directories, owner-only) when
  /// absent. A file that is not a journal, or is torn or corrupt, is never deleted: it is set
  /// aside under a new name (see notice()) and a new journal is started. Errors (kind Config):
  /// the path is a link or another user's, or the file cannot be created or opened.
  [[nodiscard]] static Result<std::shared_ptr<Journal>> open(const std::string& path);

  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  /// The file's path as given.
  const std::string& path() const;
  /// What open() had to do, e.g. "the journal ... could not be read (file is not a database);
  /// it was set aside as ....corrupt-20261124T143205Z and a new journal was started"; empty
  /// when nothing.
  const std::string& notice() const;

  /// Writes `entry` (its id, state and outcome fields are ignored; an empty startedAt is
  /// now) as Open and makes it durable. Its id; an Error of kind Journal when it could not be
  /// written, in which case the caller must not send the request.
  [[nodiscard]] Result<std::int64_t> begin(const JournalEntry& entry);
  /// Records that entry `id` ended with the gateway's `answer` (state Answered); the answer's
  /// reference number fills in an empty transactionRefNumber. False when it could not be
  /// written (the entry then stays Open).
  bool answered(std::int64_t id, const PaymentResponse& answer);
  /// Records that entry `id` ended with `error`: Unknown when error.outcomeUnknown, else
  /// Answered.
  bool failed(std::int64_t id, const Error& error);
  /// Records a reconciliation of `entry` (found by its id): its state, status and
  /// reconcileError as they stand, and now as its reconciledAt (which is set on `entry` too).
  bool reconciled(JournalEntry& entry);

  /// Every entry (or the unresolved ones), oldest first.
  [[nodiscard]] Result<std::vector<JournalEntry>> entries(bool unresolvedOnly = false) const;

 private:
  struct Impl;
  explicit Journal(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

/// How reconciliation reads a status record for an entry: a payment is Settled by a status
/// that is not pending (paid or not); a cancel is Settled when the status shows the payment
/// cancelled (statusCode "C"), a refund when it shows it refunded (statusCode "R"), otherwise
/// Attention. Absent while the payment is pending (statusCode "P"): a request of the dead
/// process may still be on its way, so the entry stays unresolved.
QIPG_EXPORT std::optional<JournalState> reconciledState(JournalOperation operation,
                                                        const PaymentResponse& status);

}  // namespace qipg
