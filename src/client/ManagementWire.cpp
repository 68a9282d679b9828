#include "client/ManagementWire.h"

#include <stdexcept>

#include "qipg/CancelRequest.h"
#include "qipg/RefundRequest.h"
#include "qipg/StatusRequest.h"
#include "requests/RequestCommon.h"

namespace qipg::internal {

ManagementMessage layOutManagement(Operation operation, const std::string& baseURL,
                                   const Text& orderID, const Text& transactionRefNumber,
                                   const Text& amount, const Text& mid, const Text& key) {
  ManagementMessage out;
  const Text& ref = transactionRefNumber;
  try {
    switch (operation) {
      case Operation::Status: {
        out.verdict = StatusRequest().validateInputForStatusRequest(orderID, ref, mid, key);
        if (out.verdict != kSuccess) break;
        const StatusRequest built(orderID, ref, baseURL + "getTransactionStatus", mid, key);
        out = {out.verdict, built.getRequestMessage(), built.url(), built.mid()};
        break;
      }
      case Operation::Cancel: {
        out.verdict = CancelRequest().validateInputForCancelRequest(orderID, ref, mid, key);
        if (out.verdict != kSuccess) break;
        const CancelRequest built(orderID, ref, baseURL + "doCancelRequest", "", mid, key, "", "",
                                  "", "", "", "", "", "", "", "");
        out = {out.verdict, built.getRequestMessage(), built.url(), built.mid()};
        break;
      }
      case Operation::Refund: {
        out.verdict = RefundRequest().validateInputForRefundRequest(orderID, ref, amount, mid, key);
        if (out.verdict != kSuccess) break;
        const RefundRequest built(orderID, ref, baseURL + "doRefundRequest", amount, mid, key, "",
                                  "", "", "", "", "", "", "", "", "");
        out = {out.verdict, built.getRequestMessage(), built.url(), built.mid()};
        break;
      }
    }
  } catch (const std::invalid_argument& absentField) {
    // Validation refuses every absent field a slot needs first; kept for safety.
    out.verdict = absentField.what();
  }
  return out;
}

std::string managementForm(Operation operation, const std::string& envelope, const Text& mid) {
  const char* midField = operation == Operation::Status ? "&mid=" : "&MID=";
  return "merchantReqStrT=" + envelope + midField + mid.value_or("") + "&iosEnc=true";
}

PostOptions managementPostOptions(Operation operation) {
  PostOptions options;
  options.atMostOnce = operation != Operation::Status;
  return options;
}

}  // namespace qipg::internal
