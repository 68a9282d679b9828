// The payment as the shared window tests drive it, in either shell the library offers: its own
// window, or (QIPG_TEST_EMBEDDED=1) its view placed in a till window of the test's own, as a
// merchant embeds it. Each toolkit's Toolkit.h makes them.
#pragma once

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "qipg/PaymentWindowOptions.h"

namespace toolkit {

// What a control of ours is to assistive technology.
enum class Role { Any, Button, Image, ProgressBar };

inline bool embedded() {
  static const bool yes = [] {
    const char* value = std::getenv("QIPG_TEST_EMBEDDED");
    return value != nullptr && std::string(value) == "1";
  }();
  return yes;
}

template <typename LibraryWindow, typename LibraryView>
class Shell {
 public:
  explicit Shell(std::shared_ptr<LibraryWindow> window) : window_(std::move(window)) {}
  // `till` is the host's window around `view`; `closeTill` takes it away.
  Shell(std::shared_ptr<LibraryView> view, void* till, std::function<void()> closeTill)
      : view_(std::move(view)), till_(till), closeTill_(std::move(closeTill)) {}
  ~Shell() {
    if (closeTill_) closeTill_();
  }
  Shell(const Shell&) = delete;
  Shell& operator=(const Shell&) = delete;

  static void prewarm() { LibraryWindow::prewarm(); }

  bool isOpen() const { return window_ ? window_->isOpen() : view_->isActive(); }
  void runJavaScript(const std::string& script,
                     std::function<void(const qipg::Text&)> done = {}) {
    window_ ? window_->runJavaScript(script, std::move(done))
            : view_->runJavaScript(script, std::move(done));
  }
  void saveScreenshot(const std::string& path, std::function<void(bool)> done) {
    window_ ? window_->saveScreenshot(path, std::move(done))
            : view_->saveScreenshot(path, std::move(done));
  }
  void pressCancel() { window_ ? window_->pressCancel() : view_->pressCancel(); }
  void* nativeWindow() const { return window_ ? window_->nativeWindow() : till_; }
  void* nativeWebView() const {
    return window_ ? window_->nativeWebView() : view_->nativeWebView();
  }
  // The view, when embedded.
  const std::shared_ptr<LibraryView>& view() const { return view_; }

 private:
  std::shared_ptr<LibraryWindow> window_;
  std::shared_ptr<LibraryView> view_;
  void* till_ = nullptr;
  std::function<void()> closeTill_;
};

}  // namespace toolkit
