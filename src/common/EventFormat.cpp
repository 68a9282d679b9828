// The one-line form of an Event, for logs.
#include <cstdio>
#include <string>

#include "qipg/Events.h"

namespace qipg {
namespace {

bool needsQuotes(const std::string& value) {
  for (const char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte <= ' ' || byte >= 0x7f || c == '"' || c == '=' || c == '\\') return true;
  }
  return false;
}

void field(std::string& line, const char* key, const std::string& value) {
  if (value.empty()) return;
  line += ' ';
  line += key;
  line += '=';
  if (!needsQuotes(value)) {
    line += value;
    return;
  }
  line += '"';
  for (const char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      line += '\\';
      line += c;
    } else if (byte < ' ' || byte >= 0x7f) {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
      line += escaped;
    } else {
      line += c;
    }
  }
  line += '"';
}

template <typename Number>
void number(std::string& line, const char* key, Number value) {
  if (value != 0) field(line, key, std::to_string(value));
}

}  // namespace

std::string_view eventKindName(EventKind kind) {
  switch (kind) {
    case EventKind::CallStarted:
      return "call-started";
    case EventKind::RequestSent:
      return "request-sent";
    case EventKind::AnswerReceived:
      return "answer-received";
    case EventKind::CallEnded:
      return "call-ended";
    case EventKind::WindowOpened:
      return "window-opened";
    case EventKind::PageLoaded:
      return "page-loaded";
    case EventKind::FinalPageRead:
      return "final-page-read";
    case EventKind::Reconciled:
      return "reconciled";
  }
  return "unknown";
}

std::string formatEvent(const Event& event) {
  std::string line = "event=";
  line += eventKindName(event.kind);
  number(line, "call", event.callID);
  field(line, "operation", event.operation);
  field(line, "order", event.orderID);
  field(line, "ref", event.transactionRefNumber);
  field(line, "base", event.baseURL);
  line += " elapsedUs=" + std::to_string(event.elapsed.count());
  number(line, "bytes", event.bytes);
  number(line, "http", event.httpStatus);
  field(line, "status", event.statusCode);
  if (event.error) field(line, "error", std::string(errorKindName(*event.error)));
  if (event.outcomeUnknown) line += " outcomeUnknown=true";
  return line;
}

}  // namespace qipg
