// The application's Info.plist: where it is and the two credential values it may hold.
//
// The file is read whole (at most kMaxInfoPlistBytes) and handed to libplist, which reads the
// XML and the binary format. Before that, a small scan refuses a document nested deeper than
// kMaxInfoPlistDepth (libplist parses recursively, so a deep document would exhaust the
// stack) or, for the binary format, one whose objects cannot be walked within bounds.
// Anything refused, unreadable or malformed gives absent values; nothing is reported.
//
// Thread-safe: no state; every call reads the file anew.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string_view>

#include "qipg/Types.h"

namespace qipg::internal {

inline constexpr std::size_t kMaxInfoPlistBytes = 1 << 20;
inline constexpr int kMaxInfoPlistDepth = 32;

struct PListCredentials {
  Text merchantID;     // "merchantID", absent when missing or not a string
  Text encryptionKey;  // "encryptionKey", likewise
};

// Info.plist in $QIPG_BUNDLE_DIR when that is set and not empty, else in the directory of the
// running executable; absent when neither can be found out.
std::optional<std::filesystem::path> infoPlistPath();

// The two values from the document `data` (XML or binary property list whose root is a
// dictionary). Absent values for anything else. Never throws.
PListCredentials parseInfoPlistCredentials(std::string_view data);

// The two values from the file at infoPlistPath(). A missing, unreadable, non-regular or
// oversized file gives absent values. Never throws.
PListCredentials readInfoPlistCredentials();

}  // namespace qipg::internal
