#include "ui/window/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace qipg::internal {

bool writeOwnerOnly(const std::string& path, const void* data, std::size_t size) {
  if (data == nullptr && size > 0) return false;
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return false;
  bool ok = fchmod(fd, 0600) == 0;
  const auto* bytes = static_cast<const char*>(data);
  while (ok && size > 0) {
    const ssize_t written = write(fd, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      ok = false;
      break;
    }
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return close(fd) == 0 && ok;
}

}  // namespace qipg::internal
