#include "qipg/Error.h"

#include <ostream>

namespace qipg {

std::string_view errorKindName(ErrorKind kind) {
  switch (kind) {
    case ErrorKind::Input:
      return "Input";
    case ErrorKind::Config:
      return "Config";
    case ErrorKind::Network:
      return "Network";
    case ErrorKind::Timeout:
      return "Timeout";
    case ErrorKind::Tls:
      return "Tls";
    case ErrorKind::Http:
      return "Http";
    case ErrorKind::Unreadable:
      return "Unreadable";
    case ErrorKind::Cancelled:
      return "Cancelled";
    case ErrorKind::ShutDown:
      return "ShutDown";
    case ErrorKind::Journal:
      return "Journal";
  }
  return "Unknown";
}

std::string Error::toString() const { return std::string(errorKindName(kind)) + ": " + message; }

std::ostream& operator<<(std::ostream& out, const Error& error) { return out << error.toString(); }

}  // namespace qipg
