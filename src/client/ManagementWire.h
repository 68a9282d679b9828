// The one wire path of the three management calls, for QuandrelIPG and qipg::Client alike:
// each operation's endpoint, its validation and message layout, the form that carries the
// sealed message, and whether the transport may send it again.
#pragma once

#include <string>

#include "net/Transport.h"
#include "qipg/Types.h"

namespace qipg::internal {

enum class Operation { Status, Cancel, Refund };

// A management call's message as the operation's builder validates and lays it out.
struct ManagementMessage {
  std::string verdict;  // kSuccess, or the validator's message
  std::string message;  // the plain message when valid: a secret, to be wiped once sealed
  Text url;             // the endpoint under the base URL
  Text mid;             // the MID the message names
};

// `amount` is used by Refund only.
ManagementMessage layOutManagement(Operation operation, const std::string& baseURL,
                                   const Text& orderID, const Text& transactionRefNumber,
                                   const Text& amount, const Text& mid, const Text& key);

// The form posted to the endpoint: the sealed message and the MID, in the field the
// operation's endpoint reads ("mid" for status, "MID" for cancel and refund).
std::string managementForm(Operation operation, const std::string& envelope, const Text& mid);

// A status inquiry changes nothing at the gateway, so it may be sent again; a cancel or
// refund goes out at most once.
PostOptions managementPostOptions(Operation operation);

}  // namespace qipg::internal
