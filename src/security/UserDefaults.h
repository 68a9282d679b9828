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
// What a store wrote is held in memory: once a store has written (or removed) a key at a
// path, it reads that key from memory from then on, whatever the file does: another process
// writing the file, a file that cannot be opened, a store locked by another process. Each
// write is also written through to the file; when that fails the value is held in memory
// only (heldInMemoryOnly) until a later write, a read of that key or synchronize() gets it
// into the file. The read tries without waiting for another connection's lock, so that it
// never stalls on one; the others wait as long as the busy timeout.
//
// Durability: every write is one committed SQLite transaction in rollback-journal (DELETE)
// mode with synchronous=FULL, so it is on disk when the call returns.
//
// Thread-safe: one connection per store, guarded by a mutex. Safe with other processes: a
// busy store is waited for (busy timeout: 3 s by default, the standard store's too), then the
// call gives up. A child process made by fork() opens its own connection on its
// first call, and keeps what its parent held in memory.
//
// Failures never reach the caller as errors: a key this store never wrote reads as nothing
// when the file is missing, unreadable or locked; a write that does not reach the file makes
// the mutator return false but is held all the same; a file that is not a database or is
// corrupt is renamed aside (<file>.corrupt-<UTC time>[-n]) and an empty store is created in
// its place.
//
// Reads of keys this store never wrote are served from an in-memory copy while SQLite's file
// change counter (bytes 24-27 of the database header, bumped by every committed write of any
// process in rollback-journal mode) is unchanged; otherwise they go to SQLite, which first
// checks that the file at the path is still the one open, and the copy is refreshed. A value
// written by another process is thus seen by the first such read that starts after that
// write returned. A file removed or moved away by hand is noticed at the next write or the
// next change of the counter; one set aside as corrupt by another process has its counter
// changed, so it is noticed at once. Checking the path on every read would cost a path
// lookup (a stat) per call.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "common/ThreadAnnotations.h"

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

  // The text this store last wrote under `key` (written through to the file first when it is
  // held in memory only, see above); for a key it never wrote, the text stored in the file;
  // absent when nothing is, when the value is not a text, or when the store cannot be read.
  std::optional<std::string> stringForKey(std::string_view key);

  // True when any value is stored under `key` (as with stringForKey, what this store wrote
  // decides).
  bool hasValueForKey(std::string_view key);

  // Stores `value` under `key`, replacing what was there. False when the write did not reach
  // the file (the value is held in memory all the same).
  bool setString(std::string_view key, std::string_view value);

  // Removes what is stored under `key` (nothing stored is not an error). False when the
  // removal did not reach the file (it holds in memory all the same).
  bool removeObjectForKey(std::string_view key);

  // Writes through what this store holds in memory only. True when the store can be opened
  // and nothing is left held in memory only.
  bool synchronize();

  // True when the last write of `key` by this store did not reach the file, so that the
  // value is held in this process's memory only.
  bool heldInMemoryOnly(std::string_view key);

  // True when the file holds now, read back from it, what this store last wrote under `key`
  // (a removal: nothing under it). False when this store never wrote `key`, when its write
  // cannot be got into the file (tried again first, as by a read), or when another connection
  // has written the key since.
  bool fileHolds(std::string_view key);

 private:
  struct Connection;

  Mutex mutex_;  // guards the connection and what this store wrote

  // A write of this store: the value (absent: removed) and whether it reached the file.
  struct Held {
    std::optional<std::string> value;
    bool persisted = false;
  };
  using HeldKeys = std::map<std::string, Held, std::less<>>;

  // The path in force; absent when none can be found.
  std::optional<std::string> path() const;
  // What this store wrote at `path`.
  HeldKeys& held(const std::optional<std::string>& path) QIPG_REQUIRES(mutex_);
  // Writes `value` (absent: removes the key) to the file at `path`; true when it got there.
  // `waitMs`: how long to wait for another connection's lock; negative: the busy timeout.
  bool writeThrough(const std::optional<std::string>& path, std::string_view key,
                    const std::optional<std::string>& value, int waitMs = -1) QIPG_REQUIRES(mutex_);

  // Returns the open connection for `path`, opening (or re-opening) it as needed, set to
  // wait `waitMs` for another connection's lock; null when the store cannot be opened.
  // `checkFile` also re-opens when the file at the path is no longer the one open; without
  // it, no connection is opened either (the cheap check before a read from memory).
  Connection* connection(const std::optional<std::string>& path, bool checkFile, int waitMs)
      QIPG_REQUIRES(mutex_);
  // Runs `op` on the connection; when it reports a corrupt file, sets the file aside, opens
  // a fresh store and runs `op` once more. `waitMs` as for writeThrough.
  template <typename Op>
  std::invoke_result_t<Op&, Connection&> withConnection(const std::optional<std::string>& path,
                                                        Op op, int waitMs = -1)
      QIPG_REQUIRES(mutex_);

  const Options options_;
  std::unique_ptr<Connection> connection_ QIPG_GUARDED_BY(mutex_);
  // What this store wrote, by path ("" when there is none) and key. Grows only with the keys
  // written; the library writes one.
  std::map<std::string, HeldKeys, std::less<>> held_ QIPG_GUARDED_BY(mutex_);
};

}  // namespace qipg::internal
