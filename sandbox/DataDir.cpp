#include "DataDir.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace qipg::sandbox {
namespace {

constexpr std::size_t kMostBytes = 1u << 16;

// Files the sandbox makes anew whenever they are unusable.
constexpr const char* kReplaceable[] = {
    "admin-token",     "running",     "ca.pem",     "server-cert.pem",     "server-key.pem",
    "admin-token.tmp", "running.tmp", "ca.pem.tmp", "server-cert.pem.tmp", "server-key.pem.tmp"};
// Files that hold the sandbox's state: refused rather than removed.
constexpr const char* kDatabase[] = {"sandbox.sqlite3", "sandbox.sqlite3-wal",
                                     "sandbox.sqlite3-shm", "sandbox.sqlite3-journal"};

std::string modeText(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

std::string errnoText() { return std::strerror(errno); }

// Creates `path` and its missing parents; the directories it creates are owner-only.
bool makeDirectories(const std::string& path) {
  if (path.empty()) return false;
  struct stat st {};
  if (::lstat(path.c_str(), &st) == 0) return true;  // whatever it is, the caller checks it
  const std::size_t slash = path.find_last_of('/');
  if (slash != std::string::npos && slash > 0 && !makeDirectories(path.substr(0, slash))) {
    return false;
  }
  return ::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
}

// Why the directory `st` describes is not this user's own; absent when it is.
std::optional<std::string> untrustedDirectoryReason(const struct stat& st, mode_t othersMask) {
  if (S_ISLNK(st.st_mode)) return "is a symbolic link";
  if (!S_ISDIR(st.st_mode)) return "is not a directory";
  if (st.st_uid != ::geteuid()) return "belongs to another user";
  if ((st.st_mode & othersMask) != 0) {
    return "is writable by others (mode " + modeText(st.st_mode) + ")";
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> untrustedFileReason(const struct stat& st, uid_t user, mode_t othersMask,
                                               bool oneLink) {
  if (S_ISLNK(st.st_mode)) return "is a symbolic link";
  if (!S_ISREG(st.st_mode)) return "is not a regular file";
  if (st.st_uid != user) return "belongs to another user";
  if (oneLink && st.st_nlink != 1) return "has " + std::to_string(st.st_nlink) + " links";
  const mode_t open = st.st_mode & othersMask;
  if (open == 0) return std::nullopt;
  return std::string((open & 044) != 0 ? "is readable" : "is writable") + " by others (mode " +
         modeText(st.st_mode) + ")";
}

std::optional<std::string> readOwnFile(const std::string& path, mode_t othersMask,
                                       std::string* reason) {
  reason->clear();
  // Non-blocking, so that a FIFO or a device cannot hold the open; checked before any read.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) {
    if (errno == ELOOP) {
      *reason = "is a symbolic link";
    } else if (errno != ENOENT) {
      *reason = "cannot be read: " + errnoText();
    }
    return std::nullopt;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    *reason = "cannot be read: " + errnoText();
  } else if (auto why = untrustedFileReason(st, ::geteuid(), othersMask, false)) {
    *reason = *why;
  } else if (::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0) {
    *reason = "cannot be read: " + errnoText();
  }
  if (!reason->empty()) {
    ::close(fd);
    return std::nullopt;
  }
  std::string text;
  text.reserve(kMostBytes);  // one buffer: no copy of a secret is left behind by a reallocation
  char buffer[4096];
  ssize_t got = 0;
  while (text.size() < kMostBytes &&
         (got = ::read(fd, buffer, std::min(sizeof buffer, kMostBytes - text.size()))) > 0) {
    text.append(buffer, static_cast<std::size_t>(got));
  }
  OPENSSL_cleanse(buffer, sizeof buffer);
  const int readError = got < 0 ? errno : 0;
  ::close(fd);
  if (readError != 0) {
    OPENSSL_cleanse(text.data(), text.size());
    *reason = std::string("cannot be read: ") + std::strerror(readError);
    return std::nullopt;
  }
  return text;
}

std::optional<std::string> trustedDataFile(const std::string& dataDir, const std::string& name,
                                           std::string* warning) {
  warning->clear();
  if (dataDir.empty()) return std::nullopt;
  struct stat st {};
  if (::lstat(dataDir.c_str(), &st) != 0) return std::nullopt;
  if (auto why = untrustedDirectoryReason(st, 022)) {
    *warning = "ignoring the sandbox data directory " + dataDir + ": it " + *why;
    return std::nullopt;
  }
  const std::string path = dataDir + "/" + name;
  if (::lstat(path.c_str(), &st) != 0) return std::nullopt;
  if (auto why = untrustedFileReason(st, ::geteuid(), 022, false)) {
    *warning = "ignoring " + path + ": it " + *why;
    return std::nullopt;
  }
  return path;
}

namespace internal {

std::optional<std::string> prepareDataDir(const std::string& path) {
  const std::string named = "the data directory " + path;
  if (!makeDirectories(path)) return "cannot create " + named + ": " + errnoText();
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return "cannot use " + named + ": " + errnoText();
  if (auto why = untrustedDirectoryReason(st, 0)) return named + " " + *why + "; refusing it";
  const int dir = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  struct stat opened {};
  if (dir < 0 || ::fstat(dir, &opened) != 0 || opened.st_dev != st.st_dev ||
      opened.st_ino != st.st_ino) {
    if (dir >= 0) ::close(dir);
    return named + " changed while it was being checked; refusing it";
  }
  std::optional<std::string> problem;
  if ((opened.st_mode & 0777) != 0700 && ::fchmod(dir, 0700) != 0) {
    problem = "cannot make " + named + " owner-only (0700): " + errnoText();
  }
  // From here on nobody else can add a file; what was planted before goes, or is refused.
  for (const char* name : kReplaceable) {
    if (problem) break;
    if (::fstatat(dir, name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (auto why = untrustedFileReason(st, ::geteuid(), 077, true);
        why && ::unlinkat(dir, name, 0) != 0) {
      problem = path + "/" + name + " " + *why + ", and cannot be removed: " + errnoText();
    }
  }
  for (const char* name : kDatabase) {
    if (problem) break;
    if (::fstatat(dir, name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (auto why = untrustedFileReason(st, ::geteuid(), 0, true)) {
      problem = "the database file " + path + "/" + name + " " + *why + "; refusing it";
    }
  }
  ::close(dir);
  return problem;
}

bool replaceFile(const std::string& path, const std::function<bool(std::FILE*)>& write) {
  const std::string temporary = path + ".tmp";
  ::unlink(temporary.c_str());  // a leftover (or planted) name; the new file must be ours alone
  const int fd =
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  std::FILE* file = ::fdopen(fd, "w");
  if (file == nullptr) {
    ::close(fd);
    ::unlink(temporary.c_str());
    return false;
  }
  bool ok = ::fchmod(fd, 0600) == 0 && write(file) && std::fflush(file) == 0 && ::fsync(fd) == 0;
  ok = std::fclose(file) == 0 && ok;
  if (!ok || std::rename(temporary.c_str(), path.c_str()) != 0) {
    ::unlink(temporary.c_str());
    return false;
  }
  return true;
}

bool replaceFile(const std::string& path, const std::string& text) {
  return replaceFile(path, [&](std::FILE* f) {
    return std::fwrite(text.data(), 1, text.size(), f) == text.size();
  });
}

}  // namespace internal
}  // namespace qipg::sandbox
