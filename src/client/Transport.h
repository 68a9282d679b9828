// The HTTP transport behind QuandrelIPG: one libcurl multi handle driven by one background
// thread, a new easy handle per request, connections reused between requests.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "qipg/GatewayConfig.h"
#include "qipg/TransportError.h"
#include "qipg/Types.h"
#include "qipg/URLRequest.h"

namespace qipg::internal {

class Transport {
 public:
  using Completion = std::function<void(const Text& answer, const std::optional<TransportError>& error)>;

  // TLS settings (CA file, pinned key, connect time-out) come from `config`.
  static std::shared_ptr<Transport> create(const GatewayConfig& config);

  virtual ~Transport() = default;

  // Sends `request` (its URL, method, headers, body and time-out; a time-out of 0 means
  // libcurl's defaults). `completion` runs exactly once, on the transport thread: with the
  // answer text (absent when there is none, empty or absent when it is not UTF-8, absent and
  // an error when it exceeds 1 MiB) and the error. After shutdown() it runs at once with an
  // error.
  virtual void post(URLRequest request, Completion completion) = 0;

  // Completes every request under way with an error and stops the thread. Idempotent; safe
  // to call from a completion (then the thread is released rather than joined).
  virtual void shutdown() = 0;
};

}  // namespace qipg::internal
