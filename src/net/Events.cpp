#include "net/Events.h"

#include <algorithm>
#include <utility>

#include "client/ManagementWire.h"

namespace qipg::internal {

std::shared_ptr<EventSink> EventSink::create(EventHook hook) {
  if (!hook) return nullptr;
  try {
    return std::make_shared<EventSink>(std::move(hook));
  } catch (...) {
    return nullptr;  // no thread to run the hook on: events stay off
  }
}

EventSink::EventSink(EventHook hook) : hook_(std::make_shared<const EventHook>(std::move(hook))) {}

std::uint64_t EventSink::newCall() {
  static std::atomic<std::uint64_t> lastCall{0};
  return ++lastCall;
}

void EventSink::emit(Event event) noexcept {
  try {
    thread_.submit([hook = hook_, event = std::move(event)] { (*hook)(event); });
  } catch (...) {
    // Out of memory for the event: it is lost, the call goes on.
  }
}

void EventSink::emitAbout(EventKind kind, std::string operation, std::string orderID,
                          std::string transactionRefNumber, std::string baseURL,
                          std::string statusCode, std::optional<ErrorKind> error,
                          std::chrono::microseconds elapsed) {
  Event event;
  event.kind = kind;
  event.callID = newCall();
  event.operation = std::move(operation);
  event.orderID = std::move(orderID);
  event.transactionRefNumber = std::move(transactionRefNumber);
  event.baseURL = std::move(baseURL);
  event.statusCode = std::move(statusCode);
  event.error = error;
  event.elapsed = elapsed;
  emit(std::move(event));
}

const char* operationName(Operation operation) {
  switch (operation) {
    case Operation::Status:
      return "status";
    case Operation::Cancel:
      return "cancel";
    case Operation::Refund:
      return "refund";
  }
  return "status";
}

CallEvents::CallEvents(std::shared_ptr<EventSink> sink, std::string operation, std::string orderID,
                       std::string transactionRefNumber, std::string baseURL, EventKind first)
    : sink_(std::move(sink)), started_(std::chrono::steady_clock::now()) {
  if (!sink_) return;
  base_.callID = sink_->newCall();
  base_.operation = std::move(operation);
  base_.orderID = std::move(orderID);
  base_.transactionRefNumber = std::move(transactionRefNumber);
  base_.baseURL = std::move(baseURL);
  emit(event(first));
}

Event CallEvents::event(EventKind kind) const {
  Event made = base_;
  made.kind = kind;
  made.elapsed = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - started_);
  return made;
}

void CallEvents::emit(Event event) const {
  if (sink_) sink_->emit(std::move(event));
}

void CallEvents::transferred(const TransportReply& reply) const {
  if (!sink_) return;
  auto since = [this](std::chrono::steady_clock::time_point at) {
    return std::max(std::chrono::microseconds(0),
                    std::chrono::duration_cast<std::chrono::microseconds>(at - started_));
  };
  if (reply.sentAt) {
    Event sent = event(EventKind::RequestSent);
    sent.elapsed = since(*reply.sentAt);
    sent.bytes = reply.bytesSent;
    emit(std::move(sent));
  }
  if (reply.httpStatus != 0) {
    Event answered = event(EventKind::AnswerReceived);
    if (reply.answeredAt) answered.elapsed = since(*reply.answeredAt);
    answered.bytes = reply.bytesReceived;
    answered.httpStatus = reply.httpStatus;
    emit(std::move(answered));
  }
}

void CallEvents::ended(const std::string& statusCode, std::optional<ErrorKind> error,
                       bool outcomeUnknown) const {
  if (!sink_) return;
  Event end = event(EventKind::CallEnded);
  end.statusCode = statusCode;
  end.error = error;
  end.outcomeUnknown = outcomeUnknown;
  emit(std::move(end));
}

}  // namespace qipg::internal
