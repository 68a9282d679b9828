// The application's persistent key-value store ("user defaults"): text keys to text values
// in a SQLite file, shared by every object of the process, by other processes of the same
// program, and kept across runs.
//
// Where: $QIPG_DEFAULTS_FILE when set and not empty, else
// ${XDG_CONFIG_HOME:-$HOME/.config}/qipg/<program name>/defaults.sqlite3, where the program
// name is the base name of the running executable ("qipg" when it cannot be told). The path
// of the standard store is resolved again at every call, so a changed environment takes
// effect at the next call. Directories the store creates are 0700, the file 0600.
//
// Durability: every write is one committed SQLite transaction in rollback-journal (DELETE)
// mode with synchronous=FULL, so it is on disk when the call returns; synchronize() has
// nothing left to flush.
//
// Thread-safe: one connection per store, guarded by a mutex. Safe with other processes: a
// busy store is waited for (busy timeout, 3 s by default), then the call gives up. A child
// process made by fork() opens its own connection on its first call.
//
// Failures never reach the caller as errors: a missing, unreadable or locked store reads as
// nothing and drops writes (the mutators return false); a file that is not a database or is
// corrupt is renamed aside (<file>.corrupt-<UTC time>[-n]) and an empty store is created in
// its place.
//
// Reads are served from an in-memory copy while SQLite's file change counter (bytes 24-27 of
// the database header, bumped by every committed write of any process in rollback-journal
// mode) is unchanged; otherwise they go to SQLite, which first checks that the file at the
// path is still the one open, and the copy is refreshed. A value written by any process is
// thus seen by the first read that starts after that write returned. A file removed or moved
// away by hand is noticed at the next write or the next change of the counter; one set
// aside as corrupt by another process has its counter changed, so it is noticed at once.
// Checking the path on every read would cost a path lookup (a stat) per call.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace qipg::internal {

class UserDefaults {
 public:
  struct Options {
    // A fixed file; when absent the path is resolved from the environment at every call.
    std::optional<std::string> path;
    // How long a call waits for a store that another connection holds locked.
    int busyTimeoutMs = 3000;
    // Serve reads from memory while the file is unchanged (see above).
    bool cacheReads = true;
  };

  // The process-wide store at the environment's path. Lives until the process ends.
  static UserDefaults& standard();

  // The path the standard store uses now; absent when neither QIPG_DEFAULTS_FILE nor a home
  // directory can be found.
  static std::optional<std::string> resolvePath();

  UserDefaults();
  explicit UserDefaults(Options options);
  ~UserDefaults();
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  // The text stored under `key`; absent when nothing is, when the value is not a text, or
  // when the store cannot be read.
  std::optional<std::string> stringForKey(std::string_view key);

  // True when any value is stored under `key`.
  bool hasValueForKey(std::string_view key);

  // Stores `value` under `key`, replacing what was there. False when the write was dropped.
  bool setString(std::string_view key, std::string_view value);

  // Removes what is stored under `key` (nothing stored is not an error). False when the
  // write was dropped.
  bool removeObjectForKey(std::string_view key);

  // Every write is durable when it returns, so this only reports whether the store can be
  // opened.
  bool synchronize();

 private:
  struct Connection;

  // Returns the open connection for the current path, opening (or re-opening) it as needed;
  // null when the store cannot be opened. `checkFile` also re-opens when the file at the
  // path is no longer the one open; without it, no connection is opened either (the cheap
  // check before a read from memory). Called with `mutex_` held.
  Connection* connection(bool checkFile);
  // Runs `op` on the connection; when it reports a corrupt file, sets the file aside, opens
  // a fresh store and runs `op` once more. Called with `mutex_` held.
  template <typename Op>
  auto withConnection(Op op) -> decltype(op(std::declval<Connection&>()));

  const Options options_;
  std::mutex mutex_;
  std::unique_ptr<Connection> connection_;
};

}  // namespace qipg::internal
