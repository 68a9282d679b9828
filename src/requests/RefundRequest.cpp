#include "qipg/RefundRequest.h"

#include "requests/ManagementRequestCommon.h"
#include "requests/RequestCommon.h"

namespace qipg {

namespace {

constexpr char kMissingAmount[] = "Invalid Transaction Amount";

}  // namespace

RefundRequest::RefundRequest() = default;

RefundRequest::RefundRequest(Text orderID, Text refNumber, Text urlString, Text amount,
                             Text merchantID, Text encryptionString, Text additonalField1,
                             Text additonalField2, Text additonalField3, Text additonalField4,
                             Text additonalField5, Text additonalField6, Text additonalField7,
                             Text additonalField8, Text additonalField9, Text additonalField10)
    : orderId_(std::move(orderID)),
      pgMeTrnRefNo_(std::move(refNumber)),
      url_(std::move(urlString)),
      mid_(std::move(merchantID)),
      enckey_(std::move(encryptionString)),
      amount_(std::move(amount)),
      addField_{std::move(additonalField1), std::move(additonalField2), std::move(additonalField3),
                std::move(additonalField4), std::move(additonalField5), std::move(additonalField6),
                std::move(additonalField7), std::move(additonalField8), std::move(additonalField9),
                std::move(additonalField10)} {
  internal::wipe(encryptionString);  // what the move may have left in the argument
}

RefundRequest::~RefundRequest() { internal::wipe(enckey_); }

void RefundRequest::setEnckey(Text value) { internal::replaceWiping(enckey_, value); }

std::string RefundRequest::getRequestMessage() const {
  return internal::layoutCancelOrRefundMessage(mid_, orderId_, pgMeTrnRefNo_, amount_, addField_);
}

std::string RefundRequest::validateInputForRefundRequest(const Text& orderID,
                                                         const Text& transactionRefNumber,
                                                         const Text& transactionAmount,
                                                         const Text& mmidString,
                                                         const Text& encryptionString) {
  commonUtilities_ = CommonUtilities();
  const char* failure = internal::checkOrderID(commonUtilities_, orderID);
  if (!failure) failure = internal::checkReferenceNumber(commonUtilities_, transactionRefNumber);
  if (!failure) {
    // Characters only: the amount is neither parsed nor compared with the captured amount.
    if (!internal::isFilled(transactionAmount)) {
      failure = kMissingAmount;
    } else if (!commonUtilities_.isNumeric(transactionAmount) ||
               !internal::fitsLength(transactionAmount, 15)) {
      failure = internal::kInvalidTransactionAmountInput;
    }
  }
  if (!failure) failure = internal::checkMerchantID(commonUtilities_, mmidString);
  if (!failure) failure = internal::checkEncryptionKey(commonUtilities_, encryptionString);
  return internal::verdict(failure);
}

}  // namespace qipg
