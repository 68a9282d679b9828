#include "qipg/URLRequest.h"

#include "common/Ascii.h"

namespace qipg {

Text URLRequest::valueForHTTPHeaderField(std::string_view field) const {
  for (const auto& [name, value] : allHTTPHeaderFields) {
    if (internal::equalsIgnoringAsciiCase(name, field)) return value;
  }
  return std::nullopt;
}

void URLRequest::setValueForHTTPHeaderField(const std::string& value, const std::string& field) {
  for (auto& [name, existing] : allHTTPHeaderFields) {
    if (internal::equalsIgnoringAsciiCase(name, field)) {
      existing = value;
      return;
    }
  }
  allHTTPHeaderFields.emplace_back(field, value);
}

}  // namespace qipg
