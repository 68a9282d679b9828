// A failure of the HTTP transport, handed to a post's completion beside the (absent) answer.
#pragma once

#include <string>

#include "qipg/Export.h"

namespace qipg {

struct QIPG_EXPORT TransportError {
  int code = 0;          // libcurl's CURLcode, or -1 for the library's own reasons
  std::string message;   // one line, for logs; never holds request or answer content
};

}  // namespace qipg
