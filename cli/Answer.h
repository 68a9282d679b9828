// What a management call tells its delegate, handed from the client's transport thread to the
// thread that waits for it. Shared-owned: the delegate holds it, so an answer that arrives after
// the waiter gave up lands in a live object.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "qipg/IPGResponseDelegate.h"
#include "qipg/PaymentResponse.h"

namespace ipg {

class Answer : public std::enable_shared_from_this<Answer> {
 public:
  static std::shared_ptr<Answer> create() { return std::shared_ptr<Answer>(new Answer()); }

  // A delegate that records the first record or input error it is told.
  std::shared_ptr<qipg::IPGResponseDelegate> delegate();

  // Waits until something was told or `limit` passed; true when something was told. With
  // `spinner`, a wait longer than a second shows a one-line spinner with the elapsed time on
  // standard error, when that is a terminal; the line is cleared when the wait ends.
  bool waitFor(std::chrono::seconds limit, bool spinner = false);

  std::optional<qipg::PaymentResponse> record() const;
  std::optional<std::string> inputError() const;

 private:
  Answer() = default;
  void set(std::optional<qipg::PaymentResponse> record, std::optional<std::string> inputError);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool told_ = false;
  std::optional<qipg::PaymentResponse> record_;
  std::optional<std::string> inputError_;
};

}  // namespace ipg
