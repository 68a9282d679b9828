// How the library's calls reach a host's EventHook: an EventSink per hook, which runs the hook
// on a thread of its own, in order, and CallEvents, the four events of one management call.
//
// Thread-safety: an EventSink may be used from any thread; a CallEvents belongs to its call
// (started on the caller's thread, ended on whichever thread ends the call).
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "net/CompletionPool.h"
#include "net/Transport.h"
#include "qipg/Events.h"

namespace qipg::internal {

enum class Operation;

class EventSink {
 public:
  // nullptr for an empty hook (events off), else a sink whose thread has started; nullptr too
  // when no thread can be started.
  static std::shared_ptr<EventSink> create(EventHook hook);

  // A new call's id, 1 and up, never given twice in a process (whatever the sink).
  static std::uint64_t newCall();
  // Queues `event` for the hook; never blocks on it and never throws.
  void emit(Event event) noexcept;
  // An event of its own (not part of a call's): Reconciled, or a window's step.
  void emitAbout(EventKind kind, std::string operation, std::string orderID,
                 std::string transactionRefNumber, std::string baseURL, std::string statusCode,
                 std::optional<ErrorKind> error, std::chrono::microseconds elapsed = {});

  explicit EventSink(EventHook hook);

 private:
  std::shared_ptr<const EventHook> hook_;
  CompletionPool thread_{1};
};

// The canonical name of a management operation: "status", "cancel" or "refund".
const char* operationName(Operation operation);

// The events of one call; does nothing without a sink.
class CallEvents {
 public:
  CallEvents() = default;
  // Emits `first`: CallStarted, or WindowOpened for a payment window's events.
  CallEvents(std::shared_ptr<EventSink> sink, std::string operation, std::string orderID,
             std::string transactionRefNumber, std::string baseURL,
             EventKind first = EventKind::CallStarted);

  // RequestSent and AnswerReceived, each when it happened (the transport's own timings).
  void transferred(const TransportReply& reply) const;
  // CallEnded with the record's status code (empty when the call failed) or the error.
  void ended(const std::string& statusCode, std::optional<ErrorKind> error,
             bool outcomeUnknown) const;

  // An event of this call of `kind`, its elapsed time set to now.
  Event event(EventKind kind) const;
  void emit(Event event) const;
  explicit operator bool() const { return sink_ != nullptr; }

 private:
  std::shared_ptr<EventSink> sink_;
  Event base_;
  std::chrono::steady_clock::time_point started_{};
};

}  // namespace qipg::internal
