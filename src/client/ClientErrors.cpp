#include "client/ClientErrors.h"

#include <curl/curl.h>

#include <utility>

namespace qipg::internal {
namespace {

constexpr const char* kConfirmFirst =
    "; it may still have taken effect at the gateway, so confirm with a status inquiry before "
    "retrying";

// The first non-blank line of an answer, cut to a readable length.
std::string firstLine(const Text& answer) {
  const std::string text = answer.value_or("");
  std::size_t start = text.find_first_not_of(" \t\r\n");
  if (start == std::string::npos) return "(empty answer)";
  std::string line = text.substr(start, text.find_first_of("\r\n", start) - start);
  if (line.size() > 120) line = line.substr(0, 117) + "...";
  return line;
}

}  // namespace

Error makeError(ErrorKind kind, std::string message) {
  Error error;
  error.kind = kind;
  error.message = std::move(message);
  return error;
}

Error withOutcome(Error error, Operation operation, bool mayHaveTakenEffect) {
  if (operation != Operation::Status && mayHaveTakenEffect) {
    error.outcomeUnknown = true;
    error.message += kConfirmFirst;
  }
  return error;
}

Error transportFailure(const TransportError& failure, const std::string& baseURL,
                       Operation operation) {
  const std::string gateway = "the gateway at " + baseURL;
  Error error;
  switch (failure.code) {
    case TransportError::kCancelled:
      error = makeError(ErrorKind::Cancelled, "the call was cancelled");
      break;
    case TransportError::kShutDown:
      error = makeError(ErrorKind::ShutDown, "the client was shut down before the answer arrived");
      break;
    case CURLE_COULDNT_CONNECT:
      error = makeError(ErrorKind::Network, gateway + " refused the connection");
      break;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      error = makeError(ErrorKind::Network, "the host of " + gateway + " could not be resolved");
      break;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
      error = makeError(ErrorKind::Network, "the connection to " + gateway + " was lost");
      break;
    case CURLE_OPERATION_TIMEDOUT:
      error = makeError(ErrorKind::Timeout, gateway + " did not answer in time");
      break;
    case CURLE_PEER_FAILED_VERIFICATION:
      error = makeError(ErrorKind::Tls, gateway + " presented a certificate that is not trusted");
      break;
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
      error = makeError(ErrorKind::Tls, gateway + " did not present the pinned public key");
      break;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_USE_SSL_FAILED:
      error = makeError(ErrorKind::Tls, "the TLS connection to " + gateway + " failed (" +
                                            failure.message + ")");
      break;
    default:
      error = makeError(ErrorKind::Network,
                        "the call to " + gateway + " failed (" + failure.message + ")");
      break;
  }
  error.transport = failure;
  return withOutcome(std::move(error), operation, failure.requestSent);
}

Error httpFailure(long httpStatus, const Text& body, const std::string& baseURL,
                  Operation operation) {
  Error error = makeError(ErrorKind::Http, "the gateway at " + baseURL + " answered with HTTP " +
                                               std::to_string(httpStatus) + ": " + firstLine(body));
  error.httpStatus = httpStatus;
  // The gateway received the request: whatever went wrong, it may have acted on it.
  return withOutcome(std::move(error), operation, true);
}

}  // namespace qipg::internal
