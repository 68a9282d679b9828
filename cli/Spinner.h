// A one-line spinner with the elapsed time on standard error, shown while something waits
// longer than a second, and only when standard error is a terminal. The line is cleared when
// the spinner goes.
#pragma once

#include <chrono>

namespace ipg {

class Spinner {
 public:
  Spinner();
  ~Spinner();
  Spinner(const Spinner&) = delete;
  Spinner& operator=(const Spinner&) = delete;

  // Call about ten times a second while waiting.
  void tick();

 private:
  std::chrono::steady_clock::time_point start_;
  bool terminal_;
  bool shown_ = false;
  int frame_ = 0;
};

}  // namespace ipg
