#include "Answer.h"

#include <utility>

namespace ipg {

std::shared_ptr<qipg::IPGResponseDelegate> Answer::delegate() {
  auto self = shared_from_this();
  return qipg::makeResponseDelegate(
      [self](const qipg::PaymentResponse& r) { self->set(r, std::nullopt); },
      [self](const std::string& message) { self->set(std::nullopt, message); });
}

bool Answer::waitFor(std::chrono::seconds limit) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, limit, [this] { return told_; });
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
