// Completes a payment without a window: the gateway's pages are fetched and their forms posted
// over HTTPS exactly as a browser would post them, with the card filled into the card form,
// until the final page; its hidden result element is then read by the library's own
// extraction and parsing. For test gateways on this machine only (a merchant's CI).
#pragma once

#include <optional>
#include <string>

#include "qipg/GatewayConfig.h"
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

// Loads `request`, submits each page's form (the card form gets `card`), and returns the
// record of the final page (the library's final-page address under `config`). Absent, with a
// one-line reason, when the gateway is not on a loopback host, a page cannot be fetched, a
// page has no form to submit, or the card form needs a card and `card` is null. TLS
// verification stays on, with `config.caFile` when set.
std::optional<qipg::PaymentResponse> payWithoutWindow(const qipg::URLRequest& request,
                                                      const CardDetails* card,
                                                      const qipg::GatewayConfig& config,
                                                      std::string& error);

}  // namespace ipg
