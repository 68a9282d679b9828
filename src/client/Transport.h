// The HTTP transport behind QuandrelIPG: one libcurl multi handle driven by one background
// thread, a new easy handle per request, connections (and TLS sessions) reused between
// requests of the same transport.
//
// Thread-safety: post() and shutdown() may be called from any thread, also from a completion.
#pragma once

#include <cstddef>
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
  using Completion =
      std::function<void(const Text& answer, const std::optional<TransportError>& error)>;

  // The largest answer handed on; a longer one is cut off and reported as an error.
  static constexpr std::size_t kMaxAnswerBytes = std::size_t{1} << 20;

  // TLS settings (CA file, pinned key), the connect time-out and the overall request time-out
  // come from `config`. The background thread starts with the first request. Returns nullptr
  // when libcurl cannot be set up.
  static std::shared_ptr<Transport> create(const GatewayConfig& config);

  virtual ~Transport() = default;

  // Sends `request`: its URL (http or https only; redirects are not followed), method,
  // headers exactly as listed (libcurl adds Host and Accept, never Expect or a Content-Type
  // of its own) and body. Time limit: the shorter of the request's timeoutInterval and
  // GatewayConfig's requestTimeoutMs, where 0 or less means none; with neither, libcurl's
  // defaults. TLS peer and host verification are always on.
  //
  // `completion` runs exactly once, on the transport thread, with:
  // - the answer text and no error when an answer arrived, whatever its HTTP status; the
  //   text is absent when the answer is not valid UTF-8;
  // - an absent text and an error when there is none: no URL, a malformed header, a network,
  //   TLS or time-out failure, an answer larger than kMaxAnswerBytes, or shutdown() while
  //   the request was under way ("transport shut down").
  // After shutdown() it runs at once, on the calling thread, with the "transport shut down"
  // error. Exceptions thrown by a completion are swallowed.
  virtual void post(URLRequest request, Completion completion) = 0;

  // Completes every request under way or queued with the "transport shut down" error and
  // stops the thread. Idempotent. Called from another thread it waits until the thread has
  // ended (so every completion has run); called from a completion it returns at once and the
  // thread finishes the remaining completions and ends on its own once that completion
  // returns.
  virtual void shutdown() = 0;
};

}  // namespace qipg::internal
