// The HTML of the sandbox's hosted payment pages. Plain forms, no script: they work in a
// browser, in the client's web view and with curl.
//
// Thread-safe: no state.
#pragma once

#include <string>

#include "Store.h"

namespace qipg::sandbox::internal {

// The base path of every endpoint and page.
inline constexpr char kBasePath[] = "/ipg/";

// A whole page around `bodyHtml`, with the sandbox banner.
std::string page(const std::string& title, const std::string& bodyHtml);

// A refusal of a payment request: the one-line `reason` under a heading.
std::string errorPage(const std::string& heading, const std::string& reason);

// The card form of a standard payment; posts the card and the session token to paymentInvoice.
std::string cardFormPage(const TxnRecord& record);

// The confirmation of a card-capture payment ("Pay 10.50 INR with card ending 1111").
std::string confirmationPage(const TxnRecord& record);

// The final page: the hidden result element, then a readable receipt. `resultString` is the
// 22-field payment result; `ownResponseUrl` is false when the request named another return
// address, which the page then links to.
std::string finalPage(const TxnRecord& record, const std::string& resultString,
                      bool ownResponseUrl);

// The sandbox's front page: endpoints and test cards.
std::string indexPage(const std::string& baseURL, const std::string& environment);

}  // namespace qipg::sandbox::internal
