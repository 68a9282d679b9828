/// @file
/// A failure of the HTTP transport, handed to a post's completion beside the (absent) answer.
#pragma once

#include <string>

#include "qipg/Export.h"

namespace qipg {

/// Why a post to the gateway brought back no usable answer. A plain value; copy it freely.
struct QIPG_EXPORT TransportError {
  /// libcurl's CURLcode, or one of the negative codes below.
  int code = 0;
  /// One line, for logs; never holds request or answer content.
  std::string message;
  /// True when any byte of the request may have reached the server, so the outcome at the
  /// gateway is unknown (a cancel or refund may have been carried out); false when it
  /// certainly did not.
  bool requestSent = false;

  /// The library's own reasons: no URL, a malformed header, an answer too large, ...
  static constexpr int kOwnReason = -1;
  /// The transport was shut down before the answer came ("transport shut down").
  static constexpr int kShutDown = -2;
  /// The request was cancelled by its caller ("request cancelled").
  static constexpr int kCancelled = -3;
};

}  // namespace qipg
