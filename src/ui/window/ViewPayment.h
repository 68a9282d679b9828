// What a payment view does around its toolkit, the same in both: one payment at a time from
// start to end, its controller wired and told when the view is on screen, its timers and idle
// limit, and the end that takes the payment out of the view before its delegate hears of it.
// Each toolkit's view derives from it and adds the widgets and the web view.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ui/window/Session.h"

namespace qipg::internal {

class ViewPayment : public WindowPorts, public std::enable_shared_from_this<ViewPayment> {
 public:
  ViewPayment(PostToWindowThread post, std::shared_ptr<TimerSchedulerPort> mainLoopTimers)
      : post_(std::move(post)), mainLoopTimers_(std::move(mainLoopTimers)) {}

  // Starts a payment; false with `error` set when one is under way, the view cannot take one
  // or the options are bad.
  bool start(const URLRequest& request, std::shared_ptr<IPGPaymentControllerDelegate> delegate,
             PaymentWindowOptions options, std::string* error);
  // Ends the payment under way without a word to its delegate (its widget or window is gone).
  void abandon();
  // The view is on screen: the payment under way may load (once, from the event loop).
  void onScreenNow();

  // PresenterPort: the payment ends; the view stays.
  void dismiss(bool animated, std::function<void()> completion) final;

  bool active() const { return active_; }
  const std::shared_ptr<WebviewController>& controller() const { return controller_; }
  // Does what Cancel does, while a payment is under way.
  void cancel() {
    if (active_) controller_->cancelButtonPressed();
  }
  // The customer did something in the view.
  void touched() { idle_.touched(); }

  // Called as a payment ends, before its delegate hears of it (a window closes itself).
  std::function<void()> onEnded;

 protected:
  // Why the view cannot take a payment now; absent when it can.
  virtual std::optional<std::string> unavailable() const { return std::nullopt; }
  // The toolkit's part of a start and of an end: the web view in, the look set; the web view
  // and what else the payment left in the view taken out.
  virtual void beginPayment() = 0;
  virtual void endPayment() = 0;
  // Whether the view is on screen now.
  virtual bool onScreen() const = 0;

  const URLRequest& request() const { return request_; }
  const PaymentWindowOptions& options() const { return options_; }
  // Reports a main-frame load to the options' hook (and the window's events). The idle limit
  // waits while a page loads: the customer cannot act before it is there.
  void reportLoad(PageLoadEvent event, const std::string& uri) {
    idle_.loading(event == PageLoadEvent::Started);
    if (options_.onPageLoad) options_.onPageLoad(event, uri);
  }

 private:
  void end();

  PostToWindowThread post_;
  std::shared_ptr<TimerSchedulerPort> mainLoopTimers_;
  URLRequest request_;
  PaymentWindowOptions options_;
  std::shared_ptr<WebviewController> controller_;
  std::shared_ptr<IPGPaymentControllerDelegate> delegate_;  // the host's, or reconciling
  std::shared_ptr<PaymentTimers> timers_;                   // the payment's
  std::shared_ptr<ViewPayment> keepAlive_;                  // while a payment is under way
  IdleLimit idle_;
  bool active_ = false;
  bool appeared_ = false;  // the controller has been told the view is on screen
};

}  // namespace qipg::internal
