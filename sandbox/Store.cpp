#include "Store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Text.h"

namespace qipg::sandbox::internal {
namespace {

// Reference numbers and operation ids are these bases plus the row id: 12 digits each.
constexpr std::int64_t kReferenceBase = 410000000000;
constexpr std::int64_t kOperationBase = 710000000000;

constexpr const char* kSchema = R"sql(
CREATE TABLE IF NOT EXISTS merchants (
  mid TEXT PRIMARY KEY,
  key TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS transactions (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  mid TEXT NOT NULL,
  order_id TEXT NOT NULL,
  ref TEXT UNIQUE,
  token TEXT UNIQUE,
  flow TEXT NOT NULL,
  request_type TEXT NOT NULL,
  amount_minor INTEGER NOT NULL,
  currency TEXT NOT NULL,
  remarks TEXT NOT NULL,
  response_url TEXT NOT NULL,
  additional TEXT NOT NULL,
  pay_type TEXT NOT NULL,
  card_last4 TEXT NOT NULL,
  card_masked TEXT NOT NULL,
  bank_code TEXT NOT NULL,
  prepared_outcome TEXT NOT NULL,
  prepared_reason TEXT NOT NULL,
  prepared_code TEXT NOT NULL,
  state TEXT NOT NULL,
  captured_minor INTEGER NOT NULL DEFAULT 0,
  refunded_minor INTEGER NOT NULL DEFAULT 0,
  result_code TEXT NOT NULL DEFAULT '',
  result_desc TEXT NOT NULL DEFAULT '',
  response_code TEXT NOT NULL DEFAULT '',
  rrn TEXT NOT NULL DEFAULT '',
  authz_code TEXT NOT NULL DEFAULT '',
  authn_status TEXT NOT NULL DEFAULT '',
  last_operation_id TEXT NOT NULL DEFAULT '',
  created_at TEXT NOT NULL,
  completed_at TEXT NOT NULL DEFAULT '',
  UNIQUE (mid, order_id)
);
CREATE TABLE IF NOT EXISTS operations (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  transaction_id INTEGER NOT NULL REFERENCES transactions(id),
  kind TEXT NOT NULL,
  amount_minor INTEGER NOT NULL,
  created_at TEXT NOT NULL
);
PRAGMA user_version = 1;
)sql";

constexpr const char* kColumns =
    "id, mid, order_id, ref, token, flow, request_type, amount_minor, currency, remarks, "
    "response_url, additional, pay_type, card_last4, card_masked, bank_code, prepared_outcome, "
    "prepared_reason, prepared_code, state, captured_minor, refunded_minor, result_code, "
    "result_desc, response_code, rrn, authz_code, authn_status, last_operation_id, created_at, "
    "completed_at";

// A prepared statement, finalised on release.
class Statement {
 public:
  Statement(sqlite3* db, const char* sql) {
    if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) stmt_ = nullptr;
  }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  bool ok() const { return stmt_ != nullptr; }
  Statement& bind(int index, const std::string& value) {
    if (stmt_) {
      sqlite3_bind_text(stmt_, index, value.data(), static_cast<int>(value.size()),
                        SQLITE_TRANSIENT);
    }
    return *this;
  }
  Statement& bind(int index, std::int64_t value) {
    if (stmt_) sqlite3_bind_int64(stmt_, index, value);
    return *this;
  }
  // SQLITE_ROW, SQLITE_DONE or an error code.
  int step() { return stmt_ ? sqlite3_step(stmt_) : SQLITE_ERROR; }
  std::string text(int column) const {
    const auto* p = sqlite3_column_text(stmt_, column);
    return p ? std::string(reinterpret_cast<const char*>(p),
                           static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column)))
             : std::string();
  }
  std::int64_t integer(int column) const { return sqlite3_column_int64(stmt_, column); }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

// BEGIN IMMEDIATE ... COMMIT, rolled back unless committed.
class SqlTransaction {
 public:
  explicit SqlTransaction(sqlite3* db) : db_(db) {
    begun_ = sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
  }
  ~SqlTransaction() {
    if (begun_ && !committed_) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
  }
  SqlTransaction(const SqlTransaction&) = delete;
  SqlTransaction& operator=(const SqlTransaction&) = delete;
  bool begun() const { return begun_; }
  bool commit() {
    committed_ = sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
    return committed_;
  }

 private:
  sqlite3* db_;
  bool begun_ = false;
  bool committed_ = false;
};

std::string joinAdditional(const std::vector<std::string>& fields) {
  // The fields come from a message split at "|", so none holds one.
  std::string out;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) out.push_back('|');
    out += fields[i];
  }
  return out;
}

TxnState stateFromName(const std::string& name) {
  if (name == "authorized") return TxnState::kAuthorized;
  if (name == "captured") return TxnState::kCaptured;
  if (name == "failed") return TxnState::kFailed;
  if (name == "cancelled") return TxnState::kCancelled;
  return TxnState::kPending;
}

}  // namespace

std::string stateName(TxnState state) {
  switch (state) {
    case TxnState::kAuthorized:
      return "authorized";
    case TxnState::kCaptured:
      return "captured";
    case TxnState::kFailed:
      return "failed";
    case TxnState::kCancelled:
      return "cancelled";
    case TxnState::kPending:
      break;
  }
  return "pending";
}

std::unique_ptr<Store> Store::open(const std::string& path, std::string* error) {
  auto fail = [&](const std::string& why) -> std::unique_ptr<Store> {
    if (error) *error = why;
    return nullptr;
  };
  // Create the file owner-only before SQLite does; its journal files take the same mode.
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (fd < 0) return fail("cannot create the database file " + path);
  ::fchmod(fd, 0600);
  ::close(fd);

  sqlite3* db = nullptr;
  const int rc = sqlite3_open_v2(
      path.c_str(), &db,
      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX | SQLITE_OPEN_NOFOLLOW,
      nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_close(db);
    return fail("cannot open the database " + path);
  }
  std::unique_ptr<Store> store(new Store(db));
  sqlite3_busy_timeout(db, 5000);
  if (!store->exec("PRAGMA journal_mode = WAL") || !store->exec("PRAGMA synchronous = FULL") ||
      !store->exec(kSchema)) {
    return fail("cannot set up the database " + path + ": " + sqlite3_errmsg(db));
  }
  return store;
}

Store::~Store() { sqlite3_close(db_); }

bool Store::exec(const char* sql) {
  return sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool Store::putMerchant(const std::string& mid, const std::string& key) {
  Statement st(db_,
               "INSERT INTO merchants (mid, key) VALUES (?1, ?2) "
               "ON CONFLICT (mid) DO UPDATE SET key = excluded.key");
  return st.bind(1, mid).bind(2, key).step() == SQLITE_DONE;
}

std::optional<std::string> Store::merchantKey(const std::string& mid) {
  Statement st(db_, "SELECT key FROM merchants WHERE mid = ?1");
  if (st.bind(1, mid).step() != SQLITE_ROW) return std::nullopt;
  return st.text(0);
}

std::optional<TxnRecord> Store::selectOne(const char* where, const std::vector<std::string>& args) {
  const std::string sql = std::string("SELECT ") + kColumns + " FROM transactions WHERE " + where;
  Statement st(db_, sql.c_str());
  for (std::size_t i = 0; i < args.size(); ++i) st.bind(static_cast<int>(i + 1), args[i]);
  if (st.step() != SQLITE_ROW) return std::nullopt;
  TxnRecord r;
  int c = 0;
  r.id = st.integer(c++);
  r.mid = st.text(c++);
  r.orderId = st.text(c++);
  r.referenceNo = st.text(c++);
  r.token = st.text(c++);
  r.flow = st.text(c++);
  r.requestType = st.text(c++);
  r.amountMinor = st.integer(c++);
  r.currency = st.text(c++);
  r.remarks = st.text(c++);
  r.responseUrl = st.text(c++);
  r.additional = [&] {
    auto fields = std::vector<std::string>();
    std::string all = st.text(c++);
    std::size_t start = 0;
    while (true) {
      const std::size_t bar = all.find('|', start);
      fields.push_back(
          all.substr(start, bar == std::string::npos ? std::string::npos : bar - start));
      if (bar == std::string::npos) break;
      start = bar + 1;
    }
    fields.resize(10);
    return fields;
  }();
  r.payType = st.text(c++);
  r.cardLast4 = st.text(c++);
  r.cardMasked = st.text(c++);
  r.bankCode = st.text(c++);
  r.preparedOutcome = st.text(c++);
  r.preparedReason = st.text(c++);
  r.preparedCode = st.text(c++);
  r.state = stateFromName(st.text(c++));
  r.capturedMinor = st.integer(c++);
  r.refundedMinor = st.integer(c++);
  r.resultCode = st.text(c++);
  r.resultDesc = st.text(c++);
  r.responseCode = st.text(c++);
  r.rrn = st.text(c++);
  r.authzCode = st.text(c++);
  r.authnStatus = st.text(c++);
  r.lastOperationId = st.text(c++);
  r.createdAt = st.text(c++);
  r.completedAt = st.text(c++);
  return r;
}

std::optional<TxnRecord> Store::byOrder(const std::string& mid, const std::string& orderId) {
  return selectOne("mid = ?1 AND order_id = ?2", {mid, orderId});
}

std::optional<TxnRecord> Store::byToken(const std::string& token) {
  if (token.empty()) return std::nullopt;
  return selectOne("token = ?1", {token});
}

bool Store::savePending(TxnRecord& record) {
  SqlTransaction tx(db_);
  if (!tx.begun()) return false;
  record.state = TxnState::kPending;
  record.createdAt = utcNow();
  Statement del(db_,
                "DELETE FROM transactions WHERE mid = ?1 AND order_id = ?2 AND state = 'pending'");
  if (del.bind(1, record.mid).bind(2, record.orderId).step() != SQLITE_DONE) return false;
  Statement ins(db_,
                "INSERT INTO transactions (mid, order_id, token, flow, request_type, amount_minor, "
                "currency, remarks, response_url, additional, pay_type, card_last4, card_masked, "
                "bank_code, prepared_outcome, prepared_reason, prepared_code, state, created_at) "
                "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, "
                "?17, 'pending', ?18)");
  ins.bind(1, record.mid)
      .bind(2, record.orderId)
      .bind(3, record.token)
      .bind(4, record.flow)
      .bind(5, record.requestType)
      .bind(6, record.amountMinor)
      .bind(7, record.currency)
      .bind(8, record.remarks)
      .bind(9, record.responseUrl)
      .bind(10, joinAdditional(record.additional))
      .bind(11, record.payType)
      .bind(12, record.cardLast4)
      .bind(13, record.cardMasked)
      .bind(14, record.bankCode)
      .bind(15, record.preparedOutcome)
      .bind(16, record.preparedReason)
      .bind(17, record.preparedCode)
      .bind(18, record.createdAt);
  if (ins.step() != SQLITE_DONE) return false;
  record.id = sqlite3_last_insert_rowid(db_);
  record.referenceNo = std::to_string(kReferenceBase + record.id);
  Statement ref(db_, "UPDATE transactions SET ref = ?1 WHERE id = ?2");
  if (ref.bind(1, record.referenceNo).bind(2, record.id).step() != SQLITE_DONE) return false;
  return tx.commit();
}

bool Store::saveOutcome(const TxnRecord& record) {
  Statement st(db_,
               "UPDATE transactions SET state = ?1, captured_minor = ?2, result_code = ?3, "
               "result_desc = ?4, response_code = ?5, rrn = ?6, authz_code = ?7, "
               "authn_status = ?8, completed_at = ?9, card_last4 = ?10, card_masked = ?11 "
               "WHERE id = ?12");
  st.bind(1, stateName(record.state))
      .bind(2, record.capturedMinor)
      .bind(3, record.resultCode)
      .bind(4, record.resultDesc)
      .bind(5, record.responseCode)
      .bind(6, record.rrn)
      .bind(7, record.authzCode)
      .bind(8, record.authnStatus)
      .bind(9, record.completedAt)
      .bind(10, record.cardLast4)
      .bind(11, record.cardMasked)
      .bind(12, record.id);
  return st.step() == SQLITE_DONE && sqlite3_changes(db_) == 1;
}

std::optional<std::string> Store::saveOperation(TxnRecord& record, const std::string& kind,
                                                std::int64_t amountMinor) {
  SqlTransaction tx(db_);
  if (!tx.begun()) return std::nullopt;
  Statement ins(db_,
                "INSERT INTO operations (transaction_id, kind, amount_minor, created_at) "
                "VALUES (?1, ?2, ?3, ?4)");
  if (ins.bind(1, record.id).bind(2, kind).bind(3, amountMinor).bind(4, utcNow()).step() !=
      SQLITE_DONE) {
    return std::nullopt;
  }
  const std::string operationId = std::to_string(kOperationBase + sqlite3_last_insert_rowid(db_));
  Statement up(db_,
               "UPDATE transactions SET state = ?1, refunded_minor = ?2, last_operation_id = ?3 "
               "WHERE id = ?4");
  if (up.bind(1, stateName(record.state))
          .bind(2, record.refundedMinor)
          .bind(3, operationId)
          .bind(4, record.id)
          .step() != SQLITE_DONE) {
    return std::nullopt;
  }
  if (!tx.commit()) return std::nullopt;
  record.lastOperationId = operationId;
  return operationId;
}

}  // namespace qipg::sandbox::internal
