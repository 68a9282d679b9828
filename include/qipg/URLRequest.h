/// @struct qipg::URLRequest
/// A URL request as a plain value: what the payment operations return and what the transport
/// sends. Copyable; no locking (one thread at a time).
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qipg/Export.h"
#include "qipg/Types.h"

namespace qipg {

/// The platform's cache policies, with their platform values.
enum class URLRequestCachePolicy : unsigned {
  UseProtocolCachePolicy = 0,
  ReloadIgnoringLocalCacheData = 1,
  ReturnCacheDataElseLoad = 2,
  ReturnCacheDataDontLoad = 3,
  ReloadIgnoringLocalAndRemoteCacheData = 4,
  ReloadRevalidatingCacheData = 5,
};

struct QIPG_EXPORT URLRequest {
  Text url;                        ///< absent when no URL could be formed
  std::string httpMethod = "GET";  ///< "POST" for every request of this library
  std::vector<std::pair<std::string, std::string>> allHTTPHeaderFields;  ///< in order set
  Bytes httpBody;  ///< the body, sent as it stands
  /// Kept for the interface; the library keeps no HTTP cache.
  URLRequestCachePolicy cachePolicy = URLRequestCachePolicy::UseProtocolCachePolicy;
  double timeoutInterval = 60.0;  ///< seconds; 0 means the HTTP stack's own defaults

  /// The value of the first header whose name matches `field` ignoring ASCII case; absent
  /// when there is none.
  Text valueForHTTPHeaderField(std::string_view field) const;

  /// Replaces the value of the header named `field` (ignoring ASCII case), or appends it.
  void setValueForHTTPHeaderField(const std::string& value, const std::string& field);

  /// The body as text (bytes as they stand).
  std::string bodyText() const { return std::string(httpBody.begin(), httpBody.end()); }
};

}  // namespace qipg
