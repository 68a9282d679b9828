// The sandbox's durable state: merchants and transactions in one SQLite file (mode 0600).
// Every write is committed (synchronous=FULL) before the call returns, so an answer is only
// sent for state that a restart keeps.
//
// Not thread-safe: one owner, or callers that serialise every call (the gateway holds one
// mutex around each whole request so that check and write are atomic).
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qipg::sandbox::internal {

enum class TxnState { kPending, kAuthorized, kCaptured, kFailed, kCancelled };

std::string stateName(TxnState state);

struct TxnRecord {
  std::int64_t id = 0;
  std::string mid;
  std::string orderId;
  std::string referenceNo;  // the gateway's transaction reference number (digits)
  std::string token;        // the payment session token of the hosted pages
  std::string flow;         // "standard" (card form) or "card" (card capture)
  std::string requestType;  // "S" sale, "P" pre-authorisation, "R" recurring
  std::int64_t amountMinor = 0;
  std::string currency;
  std::string remarks;
  std::string responseUrl;
  std::vector<std::string> additional = std::vector<std::string>(10);  // "" when empty
  std::string payType;  // card capture: "CC", "DC", "CUG", "NA", "NB"; card form: "CC"
  std::string cardLast4;
  std::string cardMasked;
  std::string bankCode;
  // Card capture: the card's outcome, decided when the request arrives (the card number itself
  // is never kept) and applied when the customer confirms.
  std::string preparedOutcome;
  std::string preparedReason;
  std::string preparedCode;
  TxnState state = TxnState::kPending;
  std::int64_t capturedMinor = 0;
  std::int64_t refundedMinor = 0;
  std::string resultCode;  // the payment's result: "S" or "F"
  std::string resultDesc;
  std::string responseCode;  // "00", "05", ...
  std::string rrn;
  std::string authzCode;
  std::string authnStatus;      // "Y" when the card or bank was authenticated
  std::string lastOperationId;  // pgRefCancelReqID of the last cancel or refund
  std::string createdAt;
  std::string completedAt;  // when the customer paid (or failed to)
};

class Store {
 public:
  // Opens (creating when needed, mode 0600) the database at `path`. Nothing, with `error` set,
  // when it cannot be opened or its schema cannot be made.
  static std::unique_ptr<Store> open(const std::string& path, std::string* error);

  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // Adds a merchant or replaces its key.
  bool putMerchant(const std::string& mid, const std::string& key);
  // The merchant's key; nothing for an unknown MID. The caller wipes the copy.
  std::optional<std::string> merchantKey(const std::string& mid);

  std::optional<TxnRecord> byOrder(const std::string& mid, const std::string& orderId);
  std::optional<TxnRecord> byToken(const std::string& token);

  // Inserts a pending payment, or replaces the pending payment of the same order. Fills
  // `record.id`, `record.referenceNo` and `record.createdAt`. False on a database error.
  bool savePending(TxnRecord& record);

  // Writes the outcome fields of a completed payment (state, captured amount, result, rrn,
  // codes, completedAt).
  bool saveOutcome(const TxnRecord& record);

  // Records a cancel or refund of `amountMinor` and writes the transaction's new state,
  // refunded total and last operation id. Returns the operation id (the gateway's
  // pgRefCancelReqID); nothing on a database error.
  std::optional<std::string> saveOperation(TxnRecord& record, const std::string& kind,
                                           std::int64_t amountMinor);

 private:
  explicit Store(sqlite3* db) : db_(db) {}
  bool exec(const char* sql);
  std::optional<TxnRecord> selectOne(const char* where, const std::vector<std::string>& args);

  sqlite3* db_;
};

}  // namespace qipg::sandbox::internal
