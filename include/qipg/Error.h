/// @file
/// Why a call of qipg::Client produced no usable answer.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "qipg/Export.h"
#include "qipg/TransportError.h"

namespace qipg {

/// The cause of a failed call, coarse enough to decide what to do next.
enum class ErrorKind {
  Input,       ///< The arguments were refused before anything was sent.
  Config,      ///< The client could not be set up (base URL, CA file, credentials).
  Network,     ///< Refused or lost connection, unknown host.
  Timeout,     ///< The gateway did not answer within the configured time.
  Tls,         ///< Untrusted certificate, pinned key mismatch, failed TLS handshake.
  Http,        ///< The gateway answered with an HTTP status other than 200.
  Unreadable,  ///< The answer did not open with the merchant key or did not parse.
  Cancelled,   ///< The caller's std::stop_token asked for the call to stop.
  ShutDown,    ///< The client was shut down before the answer arrived.
  Journal,     ///< The outcome journal could not record the call; nothing was sent.
};

/// The kind's name as spelled in the enumeration ("Network", "ShutDown"...). Thread-safe.
QIPG_EXPORT std::string_view errorKindName(ErrorKind kind);

/// A failed call: what went wrong, in one human sentence, with the transport's own report when
/// there is one. A plain value; copy it freely. It never holds a key or card data.
struct QIPG_EXPORT Error {
  ErrorKind kind = ErrorKind::Input;  ///< The cause, coarse enough to decide what to do next.
  /// One sentence naming the cause, e.g. "the gateway at https://127.0.0.1:4431/ipg/ refused
  /// the connection". When outcomeUnknown is true it also says to confirm with a status
  /// inquiry before retrying.
  std::string message;
  /// The transport's failure (libcurl code and text) for Network, Timeout, Tls, Cancelled and
  /// ShutDown errors of calls that reached the transport.
  std::optional<TransportError> transport;
  /// The HTTP status of an Http error.
  std::optional<long> httpStatus;
  /// True when a cancel or refund may have reached the gateway and been applied even though no
  /// usable answer came back (time-out or connection lost after sending, cancelled or shut down
  /// mid-transfer, an answer that could not be read). Cancels and refunds carry no idempotency
  /// key: confirm with a status inquiry before retrying, or the refund may be applied twice.
  /// False when the request certainly did not take effect, and always false for status inquiries,
  /// which change nothing.
  bool outcomeUnknown = false;

  /// One line for a log: the kind's name, ": " and the message, e.g. "Timeout: the gateway at
  /// https://gw.example/ipg/ did not answer within 30000 ms". Thread-safe.
  std::string toString() const;
};

/// Writes error.toString().
QIPG_EXPORT std::ostream& operator<<(std::ostream& out, const Error& error);

}  // namespace qipg
