#include "Spinner.h"

#include <unistd.h>

#include <cstdio>

namespace ipg {

Spinner::Spinner()
    : start_(std::chrono::steady_clock::now()), terminal_(::isatty(STDERR_FILENO) == 1) {}

Spinner::~Spinner() {
  if (!shown_) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
}

void Spinner::tick() {
  const double elapsed =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  if (!terminal_ || elapsed < 1.0) return;
  std::fprintf(stderr, "\r%c waiting for the gateway... %.1f s ", "|/-\\"[frame_++ % 4], elapsed);
  std::fflush(stderr);
  shown_ = true;
}

}  // namespace ipg
