/// @class qipg::IPGResponseDelegate
/// What a QuandrelIPG operation tells its caller.
///
/// Every message is pure virtual: the client never asks whether one is implemented.
/// The arguments live only for the duration of the call: copy what you keep.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "qipg/Export.h"
#include "qipg/PaymentResponse.h"

namespace qipg {

class QIPG_EXPORT IPGResponseDelegate {
 public:
  virtual ~IPGResponseDelegate() = default;
  /// Status, cancel and refund: the gateway's answer (statusCode "F" when the call failed on
  /// the way). On the transport's background thread, exactly once per call that passed
  /// validation. A delegate that touches a user interface must switch threads itself.
  virtual void didReceivePaymentResponse(const PaymentResponse& response) = 0;
  /// Status, cancel and refund: the input was refused and nothing was sent. Synchronously on
  /// the caller's thread, before the call returns.
  virtual void didReceiveInputError(const std::string& message) = 0;
  /// The two payment operations: why no request could be built. Synchronously, exactly once
  /// per failed call.
  virtual void requestFailedError(const std::string& message) = 0;
};

/// A delegate made of three callables, for hosts that prefer lambdas. An empty callable
/// ignores its message. The callables run on the threads documented above.
QIPG_EXPORT std::shared_ptr<IPGResponseDelegate> makeResponseDelegate(
    std::function<void(const PaymentResponse&)> didReceivePaymentResponse,
    std::function<void(const std::string&)> didReceiveInputError = {},
    std::function<void(const std::string&)> requestFailedError = {});

}  // namespace qipg
