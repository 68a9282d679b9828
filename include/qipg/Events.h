/// @file
/// What the library tells a host's log: one small record per step of a call or a payment
/// window, never a secret. Off unless a hook is given (ClientOptions::eventHook,
/// QuandrelIPG::setEventHook); the library logs nothing on its own.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "qipg/Error.h"
#include "qipg/Export.h"

namespace qipg {

/// The step an Event reports.
enum class EventKind {
  CallStarted,     ///< A status, cancel or refund call was made.
  RequestSent,     ///< Its request left on a connection (`bytes`: the body sent).
  AnswerReceived,  ///< An answer came in (`bytes`: its body, `httpStatus`).
  CallEnded,       ///< The call ended: `statusCode` of the answer's record, or `error`.
  WindowOpened,    ///< A payment window started its payment page.
  PageLoaded,      ///< A page of the payment finished loading in the window.
  FinalPageRead,   ///< The window read the payment's end (`statusCode`), or the customer
                   ///< cancelled (`error` Cancelled).
  Reconciled,      ///< The gateway's status settled (or did not settle) an unclear payment or a
                   ///< journal entry (`statusCode`, or `error` when no status came).
};

/// The kind's name in a log line: "call-started", "request-sent"... Thread-safe.
QIPG_EXPORT std::string_view eventKindName(EventKind kind);

/// One step. Holds the order's identifiers and the call's measurements only: never a card
/// number, expiry, CVV, key, envelope, message or answer body.
struct QIPG_EXPORT Event {
  EventKind kind = EventKind::CallStarted;  ///< The step.
  /// Ties together the events of one call or one window: 1, 2... in the order calls start,
  /// never the same for two calls of a process.
  std::uint64_t callID = 0;
  std::string operation;  ///< "status", "cancel", "refund" or "payment"
  std::string orderID;                   ///< the merchant's order ID of the call or window
  std::string transactionRefNumber;      ///< as given, or as the answer's record has it
  std::string baseURL;                   ///< the gateway's canonical base URL
  std::chrono::microseconds elapsed{0};  ///< since CallStarted or WindowOpened
  std::uint64_t bytes = 0;               ///< RequestSent, AnswerReceived
  long httpStatus = 0;                   ///< AnswerReceived; 0 when there was none
  std::string statusCode;                ///< the gateway's record's statusCode, when one came
  std::optional<ErrorKind> error;        ///< why the call or step failed
  bool outcomeUnknown = false;           ///< as Error::outcomeUnknown
};

/// Receives every event, in order, on a thread of the hook's holder that runs nothing else
/// (never a network thread, never the caller's): a slow hook delays only later events, and
/// what it throws is dropped.
using EventHook = std::function<void(const Event&)>;

/// The event as one log line of `key=value` fields, e.g.
/// `event=call-ended call=3 operation=refund order=A1 ref=T9 base=https://gw/ipg/
/// elapsedUs=1520 status=S`. Fields that are empty or zero are left out; a value with a
/// space, a quote, `=`, a backslash or a character outside printable ASCII is quoted, with
/// `\"`, `\\` and `\xHH` escapes. Never a line break. Thread-safe.
QIPG_EXPORT std::string formatEvent(const Event& event);

}  // namespace qipg
