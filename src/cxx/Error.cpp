#include "qipg/Error.h"

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
  }
  return "Unknown";
}

}  // namespace qipg
