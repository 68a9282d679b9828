// The HTTP transport behind QuandrelIPG: one libcurl multi handle driven by one background
// thread, a new easy handle per request, connections (and TLS sessions) reused between
// requests of the same transport. Completions run on a small pool of completion threads of
// the transport (or, when they ask for it, on the transfer thread), never on the caller's
// thread.
//
// Thread-safety: post(), cancel() and shutdown() may be called from any thread, also from a
// completion.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "qipg/GatewayConfig.h"
#include "qipg/TransportError.h"
#include "qipg/Types.h"
#include "qipg/URLRequest.h"

namespace qipg::internal {

// What a post brings back.
struct TransportReply {
  Text answer;  // absent on error or when the answer is not valid UTF-8
  std::optional<TransportError> error;
  long httpStatus = 0;  // the answer's HTTP status; 0 when no answer arrived
  // When the request's first byte left and the answer's first byte came, as the transfer
  // measured them; absent for what did not happen. The bodies' sizes, sent and received.
  std::optional<std::chrono::steady_clock::time_point> sentAt, answeredAt;
  std::uint64_t bytesSent = 0;
  std::uint64_t bytesReceived = 0;
};

using Completion = std::function<void(const TransportReply&)>;
using RequestId = std::uint64_t;  // never 0

// How a post goes out and where its completion runs.
struct PostOptions {
  // The request reaches the wire at most once. libcurl sends a request again on a new
  // connection when a reused one dies before any answer came; such a request may already
  // have been read (and carried out) by the server, so for a money-moving request the second
  // attempt is refused before a byte of it is written, and the completion reports the first
  // one's failure with requestSent. False for a request that is safe to repeat (a status
  // inquiry).
  bool atMostOnce = true;
  // The completion runs on the transfer thread itself, as soon as the answer is in, instead of
  // on a completion thread: for completions that run no host code, never block and are quick
  // (fulfilling a promise). Such a completion may run before post() returns.
  bool completeOnTransferThread = false;
};

// The gateway's management post: `body` as a form to `url`, with GatewayConfig's time-outs and
// no cache.
URLRequest formPostRequest(const Text& url, const std::string& body);

class Transport {
 public:
  // The largest answer handed on; a longer one is cut off and reported as an error.
  static constexpr std::size_t kMaxAnswerBytes = std::size_t{1} << 20;
  // Transfers under way at once; further requests wait as small queued records.
  static constexpr std::size_t kMaxLiveTransfers = 12;
  // Completion threads of one transport, started when needed.
  static constexpr std::size_t kMaxCompletionThreads = 4;

  // TLS settings (CA file, pinned key) and the time-outs come from `config`. One completion
  // thread starts at once, the transfer thread with the first request. Returns nullptr when
  // libcurl or that thread cannot be set up. Transports still running when the process exits
  // (a host's global returning from main, std::exit) are shut down by an exit handler, before
  // OpenSSL's own.
  static std::shared_ptr<Transport> create(const GatewayConfig& config);

  virtual ~Transport() = default;

  // Sends `request`: its URL (http or https only; redirects are not followed; a loopback host
  // is never reached through a proxy), method, headers exactly as listed (libcurl adds Host
  // and Accept, never Expect or a Content-Type of its own) and body. Time limits: connect and
  // idle limits from GatewayConfig; overall, the shorter of the request's timeoutInterval and
  // GatewayConfig's requestTimeoutMs, where 0 or less means none. TLS peer and host
  // verification are always on.
  //
  // `completion` runs exactly once, on a completion thread, never before post() returns (or,
  // with options.completeOnTransferThread, on the transfer thread, at any time):
  // - with the answer text and no error when an answer arrived, whatever its HTTP status; the
  //   text is absent when the answer is not valid UTF-8;
  // - with an absent text and an error when there is none: no URL, a malformed header, a
  //   network, TLS or time-out failure, a second attempt refused for an atMostOnce request
  //   (kOwnReason, requestSent), an answer larger than kMaxAnswerBytes (kOwnReason),
  //   shutdown() before the answer came (kShutDown, also for posts after shutdown()), or
  //   cancel() (kCancelled).
  // Exceptions thrown by a completion are swallowed. Returns the request's id.
  RequestId post(URLRequest request, Completion completion, PostOptions options = {}) {
    return send(std::move(request), std::move(completion), options);
  }

  // Aborts the request when it is still queued or under way: the connection is closed (the
  // server sees it closed) and its completion runs once with error code kCancelled
  // ("request cancelled", requestSent as it was). No-op for an unknown or finished id.
  virtual void cancel(RequestId id) = 0;

  // Completes every request under way or queued with the "transport shut down" error and
  // stops the transfer thread. Idempotent. Called from another thread it waits until every
  // completion has run; called from a completion it returns at once and the remaining
  // completions run on their own.
  virtual void shutdown() = 0;

 protected:
  // post() itself, without its default options.
  virtual RequestId send(URLRequest request, Completion completion, PostOptions options) = 0;
};

}  // namespace qipg::internal
