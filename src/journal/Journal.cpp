// The outcome journal: one SQLite table of entries, written in WAL mode with full synchronous
// commits, so that an entry begun before a request leaves survives a crash of the process or
// the machine. The gateway's records are kept as JSON objects made and read by SQLite itself.
#include "qipg/Journal.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <map>
#include <mutex>
#include <utility>

#include "common/RecordFields.h"

namespace qipg {
namespace {

constexpr int kBusyTimeoutMs = 5000;

constexpr char kSchema[] = R"sql(
CREATE TABLE IF NOT EXISTS entries (
  id INTEGER PRIMARY KEY,
  operation TEXT NOT NULL,
  orderID TEXT NOT NULL,
  transactionRefNumber TEXT NOT NULL DEFAULT '',
  amount TEXT NOT NULL DEFAULT '',
  currency TEXT NOT NULL DEFAULT '',
  transactionType TEXT NOT NULL DEFAULT '',
  environment TEXT NOT NULL DEFAULT '',
  baseURL TEXT NOT NULL DEFAULT '',
  startedAt TEXT NOT NULL,
  state TEXT NOT NULL,
  endedAt TEXT NOT NULL DEFAULT '',
  answer TEXT,
  errorKind TEXT NOT NULL DEFAULT '',
  errorMessage TEXT NOT NULL DEFAULT '',
  reconciledAt TEXT NOT NULL DEFAULT '',
  status TEXT,
  reconcileError TEXT NOT NULL DEFAULT ''
);
CREATE INDEX IF NOT EXISTS entriesByState ON entries(state);
)sql";

std::string utcNow(const char* format) {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, format, &parts);
  return text;
}

std::string timestamp() { return utcNow("%Y-%m-%dT%H:%M:%SZ"); }

// SQL for a record as the JSON object SQLite keeps, its properties bound from parameter
// `first` on in their declared order (an absent one is null, and read back as absent).
std::string recordJsonSql(int first) {
  std::string sql = "json_object(";
  for (const internal::RecordField& field : internal::kRecordFields) {
    if (sql.back() != '(') sql += ",";
    sql += "'" + std::string(field.name) + "',?" + std::to_string(first++);
  }
  return sql + ")";
}

void bindRecord(sqlite3_stmt* statement, int first, const PaymentResponse& record) {
  for (const internal::RecordField& field : internal::kRecordFields) {
    if (const Text& value = (record.*field.get)()) {
      sqlite3_bind_text(statement, first, value->data(), static_cast<int>(value->size()),
                        SQLITE_TRANSIENT);
    }
    ++first;
  }
}

std::optional<PaymentResponse> recordFromJson(sqlite3* db, const unsigned char* json) {
  if (json == nullptr) return std::nullopt;
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT key, value FROM json_each(?)", -1, &statement, nullptr) !=
      SQLITE_OK) {
    return std::nullopt;
  }
  sqlite3_bind_text(statement, 1, reinterpret_cast<const char*>(json), -1, SQLITE_TRANSIENT);
  PaymentResponse record;
  while (sqlite3_step(statement) == SQLITE_ROW) {
    const auto* key = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    const auto* value = reinterpret_cast<const char*>(sqlite3_column_text(statement, 1));
    if (key == nullptr || value == nullptr) continue;
    for (const internal::RecordField& field : internal::kRecordFields) {
      if (std::string_view(field.name) == key) (record.*field.set)(std::string(value));
    }
  }
  sqlite3_finalize(statement);
  return record;
}

std::string text(sqlite3_stmt* statement, int column) {
  const auto* value = sqlite3_column_text(statement, column);
  return value != nullptr ? reinterpret_cast<const char*>(value) : "";
}

template <typename Enum, std::size_t N>
Enum byName(const std::string& name, const Enum (&values)[N], std::string_view (*nameOf)(Enum)) {
  for (Enum value : values) {
    if (nameOf(value) == name) return value;
  }
  return values[0];
}

constexpr JournalOperation kOperations[] = {JournalOperation::Payment, JournalOperation::Cancel,
                                            JournalOperation::Refund};
constexpr JournalState kStates[] = {JournalState::Open, JournalState::Unknown,
                                    JournalState::Answered, JournalState::Settled,
                                    JournalState::Attention};

Error journalError(const std::string& message) { return {ErrorKind::Journal, message, {}, {}, false}; }

}  // namespace

std::string_view journalOperationName(JournalOperation operation) {
  switch (operation) {
    case JournalOperation::Payment:
      return "payment";
    case JournalOperation::Cancel:
      return "cancel";
    case JournalOperation::Refund:
      return "refund";
  }
  return "payment";
}

std::string_view journalStateName(JournalState state) {
  switch (state) {
    case JournalState::Open:
      return "open";
    case JournalState::Unknown:
      return "unknown";
    case JournalState::Answered:
      return "answered";
    case JournalState::Settled:
      return "settled";
    case JournalState::Attention:
      return "attention";
  }
  return "open";
}

std::optional<JournalState> reconciledState(JournalOperation operation,
                                            const PaymentResponse& status) {
  const std::string code = status.statusCode().value_or("");
  switch (operation) {
    case JournalOperation::Payment:
      if (code == "P") return std::nullopt;
      return JournalState::Settled;
    case JournalOperation::Cancel:
      return code == "C" ? JournalState::Settled : JournalState::Attention;
    case JournalOperation::Refund:
      return code == "R" ? JournalState::Settled : JournalState::Attention;
  }
  return JournalState::Attention;
}

struct Journal::Impl {
  ~Impl() {
    for (auto& [sql, statement] : statements) sqlite3_finalize(statement);
    sqlite3_close_v2(db);
  }

  std::string path;
  std::string notice;
  sqlite3* db = nullptr;
  mutable std::mutex mutex;  // one statement sequence at a time on the connection
  std::map<std::string, sqlite3_stmt*> statements;  // prepared once, by their SQL
  bool fullSync = true;  // the connection's synchronous setting

  // Runs `sql` with `bind` filling its parameters, in a transaction of its own that is on disk
  // when this returns if `durable` (else it may be lost with the machine, never with the
  // process); true when it completed.
  template <typename Bind>
  bool run(const std::string& sql, bool durable, Bind&& bind) {
    std::lock_guard lock(mutex);
    if (durable != fullSync &&
        sqlite3_exec(db, durable ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL",
                     nullptr, nullptr, nullptr) == SQLITE_OK) {
      fullSync = durable;
    }
    sqlite3_stmt*& statement = statements[sql];
    if (statement == nullptr &&
        sqlite3_prepare_v3(db, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement,
                           nullptr) != SQLITE_OK) {
      return false;
    }
    bind(statement);
    const bool done = sqlite3_step(statement) == SQLITE_DONE;
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    return done;
  }
};

namespace {

void bindText(sqlite3_stmt* statement, int index, const std::string& value) {
  sqlite3_bind_text(statement, index, value.data(), static_cast<int>(value.size()),
                    SQLITE_TRANSIENT);
}

// Opens the SQLite file at `path` as a journal; an error message when it cannot (and
// `unreadable` when the file is there but is not a readable journal).
sqlite3* openDatabase(const std::string& path, std::string* error, bool* unreadable) {
  *unreadable = false;
  sqlite3* db = nullptr;
  const int opened = sqlite3_open_v2(
      path.c_str(), &db,
      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX | SQLITE_OPEN_NOFOLLOW,
      nullptr);
  if (opened != SQLITE_OK) {
    *error = db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(opened);
    sqlite3_close_v2(db);
    return nullptr;
  }
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  char* message = nullptr;
  const int rc = sqlite3_exec(db,
                              "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;",
                              nullptr, nullptr, &message);
  bool healthy = rc == SQLITE_OK;
  if (healthy) {
    sqlite3_stmt* check = nullptr;
    healthy = sqlite3_prepare_v2(db, "PRAGMA quick_check", -1, &check, nullptr) == SQLITE_OK &&
              sqlite3_step(check) == SQLITE_ROW && text(check, 0) == "ok";
    sqlite3_finalize(check);
    if (!healthy) *error = "its integrity check failed";
  } else {
    *error = message != nullptr ? message : sqlite3_errstr(rc);
  }
  sqlite3_free(message);
  if (healthy && sqlite3_exec(db, kSchema, nullptr, nullptr, &message) != SQLITE_OK) {
    *error = message != nullptr ? message : "the journal's table cannot be made";
    sqlite3_free(message);
    healthy = false;
  }
  if (!healthy) {
    // What the file holds is at fault, unless the trouble is the disk, the memory or
    // another process (whose journal must not be set aside under it).
    switch (sqlite3_errcode(db) & 0xff) {
      case SQLITE_CANTOPEN:
      case SQLITE_IOERR:
      case SQLITE_FULL:
      case SQLITE_BUSY:
      case SQLITE_LOCKED:
      case SQLITE_NOMEM:
      case SQLITE_PERM:
        *unreadable = error->find("integrity") != std::string::npos;
        break;
      default:
        *unreadable = true;
    }
    sqlite3_close_v2(db);
    return nullptr;
  }
  return db;
}

// Refuses a path that is a link or someone else's file, and creates the file owner-only.
std::optional<std::string> prepareFile(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  const fs::path parent = fs::path(path).parent_path();
  if (!parent.empty() && !fs::exists(parent, ignored)) {
    fs::create_directories(parent, ignored);
    ::chmod(parent.c_str(), 0700);
  }
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) {
    return "the journal " + path + " cannot be opened: " + std::string(std::strerror(errno)) +
           (errno == ELOOP ? " (a symbolic link is not accepted)" : "");
  }
  struct stat info {};
  const bool ours = ::fstat(fd, &info) == 0 && info.st_uid == ::geteuid() && S_ISREG(info.st_mode);
  if (ours && (info.st_mode & 077) != 0) ::fchmod(fd, 0600);
  ::close(fd);
  if (!ours) return "the journal " + path + " is not a regular file of this user";
  return std::nullopt;
}

}  // namespace

Result<std::shared_ptr<Journal>> Journal::open(const std::string& path) {
  auto impl = std::make_unique<Impl>();
  impl->path = path;
  if (path.empty()) return Error{ErrorKind::Config, "no journal file was named", {}, {}, false};
  if (auto problem = prepareFile(path)) return Error{ErrorKind::Config, *problem, {}, {}, false};
  std::string error;
  bool unreadable = false;
  impl->db = openDatabase(path, &error, &unreadable);
  if (impl->db == nullptr && unreadable) {
    // Set the damaged file aside, with its write-ahead log, and start afresh.
    const std::string aside = path + ".corrupt-" + utcNow("%Y%m%dT%H%M%SZ");
    for (const char* suffix : {"", "-wal", "-shm"}) {
      std::rename((path + suffix).c_str(), (aside + suffix).c_str());
    }
    impl->notice = "the journal " + path + " could not be read (" + error +
                   "); it was set aside as " + aside + " and a new journal was started";
    if (auto problem = prepareFile(path)) return Error{ErrorKind::Config, *problem, {}, {}, false};
    impl->db = openDatabase(path, &error, &unreadable);
  }
  if (impl->db == nullptr) {
    return Error{ErrorKind::Config, "the journal " + path + " cannot be opened: " + error, {}, {},
                 false};
  }
  return std::shared_ptr<Journal>(new Journal(std::move(impl)));
}

Journal::Journal(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Journal::~Journal() = default;

const std::string& Journal::path() const { return impl_->path; }
const std::string& Journal::notice() const { return impl_->notice; }

Result<std::int64_t> Journal::begin(const JournalEntry& entry) {
  std::int64_t id = 0;
  const bool written = impl_->run(
      "INSERT INTO entries (operation, orderID, transactionRefNumber, amount, currency, "
      "transactionType, environment, baseURL, startedAt, state) "
      "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, 'open')",
      true, [&](sqlite3_stmt* s) {
        bindText(s, 1, std::string(journalOperationName(entry.operation)));
        bindText(s, 2, entry.orderID);
        bindText(s, 3, entry.transactionRefNumber);
        bindText(s, 4, entry.amount);
        bindText(s, 5, entry.currency);
        bindText(s, 6, entry.transactionType);
        bindText(s, 7, entry.environment);
        bindText(s, 8, entry.baseURL);
        bindText(s, 9, entry.startedAt.empty() ? timestamp() : entry.startedAt);
      });
  if (written) {
    std::lock_guard lock(impl_->mutex);
    id = sqlite3_last_insert_rowid(impl_->db);
  }
  if (!written || id == 0) {
    std::lock_guard lock(impl_->mutex);
    return journalError("the journal " + impl_->path + " could not record the call (" +
                        sqlite3_errmsg(impl_->db) + "); it was not sent");
  }
  return id;
}

bool Journal::answered(std::int64_t id, const PaymentResponse& answer) {
  static const std::string sql =
      "UPDATE entries SET state = 'answered', endedAt = ?1, "
      "transactionRefNumber = CASE WHEN transactionRefNumber = '' THEN coalesce(?3, '') "
      "ELSE transactionRefNumber END, answer = " +
      recordJsonSql(3) + " WHERE id = ?2";
  return impl_->run(sql, false, [&](sqlite3_stmt* s) {
    bindText(s, 1, timestamp());
    sqlite3_bind_int64(s, 2, id);
    bindRecord(s, 3, answer);
  });
}

bool Journal::failed(std::int64_t id, const Error& error) {
  return impl_->run(
      "UPDATE entries SET state = ?, endedAt = ?, errorKind = ?, errorMessage = ? WHERE id = ?",
      false, [&](sqlite3_stmt* s) {
        bindText(s, 1, error.outcomeUnknown ? "unknown" : "answered");
        bindText(s, 2, timestamp());
        bindText(s, 3, std::string(errorKindName(error.kind)));
        bindText(s, 4, error.message);
        sqlite3_bind_int64(s, 5, id);
      });
}

bool Journal::reconciled(JournalEntry& entry) {
  static const std::string sql =
      "UPDATE entries SET state = ?1, reconciledAt = ?2, reconcileError = ?3, "
      "status = CASE WHEN ?5 THEN " +
      recordJsonSql(6) + " END WHERE id = ?4";
  entry.reconciledAt = timestamp();
  return impl_->run(sql, false, [&](sqlite3_stmt* s) {
    bindText(s, 1, std::string(journalStateName(entry.state)));
    bindText(s, 2, entry.reconciledAt);
    bindText(s, 3, entry.reconcileError);
    sqlite3_bind_int64(s, 4, entry.id);
    sqlite3_bind_int(s, 5, entry.status ? 1 : 0);
    if (entry.status) bindRecord(s, 6, *entry.status);
  });
}

Result<std::vector<JournalEntry>> Journal::entries(bool unresolvedOnly) const {
  std::lock_guard lock(impl_->mutex);
  sqlite3_stmt* s = nullptr;
  const std::string sql =
      std::string(
          "SELECT id, operation, orderID, transactionRefNumber, amount, currency, "
          "transactionType, environment, baseURL, startedAt, state, endedAt, answer, errorKind, "
          "errorMessage, reconciledAt, status, reconcileError FROM entries") +
      (unresolvedOnly ? " WHERE state IN ('open', 'unknown')" : "") + " ORDER BY id";
  if (sqlite3_prepare_v2(impl_->db, sql.c_str(), -1, &s, nullptr) != SQLITE_OK) {
    return journalError("the journal " + impl_->path + " cannot be read: " +
                        sqlite3_errmsg(impl_->db));
  }
  std::vector<JournalEntry> all;
  int rc = SQLITE_ROW;
  while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
    JournalEntry e;
    e.id = sqlite3_column_int64(s, 0);
    e.operation = byName(text(s, 1), kOperations, journalOperationName);
    e.orderID = text(s, 2);
    e.transactionRefNumber = text(s, 3);
    e.amount = text(s, 4);
    e.currency = text(s, 5);
    e.transactionType = text(s, 6);
    e.environment = text(s, 7);
    e.baseURL = text(s, 8);
    e.startedAt = text(s, 9);
    e.state = byName(text(s, 10), kStates, journalStateName);
    e.endedAt = text(s, 11);
    e.answer = recordFromJson(impl_->db, sqlite3_column_text(s, 12));
    e.errorKind = text(s, 13);
    e.errorMessage = text(s, 14);
    e.reconciledAt = text(s, 15);
    e.status = recordFromJson(impl_->db, sqlite3_column_text(s, 16));
    e.reconcileError = text(s, 17);
    all.push_back(std::move(e));
  }
  sqlite3_finalize(s);
  if (rc != SQLITE_DONE) {
    return journalError("the journal " + impl_->path + " cannot be read: " +
                        sqlite3_errmsg(impl_->db));
  }
  return all;
}

}  // namespace qipg
