#include "cxx/ClientErrors.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

namespace qipg::internal {
namespace {

constexpr const char* kConfirmFirst =
    "; it may still have taken effect at the gateway, so confirm with a status inquiry before "
    "retrying";

// `text` from `from` on, the first match of `what` in any letter case; npos when none.
std::size_t findNoCase(const std::string& text, std::string_view what, std::size_t from = 0) {
  const auto at =
      std::search(text.begin() + static_cast<std::ptrdiff_t>(std::min(from, text.size())),
                  text.end(), what.begin(), what.end(), [](char a, char b) {
                    return std::tolower(static_cast<unsigned char>(a)) ==
                           std::tolower(static_cast<unsigned char>(b));
                  });
  return at == text.end() ? std::string::npos : static_cast<std::size_t>(at - text.begin());
}

// An HTML page's text: tags, comments, scripts and styles left out, the common entities read.
std::string pageText(const std::string& html) {
  std::string text;
  for (std::size_t at = 0; at < html.size();) {
    if (html[at] != '<') {
      const std::size_t next = std::min(html.find('<', at), html.size());
      text.append(html, at, next - at);
      at = next;
      continue;
    }
    std::string_view close = ">";
    if (html.compare(at, 4, "<!--") == 0) close = "-->";
    if (findNoCase(html, "<script", at) == at) close = "</script>";
    if (findNoCase(html, "<style", at) == at) close = "</style>";
    const std::size_t end = findNoCase(html, close, at);
    if (end == std::string::npos) break;
    at = end + close.size();
    text += '\n';  // a tag may end a line of text ("<br>", "</p>")
  }
  for (const auto& [entity, character] : {std::pair<std::string_view, char>{"&lt;", '<'},
                                          {"&gt;", '>'},
                                          {"&quot;", '"'},
                                          {"&#39;", '\''},
                                          {"&nbsp;", ' '},
                                          {"&amp;", '&'}}) {
    for (std::size_t at = text.find(entity); at != std::string::npos;
         at = text.find(entity, at + 1)) {
      text.replace(at, entity.size(), 1, character);
    }
  }
  return text;
}

// What an error page says in one line: its title, else its first line of text (an HTML page's
// text, not its markup), cut to a readable length.
std::string summary(const Text& answer) {
  const std::string& body = answer ? *answer : std::string();
  std::string text = body;
  const std::size_t markup = body.find_first_not_of(" \t\r\n");
  if (markup != std::string::npos && body[markup] == '<') {
    text = pageText(body);
    const std::size_t open = findNoCase(body, "<title");
    const std::size_t start = open == std::string::npos ? open : body.find('>', open);
    const std::size_t end = start == std::string::npos ? start : findNoCase(body, "</title", start);
    if (end != std::string::npos) {
      std::string title = pageText(body.substr(start + 1, end - start - 1));
      for (char& c : title) {
        if (c == '\r' || c == '\n' || c == '\t') c = ' ';
      }
      if (title.find_first_not_of(' ') != std::string::npos) text = title;
    }
  }
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  if (start == std::string::npos) return "(empty answer)";
  std::string line = text.substr(start, text.find_first_of("\r\n", start) - start);
  line.erase(line.find_last_not_of(" \t") + 1);
  if (line.size() > 120) {
    std::size_t cut = 117;
    while (cut > 0 && (static_cast<unsigned char>(line[cut]) & 0xC0) == 0x80) --cut;  // UTF-8
    line = line.substr(0, cut) + "...";
  }
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
                                               std::to_string(httpStatus) + ": " + summary(body));
  error.httpStatus = httpStatus;
  // The gateway received the request: whatever went wrong, it may have acted on it.
  return withOutcome(std::move(error), operation, true);
}

}  // namespace qipg::internal
