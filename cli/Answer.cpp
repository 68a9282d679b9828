#include "Answer.h"

#include <algorithm>

#include <unistd.h>

#include <cstdio>
#include <utility>

namespace ipg {

std::shared_ptr<qipg::IPGResponseDelegate> Answer::delegate() {
  auto self = shared_from_this();
  return qipg::makeResponseDelegate(
      [self](const qipg::PaymentResponse& r) { self->set(r, std::nullopt); },
      [self](const std::string& message) { self->set(std::nullopt, message); });
}

bool Answer::waitFor(std::chrono::seconds limit, bool spinner) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  const Clock::time_point end = start + limit;
  spinner = spinner && ::isatty(STDERR_FILENO) == 1;
  std::unique_lock lock(mutex_);
  bool shown = false;
  for (int frame = 0;; ++frame) {
    const Clock::time_point next =
        std::min(end, Clock::now() + std::chrono::milliseconds(spinner ? 100 : 3600000));
    if (changed_.wait_until(lock, next, [this] { return told_; }) || Clock::now() >= end) break;
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    if (elapsed >= 1.0) {
      std::fprintf(stderr, "\r%c waiting for the gateway... %.1f s ", "|/-\\"[frame % 4], elapsed);
      std::fflush(stderr);
      shown = true;
    }
  }
  if (shown) {
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
  }
  return told_;
}

std::optional<qipg::PaymentResponse> Answer::record() const {
  std::lock_guard lock(mutex_);
  return record_;
}

std::optional<std::string> Answer::inputError() const {
  std::lock_guard lock(mutex_);
  return inputError_;
}

void Answer::set(std::optional<qipg::PaymentResponse> record,
                 std::optional<std::string> inputError) {
  std::lock_guard lock(mutex_);
  if (told_) return;
  record_ = std::move(record);
  inputError_ = std::move(inputError);
  told_ = true;
  changed_.notify_all();
}

}  // namespace ipg
