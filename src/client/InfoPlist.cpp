#include "client/InfoPlist.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "common/Ascii.h"

namespace qipg::internal {
namespace {

constexpr std::string_view kFileName = "Info.plist";

// How many object references the binary pre-scan follows before it gives up: far more than
// any real Info.plist holds, and small enough that a document whose objects share children
// (so that walking it as a tree explodes) is refused quickly.
constexpr std::size_t kMaxBinaryReferences = 1 << 16;

struct PlistDeleter {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistOwner = std::unique_ptr<void, PlistDeleter>;

// A file descriptor, closed when released.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// A buffer that may hold the merchant key: wiped when released.
class WipedBuffer {
 public:
  WipedBuffer() = default;
  ~WipedBuffer() {
    if (!data_.empty()) OPENSSL_cleanse(data_.data(), data_.size());
  }
  WipedBuffer(const WipedBuffer&) = delete;
  WipedBuffer& operator=(const WipedBuffer&) = delete;
  std::string& data() { return data_; }

 private:
  std::string data_;
};

// True when no <array> or <dict> is nested deeper than `maxDepth`. Over-counts rather than
// under-counts (tags inside comments count too), which only refuses odd documents.
bool xmlNestingWithin(std::string_view d, int maxDepth) {
  int depth = 0;
  std::size_t i = 0;
  while ((i = d.find('<', i)) != std::string_view::npos) {
    ++i;
    if (i >= d.size()) break;
    const bool closing = d[i] == '/';
    if (closing) ++i;
    std::size_t nameEnd = i;
    while (nameEnd < d.size() &&
           ((d[nameEnd] >= 'a' && d[nameEnd] <= 'z') || (d[nameEnd] >= 'A' && d[nameEnd] <= 'Z'))) {
      ++nameEnd;
    }
    const std::string_view name = d.substr(i, nameEnd - i);
    if (name != "array" && name != "dict") continue;
    const std::size_t close = d.find('>', nameEnd);
    if (close == std::string_view::npos) return false;
    if (closing) {
      if (depth > 0) --depth;
    } else if (d[close - 1] != '/') {
      if (++depth > maxDepth) return false;
    }
    i = close + 1;
  }
  return true;
}

std::uint64_t bigEndian(const unsigned char* p, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t k = 0; k < width; ++k) value = (value << 8) | p[k];
  return value;
}

// Walks a binary property list ("bplist00") from its root without recursion and answers
// whether every reference stays inside the document, no container is nested deeper than
// `maxDepth`, and the walk ends within kMaxBinaryReferences references.
bool binaryWalkWithin(std::string_view d, int maxDepth) {
  constexpr std::size_t kHeader = 8;
  constexpr std::size_t kTrailer = 32;
  const std::size_t n = d.size();
  if (n < kHeader + kTrailer) return false;
  const auto* p = reinterpret_cast<const unsigned char*>(d.data());
  const unsigned char* trailer = p + n - kTrailer;
  const std::size_t offsetSize = trailer[6];
  const std::size_t refSize = trailer[7];
  const std::uint64_t objectCount = bigEndian(trailer + 8, 8);
  const std::uint64_t root = bigEndian(trailer + 16, 8);
  const std::uint64_t tableOffset = bigEndian(trailer + 24, 8);
  if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8) return false;
  if (tableOffset < kHeader || tableOffset >= n - kTrailer) return false;
  if (objectCount == 0 || objectCount > (n - kTrailer - tableOffset) / offsetSize) return false;
  if (root >= objectCount) return false;

  struct Pending {
    std::uint64_t index;
    int depth;
  };
  std::vector<Pending> pending{{root, 1}};
  std::size_t references = 1;
  while (!pending.empty()) {
    const Pending item = pending.back();
    pending.pop_back();
    const std::uint64_t offset = bigEndian(p + tableOffset + item.index * offsetSize, offsetSize);
    if (offset < kHeader || offset >= tableOffset) return false;
    const unsigned char marker = p[offset];
    const unsigned type = marker >> 4;
    const bool container = type == 0xA || type == 0xB || type == 0xC || type == 0xD;
    if (!container) continue;
    if (item.depth >= maxDepth) return false;
    std::uint64_t count = marker & 0x0F;
    std::uint64_t position = offset + 1;
    if (count == 0x0F) {
      if (position >= tableOffset) return false;
      const unsigned char intMarker = p[position];
      if ((intMarker >> 4) != 0x1) return false;
      const std::size_t width = std::size_t{1} << (intMarker & 0x0F);
      if (width > 8 || position + 1 + width > tableOffset) return false;
      count = bigEndian(p + position + 1, width);
      position += 1 + width;
    }
    if (count > n) return false;
    const std::uint64_t refs = type == 0xD ? count * 2 : count;
    if (refs > (tableOffset - position) / refSize) return false;
    if (refs > kMaxBinaryReferences - references) return false;
    references += refs;
    for (std::uint64_t k = 0; k < refs; ++k) {
      const std::uint64_t child = bigEndian(p + position + k * refSize, refSize);
      if (child >= objectCount) return false;
      pending.push_back({child, item.depth + 1});
    }
  }
  return true;
}

Text stringValue(plist_t dict, const char* key) {
  plist_t node = plist_dict_get_item(dict, key);
  if (node == nullptr || plist_get_node_type(node) != PLIST_STRING) return std::nullopt;
  std::uint64_t length = 0;
  const char* value = plist_get_string_ptr(node, &length);
  if (value == nullptr) return std::nullopt;
  std::string text(value, static_cast<std::size_t>(length));
  if (!isValidUtf8(text)) return std::nullopt;
  return text;
}

}  // namespace

std::optional<std::filesystem::path> infoPlistPath() {
  if (const char* bundle = std::getenv("QIPG_BUNDLE_DIR"); bundle != nullptr && *bundle != '\0') {
    return std::filesystem::path(bundle) / kFileName;
  }
#if defined(__linux__)
  std::error_code error;
  const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error && exe.has_parent_path()) return exe.parent_path() / kFileName;
#endif
  return std::nullopt;
}

PListCredentials parseInfoPlistCredentials(std::string_view data) {
  if (data.empty() || data.size() > kMaxInfoPlistBytes) return {};
  const bool binary = data.substr(0, 6) == "bplist";
  if (binary ? !binaryWalkWithin(data, kMaxInfoPlistDepth)
             : !xmlNestingWithin(data, kMaxInfoPlistDepth)) {
    return {};
  }
  plist_t raw = nullptr;
  plist_from_memory(data.data(), static_cast<std::uint32_t>(data.size()), &raw);
  PlistOwner root(raw);
  if (raw == nullptr || plist_get_node_type(raw) != PLIST_DICT) return {};
  return {stringValue(raw, "merchantID"), stringValue(raw, "encryptionKey")};
}

PListCredentials readInfoPlistCredentials() {
  try {
    const std::optional<std::filesystem::path> path = infoPlistPath();
    if (!path) return {};
    // Non-blocking, so that a FIFO put in the file's place cannot hold the caller.
    FileDescriptor fd(::open(path->c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (fd.get() < 0) return {};
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
    if (info.st_size < 0 || static_cast<std::uint64_t>(info.st_size) > kMaxInfoPlistBytes) {
      return {};
    }
    WipedBuffer buffer;
    std::string& data = buffer.data();
    // One byte more than the cap, so that a file that grew since fstat is noticed.
    data.resize(kMaxInfoPlistBytes + 1);
    std::size_t filled = 0;
    while (filled < data.size()) {
      const ssize_t got = ::read(fd.get(), data.data() + filled, data.size() - filled);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return {};
      if (got == 0) break;
      filled += static_cast<std::size_t>(got);
    }
    data.resize(filled);  // the rest was never written: only the read part needs wiping
    if (filled > kMaxInfoPlistBytes) return {};
    return parseInfoPlistCredentials(std::string_view(data.data(), filled));
  } catch (...) {
    // Out of memory or a path the file system library refuses: no values.
    return {};
  }
}

}  // namespace qipg::internal
