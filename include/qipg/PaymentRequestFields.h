/// @struct qipg::PaymentRequestFields
/// The stored fields that the two payment request builders (IPGStandardRequest and
/// IPGCardCaptureRequest) have in common, grouped in one plain struct so that both builders run
/// the same code for their shared steps (the first validation checks, the request type and
/// recurrence tests, the first 20 message slots and the encryption).
///
/// Each builder keeps its own copy privately and exposes every field through its own getter and
/// setter; this struct is not an interface of its own and nothing else takes it.
///
/// A plain value, no locking.
#pragma once

#include <array>

#include "qipg/Types.h"

namespace qipg {

struct PaymentRequestFields {
  Text mid;                       ///< merchant identifier
  Text orderId;                   ///< the merchant's order identifier
  Text amount;                    ///< decimal text
  Text trnCurrency;               ///< currency code
  Text trnRemarks;                ///< remarks (description)
  Text meTransReqType;            ///< "S", "P" or "R" (recurring)
  Text recurrPeriod;              ///< recurring payments only
  Text recurrDay;                 ///< recurring payments only
  Text noOfRecurring;             ///< recurring payments only
  Text responseUrl;               ///< where the gateway sends the customer back
  Text reqMsg;                    ///< output: the encrypted request message
  Text statusDesc;                ///< output: "Success" or the reason the last build failed
  Text enckey;                    ///< the merchant's encryption key
  std::array<Text, 10> addField;  ///< addField1 ... addField10
};

}  // namespace qipg
