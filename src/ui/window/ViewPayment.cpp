#include "ui/window/ViewPayment.h"

#include <utility>

namespace qipg::internal {

bool ViewPayment::start(const URLRequest& request,
                        std::shared_ptr<IPGPaymentControllerDelegate> delegate,
                        PaymentWindowOptions options, std::string* error) {
  const auto refuse = [error](std::string reason) {
    if (error != nullptr) *error = std::move(reason);
    return false;
  };
  if (active_) return refuse("a payment is under way in this view");
  if (auto why = unavailable()) return refuse(*why);
  if (auto problem = optionsProblem(options)) return refuse(*problem);
  completeOptions(options, request);
  request_ = request;
  options_ = std::move(options);
  appeared_ = false;
  beginPayment();

  auto self = shared_from_this();
  timers_ = std::make_shared<PaymentTimers>(mainLoopTimers_);
  WindowController started =
      startController(options_, request_, std::move(delegate), post_, self, timers_);
  controller_ = std::move(started.controller);
  delegate_ = std::move(started.delegate);
  options_.onPageLoad = std::move(started.onPageLoad);
  active_ = true;
  keepAlive_ = self;
  if (started.notStarted) {
    // Nothing loads: the payment ends from the event loop as a dismissal ends it (once the
    // window around the view is set up), and then its delegate hears why.
    appeared_ = true;
    post_([weak = weak_from_this(), record = std::move(*started.notStarted)] {
      auto view = weak.lock();
      if (!view || !view->active_) return;
      view->dismiss(false, [delegate = view->delegate_, record] {
        if (delegate) delegate->didTransactionComplete(record);
      });
    });
    return true;
  }
  idle_.start(options_.idleCancelSeconds, *timers_, [this] { cancel(); });
  if (onScreen()) onScreenNow();
  return true;
}

void ViewPayment::onScreenNow() {
  // Once the view is laid out: the controller sets up its progress line and loads.
  post_([weak = weak_from_this()] {
    auto self = weak.lock();
    if (!self || !self->active_ || self->appeared_) return;
    self->appeared_ = true;
    self->controller_->viewDidAppear(true);
  });
}

void ViewPayment::end() {
  active_ = false;
  if (timers_) timers_->stopAll();
  endPayment();
}

void ViewPayment::abandon() {
  if (!active_) return;
  end();
  post_([held = std::move(keepAlive_)] {});
}

void ViewPayment::dismiss(bool /*animated*/, std::function<void()> completion) {
  if (!active_) return;
  end();
  if (onEnded) onEnded();
  post_(std::move(completion));
  // Let go of the view's hold on itself after this call (the caller may be its last user).
  post_([held = std::move(keepAlive_)] {});
}

}  // namespace qipg::internal
