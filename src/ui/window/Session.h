// What both payment windows do around their toolkit: checking the options, choosing the final
// page's base URLs, giving the controller its delegate (with reconciliation when asked for),
// running a window to its end, and the process environment their browser engines need.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qipg/Events.h"
#include "qipg/IPGPaymentControllerDelegate.h"
#include "qipg/PaymentWindowOptions.h"
#include "qipg/WebviewController.h"

namespace qipg::internal {

// Runs a task on the window's thread; callable from any thread.
using PostToWindowThread = std::function<void(std::function<void()> task)>;

// Why these options cannot open a window; absent when they can.
std::optional<std::string> optionsProblem(const PaymentWindowOptions& options);

// Fills in what the host left to the library: a CA file without a host is trusted for the
// request's own host.
void completeOptions(PaymentWindowOptions& options, const URLRequest& request);

// A window as the controller sees it: the web view, the bar, its title and the presenter.
struct WindowPorts : WebViewPort, BarViewPort, LabelPort, PresenterPort {};

// The timers of one payment: scheduled on the toolkit's main loop, and all stopped at once when
// the payment ends, so that a view that takes payment after payment keeps no old one ticking.
class PaymentTimers final : public TimerSchedulerPort {
 public:
  explicit PaymentTimers(std::shared_ptr<TimerSchedulerPort> mainLoop)
      : mainLoop_(std::move(mainLoop)) {}
  std::shared_ptr<TimerPort> scheduleRepeating(double intervalSeconds,
                                               std::function<void()> action) override {
    timers_.push_back(mainLoop_->scheduleRepeating(intervalSeconds, std::move(action)));
    return timers_.back();
  }
  void stopAll() {
    for (const auto& timer : timers_) timer->invalidate();
    timers_.clear();
  }

 private:
  std::shared_ptr<TimerSchedulerPort> mainLoop_;
  std::vector<std::shared_ptr<TimerPort>> timers_;
};

// Cancels an unfinished payment after a number of seconds without the customer's input while
// a page is shown (a page still loading leaves the customer nothing to do).
class IdleLimit {
 public:
  // Counts on `timers` (the payment's); 0 seconds: never.
  void start(unsigned seconds, TimerSchedulerPort& timers, std::function<void()> cancel) {
    idle_ = 0;
    loading_ = false;
    if (seconds == 0) return;
    timers.scheduleRepeating(1.0, [this, seconds, cancel = std::move(cancel)] {
      if (!loading_ && ++idle_ == seconds) cancel();
    });
  }
  // The customer did something.
  void touched() { idle_ = 0; }
  // A page started loading (true), or has been shown or failed (false): counting starts anew.
  void loading(bool now) {
    loading_ = now;
    idle_ = 0;
  }

 private:
  unsigned idle_ = 0;
  bool loading_ = false;
};

// A window's controller and the delegate it was given (which the window keeps alive).
struct WindowController {
  std::shared_ptr<WebviewController> controller;
  std::shared_ptr<IPGPaymentControllerDelegate> delegate;
  // What the window calls at each page load: the options' onPageLoad, after the client's
  // events have heard of it.
  std::function<void(PageLoadEvent event, const std::string& uri)> onPageLoad;
  // Set when the payment cannot start (its journal entry could not be written): the record its
  // delegate is to hear. Nothing is wired to the window then, and nothing loads.
  std::optional<PaymentResponse> notStarted;
};

// The controller of `window`, wired and loaded: its final page under the client's base URLs
// (else `options.gateway`'s), its request set, `window` as every port and `timers` as its
// timers. Its delegate passes each message on to `host` (held weakly) unchanged and, with
// `options.reconcile` and a client, asks the gateway for the status of an unclear payment once
// and hands that record to `reconcile->onStatus` through `post`; with `options.journal`, the
// payment's entry is written before anything loads. With a client whose event hook is set,
// the window's events (opened, each page loaded, the final page read, reconciled) go to that
// hook.
WindowController startController(const PaymentWindowOptions& options, const URLRequest& request,
                                 std::shared_ptr<IPGPaymentControllerDelegate> host,
                                 PostToWindowThread post,
                                 const std::shared_ptr<WindowPorts>& window,
                                 const std::shared_ptr<TimerSchedulerPort>& timers);

// True when a payment that ended this way is unclear: cancelled, or a final page whose record
// could not be read (status "F" and no order, reference or description).
bool needsReconciliation(bool cancelled, const PaymentResponse& response);

// Records what a window run to its end says: its delegate's message and, with reconciliation,
// the status record (chained before any `onStatus` the host set).
class OutcomeRecorder {
 public:
  explicit OutcomeRecorder(PaymentWindowOptions& options);
  std::shared_ptr<IPGPaymentControllerDelegate> delegate() const { return delegate_; }
  // True once the delegate has been told and any reconciliation has answered.
  bool done() const;
  bool told() const;
  std::optional<PaymentOutcome> outcome() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
  std::shared_ptr<IPGPaymentControllerDelegate> delegate_;
};

// A toolkit's main loop, run until `done()` is true.
using RunUntil = std::function<void(const std::function<bool()>& done)>;
// One pass over what the toolkit's main loop has pending already, ending early once `enough()`.
using RunPending = std::function<void(const std::function<bool()>& enough)>;

// Runs a presented window to its end: until its delegate is told or it closes, then what a
// dismissal posted, then any reconciliation under way. The outcome; absent, with `error` set,
// when the window closed before the delegate heard anything.
std::optional<PaymentOutcome> runToEnd(const OutcomeRecorder& recorder,
                                       const std::function<bool()>& isOpen,
                                       const RunUntil& runUntil, const RunPending& runPending,
                                       std::string* error);

bool runningAsRoot();
// True when the machine has a GPU render node this process may open.
bool gpuAvailable();
// Sets `name` to `value` unless it is already set. (Not safe while other threads read the
// environment: called before the first browser engine starts.)
void setEnvironmentDefault(const char* name, const char* value);

}  // namespace qipg::internal
