// The sandbox's data directory and the rules by which its owner trusts the files in it.
//
// Another local user may plant links in a directory before its owner starts the sandbox, or
// leave a "running" or "ca.pem" of their own where `ipg` looks: a file is used only when it
// is a regular file of this user, opened without following a symbolic link and without
// waiting on a FIFO or a device, and is written only through a new file renamed into place.
//
// Thread-safe: no shared state.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdio>
#include <functional>
#include <optional>
#include <string>

namespace qipg::sandbox {

// Why a file that lstat() or fstat() describes as `st` is not one of `user`'s own: "is a
// symbolic link; refusing it", "is not a regular file", "belongs to another user", "has 2
// links; refusing it" (only with `oneLink`), "is readable by others (mode 0644)" or "is
// writable by others (mode 0620)" (for the bits of `othersMask` that are set: 077 for a
// secret, 022 for a file only its owner may change). Absent when it is.
std::optional<std::string> untrustedFileReason(const struct stat& st, uid_t user, mode_t othersMask,
                                               bool oneLink);

// The contents of `path` (at most 64 KiB) when it is one of this user's own files by the rule
// above; absent otherwise, with the reason in `reason` (as above, or "cannot be read: ...";
// empty when there is no such file).
std::optional<std::string> readOwnFile(const std::string& path, mode_t othersMask,
                                       std::string* reason);

// The path of file `name` of the sandbox data directory `dataDir` when both the directory and
// the file are this user's and nobody else may change them; absent otherwise. When something
// is there but is not trusted, `warning` says which and why, in one line ("ignoring DIR/ca.pem:
// it belongs to another user"); else it is left empty.
std::optional<std::string> trustedDataFile(const std::string& dataDir, const std::string& name,
                                           std::string* warning);

namespace internal {

// Makes `path`, created with its missing parents, the sandbox's own data directory: refuses a
// symbolic link, what is not a directory and another user's directory; makes it owner-only
// (0700); removes each of the sandbox's replaceable files (token, running, certificates) that
// is not a regular file of this user with one link, and refuses such a database. Absent when
// the directory is ready, else the reason in one line.
std::optional<std::string> prepareDataDir(const std::string& path);

// Writes `path` owner-only through a new temporary file (O_EXCL, O_NOFOLLOW), synced, then
// renamed over `path`: a link planted at either name is replaced, never written through.
bool replaceFile(const std::string& path, const std::function<bool(std::FILE*)>& write);
bool replaceFile(const std::string& path, const std::string& text);

}  // namespace internal
}  // namespace qipg::sandbox
