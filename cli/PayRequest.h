// The request-building half of `ipg pay`: turns the command's flags into a client and the
// payment page request the library builds for them. Shared by --print-request and the
// payment window.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Command.h"
#include "qipg/QuandrelIPG.h"
#include "qipg/URLRequest.h"

namespace ipg {

struct PaymentBuild {
  std::shared_ptr<qipg::QuandrelIPG> client;  // the client that built the request, if any
  bool cardCapture = false;                   // --card rather than --standard
  std::string error;                          // one line: why there is no request
  int exitCode = 0;                           // 2: bad usage; 1: refused by the library
};

// Reads --standard|--card, --order, --amount, --currency, --description, --type N,
// --card-number, --expiry, --cvv, --holder, --payment-type N, --add1 .. --add10 and the
// credential and gateway flags of Credentials.h; creates a client and asks it for the
// payment request. Flags not given are passed on as absent texts (additional fields as "",
// the library's "not used"), so the library's own messages say what is missing. On failure
// returns nothing and fills `build.error` (the library's requestFailedError message when the
// library refused the input) and `build.exitCode`. Never prints anything.
std::optional<qipg::URLRequest> buildPaymentRequest(const Args& args, PaymentBuild& build);

// The help text of the flags above.
extern const char* const kPaymentFlagsHelp;

}  // namespace ipg
