// Completes a payment without a window: the gateway's pages are fetched and their forms posted
// over HTTPS exactly as a browser would post them, with the card filled into the card form,
// until the final page; its hidden result element is then read by the library's own
// extraction and parsing. For test gateways on this machine only (a merchant's CI).
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "qipg/Error.h"
#include "qipg/PaymentResponse.h"
#include "qipg/URLRequest.h"

namespace ipg {

// A card as the card form takes it; wiped when the object goes.
struct CardDetails {
  std::string number;
  std::string expiry;  // MMYY
  std::string cvv;
  std::string holder;
  ~CardDetails();
};

// How a payment without a window ended.
struct ScriptedOutcome {
  std::optional<qipg::PaymentResponse> record;      // the final page's record, when it was read
  qipg::ErrorKind kind = qipg::ErrorKind::Network;  // else why not, as an ErrorKind
  std::string error;                                // and in one line
  std::optional<long> httpStatus;                   // of a page that refused the payment
  // True when the payment may have gone ahead although no record was read: a page's request
  // left and its answer did not come, or the final page's result could not be read.
  bool unclear = false;
};

// Loads `request`, submits each page's form (the card form gets `card`) until the final page,
// `finalPageURL` (the return address the library wrote into the payment message, compared
// with each page's address as a whole text), and reads its record. No record when the gateway
// is not on a loopback host, a page cannot be fetched within `timeoutSeconds`, a page has no
// form to submit, or the card form needs a card and `card` is null. TLS verification stays
// on, with `caFile` when set. `pageLoaded` (when set) hears of every page fetched.
ScriptedOutcome payWithoutWindow(const qipg::URLRequest& request, const CardDetails* card,
                                 const std::string& finalPageURL, const std::string& caFile,
                                 long timeoutSeconds,
                                 const std::function<void()>& pageLoaded = {});

}  // namespace ipg
