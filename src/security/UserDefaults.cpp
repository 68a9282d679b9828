#include "security/UserDefaults.h"

#include <fcntl.h>
#include <pthread.h>
#include <pwd.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <map>
#include <vector>

namespace qipg::internal {
namespace {

struct DbCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
using DbHandle = std::unique_ptr<sqlite3, DbCloser>;

struct StatementFinalizer {
  void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

// Resets a prepared statement and drops its bindings when a use of it ends.
class StatementUse {
 public:
  explicit StatementUse(sqlite3_stmt* stmt) : stmt_(stmt) {}
  ~StatementUse() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }
  StatementUse(const StatementUse&) = delete;
  StatementUse& operator=(const StatementUse&) = delete;

 private:
  sqlite3_stmt* stmt_;
};

// Longest key or value handed to SQLite (its own default limit is 10^9 bytes).
constexpr std::size_t kMaxLength = 1'000'000'000;

// Keys remembered in memory at most; the library itself reads one.
constexpr std::size_t kMaxCachedKeys = 64;

bool isCorrupt(int rc) {
  const int primary = rc & 0xFF;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

constexpr char kFileName[] = "defaults.sqlite3";
constexpr char kDefaultProgram[] = "qipg";

const std::string& programName() {
  static const std::string name = [] {
    char buffer[4096];
    const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return std::string(kDefaultProgram);
    std::string path(buffer, static_cast<std::size_t>(n));
    constexpr std::string_view kDeleted = " (deleted)";
    if (path.size() > kDeleted.size() &&
        path.compare(path.size() - kDeleted.size(), kDeleted.size(), kDeleted) == 0) {
      path.resize(path.size() - kDeleted.size());
    }
    const std::size_t slash = path.rfind('/');
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    return base.empty() ? std::string(kDefaultProgram) : base;
  }();
  return name;
}

std::optional<std::string> homeDirectory() {
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] != '\0') return home;
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
      found->pw_dir != nullptr && found->pw_dir[0] != '\0') {
    return std::string(found->pw_dir);
  }
  return std::nullopt;
}

// Creates every missing directory of `dir`, each 0700 whatever the umask.
bool makeDirectories(const std::string& dir) {
  if (dir.empty()) return true;
  for (std::size_t at = 1; at <= dir.size(); ++at) {
    if (at != dir.size() && dir[at] != '/') continue;
    const std::string part = dir.substr(0, at);
    if (mkdir(part.c_str(), 0700) == 0) {
      chmod(part.c_str(), 0700);
    } else if (errno != EEXIST) {
      return false;
    }
  }
  struct stat st {};
  return stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string parentDirectory(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

bool pathExists(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0;
}

// Renames a damaged store (and any journal beside it) out of the way, unless the file at
// `path` is no longer the damaged one (another process may have set it aside already and
// made a fresh store there).
void setAside(const std::string& path, dev_t device, ino_t inode) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0 || st.st_dev != device || st.st_ino != inode) return;
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
  std::string aside = path + ".corrupt-" + stamp;
  for (int n = 1; pathExists(aside) && n < 1000; ++n) {
    aside = path + ".corrupt-" + stamp + "-" + std::to_string(n);
  }
  if (std::rename(path.c_str(), aside.c_str()) == 0) {
    // Other processes may still serve reads of the old file from memory while its change
    // counter stands still; change it in the copy set aside so that they look again (and
    // find the new file). The copy is damaged anyway.
    const int fd = ::open(aside.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (fd >= 0) {
      unsigned char counter[4];
      if (pread(fd, counter, sizeof counter, 24) == static_cast<ssize_t>(sizeof counter)) {
        for (unsigned char& b : counter) b = static_cast<unsigned char>(~b);
        (void)!pwrite(fd, counter, sizeof counter, 24);
      }
      ::close(fd);
    }
  } else {
    std::remove(path.c_str());
  }
  for (const char* suffix : {"-journal", "-wal", "-shm"}) {
    const std::string side = path + suffix;
    if (pathExists(side) && std::rename(side.c_str(), (aside + suffix).c_str()) != 0) {
      std::remove(side.c_str());
    }
  }
}

std::uint32_t bigEndian32(const unsigned char* p) {
  return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
         std::uint32_t{p[3]};
}

// Bumped in the child of every fork(), so that a child never uses the connection it
// inherited (cheaper than asking getpid() at every call).
std::atomic<unsigned> forkGeneration{0};

unsigned currentForkGeneration() {
  static const bool registered = [] {
    pthread_atfork(nullptr, nullptr, [] { forkGeneration.fetch_add(1); });
    return true;
  }();
  (void)registered;
  return forkGeneration.load(std::memory_order_relaxed);
}

// Connections a forked child inherited: never used or closed by the child (that could
// disturb the parent's locks and journal), only kept reachable.
void abandon(std::unique_ptr<void, void (*)(void*)> owner) {
  static std::mutex mutex;
  static auto* kept = new std::vector<std::unique_ptr<void, void (*)(void*)>>();
  std::lock_guard lock(mutex);
  kept->push_back(std::move(owner));
}

}  // namespace

struct UserDefaults::Connection {
  DbHandle db;  // declared first: destroyed after the statements
  Statement select;
  Statement exists;
  Statement upsert;
  Statement remove;
  Statement begin;
  Statement commit;
  Statement rollback;
  std::string path;
  dev_t device = 0;
  ino_t inode = 0;
  unsigned forkGeneration = 0;
  int busyTimeoutMs = -1;        // as set on `db`
  bool rollbackJournal = false;  // the header's change counter tracks every commit

  // Reads served from memory: valid while the file change counter equals `counter`.
  bool cacheValid = false;
  std::uint32_t counter = 0;
  std::map<std::string, std::optional<std::string>, std::less<>> cache;

  int prepare(const char* sql, Statement& out) {
    sqlite3_stmt* raw = nullptr;
    const int rc = sqlite3_prepare_v3(db.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
    out.reset(raw);
    return rc;
  }

  // Runs a statement that returns no rows of interest.
  static int run(sqlite3_stmt* stmt) {
    StatementUse use(stmt);
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
    }
    return rc == SQLITE_DONE ? SQLITE_OK : rc;
  }

  int exec(const char* sql) { return sqlite3_exec(db.get(), sql, nullptr, nullptr, nullptr); }

  // How long the next statements wait for a lock another connection holds.
  void waitFor(int ms) {
    if (ms != busyTimeoutMs) sqlite3_busy_timeout(db.get(), ms);
    busyTimeoutMs = ms;
  }

  // The database header's file change counter, read straight from the file without taking
  // a lock (a read that races a commit sees either value; both are fine, see the header).
  // False when it cannot be trusted: not a rollback-journal file, or a short read.
  bool readChangeCounter(std::uint32_t& out) {
    if (!rollbackJournal) return false;
    sqlite3_file* file = nullptr;
    if (sqlite3_file_control(db.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
        file == nullptr || file->pMethods == nullptr) {
      return false;
    }
    unsigned char header[10];  // bytes 18..27
    if (file->pMethods->xRead(file, header, sizeof header, 18) != SQLITE_OK) return false;
    if (header[0] != 1 || header[1] != 1) return false;  // WAL (2) or unknown
    out = bigEndian32(header + 6);
    return true;
  }

  void forgetCache() {
    cacheValid = false;
    cache.clear();
  }

  int open(const std::string& file, int busyTimeoutMs) {
    path = file;
    forkGeneration = currentForkGeneration();
    if (!makeDirectories(parentDirectory(file))) return SQLITE_CANTOPEN;
    const int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) {
      fchmod(fd, 0600);  // whatever the umask
      ::close(fd);
    } else if (errno != EEXIST) {
      return SQLITE_CANTOPEN;
    }

    sqlite3* raw = nullptr;
    int rc =
        sqlite3_open_v2(file.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    db.reset(raw);
    if (rc != SQLITE_OK) return rc;
    struct stat st {};
    if (stat(file.c_str(), &st) != 0) return SQLITE_CANTOPEN;
    device = st.st_dev;
    inode = st.st_ino;
    sqlite3_extended_result_codes(db.get(), 1);
    waitFor(busyTimeoutMs);

    {
      Statement mode;
      if ((rc = prepare("PRAGMA journal_mode=DELETE", mode)) != SQLITE_OK) return rc;
      StatementUse use(mode.get());
      rc = sqlite3_step(mode.get());
      if (rc != SQLITE_ROW) return rc;
      const auto* text = sqlite3_column_text(mode.get(), 0);
      rollbackJournal =
          text != nullptr && std::string_view(reinterpret_cast<const char*>(text)) == "delete";
    }
    if ((rc = exec("PRAGMA synchronous=FULL")) != SQLITE_OK) return rc;
    if ((rc = exec("CREATE TABLE IF NOT EXISTS defaults("
                   "key TEXT PRIMARY KEY NOT NULL, value) WITHOUT ROWID")) != SQLITE_OK) {
      return rc;
    }
    if ((rc = prepare("SELECT value FROM defaults WHERE key = ?1", select)) != SQLITE_OK ||
        (rc = prepare("SELECT 1 FROM defaults WHERE key = ?1", exists)) != SQLITE_OK ||
        (rc = prepare("INSERT INTO defaults(key, value) VALUES(?1, ?2) "
                      "ON CONFLICT(key) DO UPDATE SET value = excluded.value",
                      upsert)) != SQLITE_OK ||
        (rc = prepare("DELETE FROM defaults WHERE key = ?1", remove)) != SQLITE_OK ||
        (rc = prepare("BEGIN", begin)) != SQLITE_OK ||
        (rc = prepare("COMMIT", commit)) != SQLITE_OK ||
        (rc = prepare("ROLLBACK", rollback)) != SQLITE_OK) {
      return rc;
    }
    return SQLITE_OK;
  }

  // Serves a read from memory when the file has not changed since the value was read.
  bool readCached(std::string_view key, std::optional<std::string>& out) {
    if (!cacheValid) return false;
    std::uint32_t now = 0;
    if (!readChangeCounter(now) || now != counter) {
      forgetCache();
      return false;
    }
    const auto it = cache.find(key);
    if (it == cache.end()) return false;
    out = it->second;
    return true;
  }

  // Reads the value under `key` from the database into `out` (left absent when there is
  // none); with `useCache`, remembers it with the change counter it belongs to.
  int read(std::string_view key, std::optional<std::string>& out, bool useCache) {
    out.reset();
    if (key.size() > kMaxLength) return SQLITE_TOOBIG;
    useCache = useCache && rollbackJournal;

    // Within one read transaction, so that the counter read below belongs to the value.
    int rc = useCache ? run(begin.get()) : SQLITE_OK;
    if (rc != SQLITE_OK) return rc;
    {
      StatementUse use(select.get());
      rc = sqlite3_bind_text(select.get(), 1, key.data(), static_cast<int>(key.size()),
                             SQLITE_STATIC);
      if (rc == SQLITE_OK) rc = sqlite3_step(select.get());
      if (rc == SQLITE_ROW) {
        if (sqlite3_column_type(select.get(), 0) == SQLITE_TEXT) {
          const auto* text = static_cast<const char*>(sqlite3_column_blob(select.get(), 0));
          out.emplace(text == nullptr ? "" : text,
                      static_cast<std::size_t>(sqlite3_column_bytes(select.get(), 0)));
        }
        rc = SQLITE_OK;
      } else if (rc == SQLITE_DONE) {
        rc = SQLITE_OK;
      }
    }
    if (useCache && rc == SQLITE_OK) {
      std::uint32_t now = 0;
      if (readChangeCounter(now)) {
        if (!cacheValid || now != counter || cache.size() >= kMaxCachedKeys) {
          cache.clear();
          counter = now;
          cacheValid = true;
        }
        cache.insert_or_assign(std::string(key), out);
      } else {
        forgetCache();
      }
    }
    if (!sqlite3_get_autocommit(db.get())) {
      const int end = run(rc == SQLITE_OK ? commit.get() : rollback.get());
      if (end != SQLITE_OK) {
        if (rc == SQLITE_OK) rc = end;
        if (!sqlite3_get_autocommit(db.get())) run(rollback.get());
      }
    }
    if (rc != SQLITE_OK) {
      out.reset();
      forgetCache();
    }
    return rc;
  }

  int contains(std::string_view key, bool& out) {
    out = false;
    if (key.size() > kMaxLength) return SQLITE_TOOBIG;
    StatementUse use(exists.get());
    int rc =
        sqlite3_bind_text(exists.get(), 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
    if (rc == SQLITE_OK) rc = sqlite3_step(exists.get());
    if (rc == SQLITE_ROW) {
      out = true;
      return SQLITE_OK;
    }
    return rc == SQLITE_DONE ? SQLITE_OK : rc;
  }

  // Stores `value` under `key`, or removes the key when `value` is absent. One autocommit
  // statement: a transaction of its own, on disk when it returns.
  int write(std::string_view key, std::optional<std::string_view> value) {
    forgetCache();
    if (key.size() > kMaxLength || (value && value->size() > kMaxLength)) return SQLITE_TOOBIG;
    sqlite3_stmt* stmt = value ? upsert.get() : remove.get();
    StatementUse use(stmt);
    int rc = sqlite3_bind_text(stmt, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
    if (rc == SQLITE_OK && value) {
      rc =
          sqlite3_bind_text(stmt, 2, value->data(), static_cast<int>(value->size()), SQLITE_STATIC);
    }
    if (rc == SQLITE_OK) rc = sqlite3_step(stmt);
    return rc == SQLITE_DONE ? SQLITE_OK : rc;
  }
};

UserDefaults& UserDefaults::standard() {
  // Never destroyed: threads and static destructors may still use it while the process ends.
  // The default busy timeout (3 s): a store of the IV waits that long for another process's
  // lock before its value is held in memory only.
  static UserDefaults* const instance = new UserDefaults(Options{std::nullopt});
  return *instance;
}

std::optional<std::string> UserDefaults::resolvePath() {
  if (const char* file = std::getenv("QIPG_DEFAULTS_FILE"); file != nullptr && file[0] != '\0') {
    return std::string(file);
  }
  std::string base;
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg != nullptr && xdg[0] == '/') {
    base = xdg;
  } else if (std::optional<std::string> home = homeDirectory()) {
    base = *home + "/.config";
  } else {
    return std::nullopt;
  }
  return base + "/qipg/" + programName() + "/" + kFileName;
}

UserDefaults::UserDefaults() : UserDefaults(Options{}) {}

UserDefaults::UserDefaults(Options options) : options_(std::move(options)) {}

UserDefaults::~UserDefaults() {
  if (connection_ && connection_->forkGeneration != currentForkGeneration()) {
    abandon({connection_.release(), [](void* c) { delete static_cast<Connection*>(c); }});
  }
}

std::optional<std::string> UserDefaults::path() const {
  return options_.path ? options_.path : resolvePath();
}

UserDefaults::HeldKeys& UserDefaults::held(const std::optional<std::string>& path) {
  return held_[path.value_or(std::string())];
}

UserDefaults::Connection* UserDefaults::connection(const std::optional<std::string>& path,
                                                   bool checkFile, int waitMs) {
  if (connection_ && connection_->forkGeneration != currentForkGeneration()) {
    abandon({connection_.release(), [](void* c) { delete static_cast<Connection*>(c); }});
  }
  if (!path) {
    connection_.reset();
    return nullptr;
  }
  if (connection_) {
    struct stat st {};
    // Re-open when the path changed or the file was replaced or removed meanwhile.
    if (connection_->path != *path ||
        (checkFile && (stat(path->c_str(), &st) != 0 || st.st_dev != connection_->device ||
                       st.st_ino != connection_->inode))) {
      connection_.reset();
    }
  }
  if (!connection_) {
    if (!checkFile) return nullptr;
    auto fresh = std::make_unique<Connection>();
    int rc = fresh->open(*path, waitMs);
    if (isCorrupt(rc)) {
      const dev_t device = fresh->device;
      const ino_t inode = fresh->inode;
      fresh.reset();
      setAside(*path, device, inode);
      fresh = std::make_unique<Connection>();
      rc = fresh->open(*path, waitMs);
    }
    if (rc != SQLITE_OK) return nullptr;
    connection_ = std::move(fresh);
  }
  connection_->waitFor(waitMs);
  return connection_.get();
}

template <typename Op>
std::invoke_result_t<Op&, UserDefaults::Connection&> UserDefaults::withConnection(
    const std::optional<std::string>& path, Op op, int waitMs) {
  if (waitMs < 0) waitMs = options_.busyTimeoutMs;
  Connection* c = connection(path, true, waitMs);
  if (c == nullptr) return SQLITE_CANTOPEN;
  int rc = op(*c);
  if (isCorrupt(rc)) {
    const dev_t device = c->device;
    const ino_t inode = c->inode;
    connection_.reset();
    setAside(*path, device, inode);
    c = connection(path, true, waitMs);
    if (c == nullptr) return SQLITE_CANTOPEN;
    rc = op(*c);
  }
  return rc;
}

bool UserDefaults::writeThrough(const std::optional<std::string>& path, std::string_view key,
                                const std::optional<std::string>& value, int waitMs) {
  return withConnection(
             path,
             [&](Connection& c) {
               return c.write(key, value ? std::optional<std::string_view>(*value) : std::nullopt);
             },
             waitMs) == SQLITE_OK;
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) {
  MutexLock lock(mutex_);
  const std::optional<std::string> at = path();
  HeldKeys& mine = held(at);
  if (const auto it = mine.find(key); it != mine.end()) {
    Held& entry = it->second;
    // Held in memory only: another try at the file, without waiting for another connection's
    // lock, so that no read stalls on it.
    if (!entry.persisted) entry.persisted = writeThrough(at, key, entry.value, 0);
    return entry.value;
  }
  std::optional<std::string> value;
  if (options_.cacheReads) {
    Connection* c = connection(at, false, options_.busyTimeoutMs);
    if (c != nullptr && c->readCached(key, value)) return value;
  }
  withConnection(at, [&](Connection& c) { return c.read(key, value, options_.cacheReads); });
  return value;
}

bool UserDefaults::hasValueForKey(std::string_view key) {
  MutexLock lock(mutex_);
  const std::optional<std::string> at = path();
  const HeldKeys& mine = held(at);
  if (const auto it = mine.find(key); it != mine.end()) return it->second.value.has_value();
  bool found = false;
  const int rc = withConnection(at, [&](Connection& c) { return c.contains(key, found); });
  return rc == SQLITE_OK && found;
}

bool UserDefaults::setString(std::string_view key, std::string_view value) {
  MutexLock lock(mutex_);
  const std::optional<std::string> at = path();
  Held& entry = held(at)[std::string(key)];
  entry.value = std::string(value);
  return entry.persisted = writeThrough(at, key, entry.value);
}

bool UserDefaults::removeObjectForKey(std::string_view key) {
  MutexLock lock(mutex_);
  const std::optional<std::string> at = path();
  Held& entry = held(at)[std::string(key)];
  entry.value.reset();
  return entry.persisted = writeThrough(at, key, std::nullopt);
}

bool UserDefaults::synchronize() {
  MutexLock lock(mutex_);
  const std::optional<std::string> at = path();
  if (connection(at, true, options_.busyTimeoutMs) == nullptr) return false;
  bool all = true;
  for (auto& [key, entry] : held(at)) {
    if (!entry.persisted) all = (entry.persisted = writeThrough(at, key, entry.value)) && all;
  }
  return all;
}

bool UserDefaults::heldInMemoryOnly(std::string_view key) {
  MutexLock lock(mutex_);
  const HeldKeys& mine = held(path());
  const auto it = mine.find(key);
  return it != mine.end() && !it->second.persisted;
}

bool UserDefaults::fileHolds(std::string_view key) {
  MutexLock lock(mutex_);
  const std::optional<std::string> at = path();
  HeldKeys& mine = held(at);
  const auto it = mine.find(key);
  if (it == mine.end()) return false;
  Held& entry = it->second;
  if (!entry.persisted) entry.persisted = writeThrough(at, key, entry.value, 0);
  if (!entry.persisted) return false;
  // Read back: another process may have written its own value since.
  std::optional<std::string> inFile;
  const int rc = withConnection(at, [&](Connection& c) { return c.read(key, inFile, false); });
  return rc == SQLITE_OK && inFile == entry.value;
}

}  // namespace qipg::internal
