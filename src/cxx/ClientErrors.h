// How qipg::Client's failures become an Error: the one place where transport failures and
// HTTP statuses are classified into ErrorKinds and worded. Pure functions; thread-safe.
#pragma once

#include <string>

#include "client/ManagementWire.h"
#include "qipg/Error.h"
#include "qipg/TransportError.h"
#include "qipg/Types.h"

namespace qipg::internal {

Error makeError(ErrorKind kind, std::string message);

// Marks the error as one whose effect at the gateway is unknown, when `operation` changes
// anything there and the request may have taken effect; the message then says to confirm with
// a status inquiry before retrying.
Error withOutcome(Error error, Operation operation, bool mayHaveTakenEffect);

// A failure of the transport, for a gateway at `baseURL`.
Error transportFailure(const TransportError& failure, const std::string& baseURL,
                       Operation operation);

// An answer with an HTTP status other than 200: the status and what the page says (its title,
// else its first line of text).
Error httpFailure(long httpStatus, const Text& body, const std::string& baseURL,
                  Operation operation);

}  // namespace qipg::internal
