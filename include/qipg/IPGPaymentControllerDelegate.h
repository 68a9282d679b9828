/// @class qipg::IPGPaymentControllerDelegate
/// What the payment page (WebviewController) tells its host when the customer is done.
///
/// Both messages are pure virtual: the controller never asks whether one is implemented.
/// A failed page load is not reported: the page stays up and the customer can still cancel.
///
/// Thread-safety: messages arrive on the user-interface (GTK main) thread. The record lives
/// only for the duration of the call: copy what you keep. The controller holds its delegate
/// weakly: keep your delegate alive for as long as the page is up.
#pragma once

#include <functional>
#include <memory>

#include "qipg/Export.h"
#include "qipg/PaymentResponse.h"

namespace qipg {

class QIPG_EXPORT IPGPaymentControllerDelegate {
 public:
  virtual ~IPGPaymentControllerDelegate() = default;
  /// The gateway's final page has been read; sent after the payment page has been dismissed.
  /// @param response what the page's hidden result element held (statusCode "F" with every
  ///        other property absent when the page held no usable result). Confirm it with a
  ///        status inquiry before acting on it.
  virtual void didTransactionComplete(const PaymentResponse& response) = 0;
  /// The customer pressed Cancel (or closed the window); sent after the payment page has been
  /// dismissed.
  virtual void didTransactionCancelledByUser() = 0;
};

/// A delegate made of two callables, for hosts that prefer lambdas. An empty callable ignores
/// its message. The caller owns the returned delegate and must keep it alive while the page
/// is up.
QIPG_EXPORT std::shared_ptr<IPGPaymentControllerDelegate> makePaymentControllerDelegate(
    std::function<void(const PaymentResponse&)> didTransactionComplete,
    std::function<void()> didTransactionCancelledByUser = {});

}  // namespace qipg
