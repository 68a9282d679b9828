#include "qipg/IPGStandardRequest.h"

#include "requests/PaymentRequestCommon.h"
#include "requests/RequestCommon.h"

namespace qipg {
namespace {

using internal::isFilled;

constexpr internal::PaymentMessages kMessages = {
    internal::kInvalidAdditionalField,
    internal::kInvalidTransactionType,
    "Mandatory fields are missing for recurring payment",
};

}  // namespace

IPGStandardRequest::IPGStandardRequest() = default;

IPGStandardRequest::IPGStandardRequest(
    Text merchantID, Text orderID, Text txnAmount, Text txnCurrency, Text txnRemarks,
    Text meTxnReqType, Text recurrPeriod, Text recurrDay, Text noOfRecurring, Text responseUrl,
    Text reqMsg, Text statusDesc, Text encryptionString, Text additonalField1, Text additonalField2,
    Text additonalField3, Text additonalField4, Text additonalField5, Text additonalField6,
    Text additonalField7, Text additonalField8, Text additonalField9, Text additonalField10)
    : fields_{std::move(merchantID),
              std::move(orderID),
              std::move(txnAmount),
              std::move(txnCurrency),
              std::move(txnRemarks),
              std::move(meTxnReqType),
              std::move(recurrPeriod),
              std::move(recurrDay),
              std::move(noOfRecurring),
              std::move(responseUrl),
              std::move(reqMsg),
              std::move(statusDesc),
              std::move(encryptionString),
              {std::move(additonalField1), std::move(additonalField2), std::move(additonalField3),
               std::move(additonalField4), std::move(additonalField5), std::move(additonalField6),
               std::move(additonalField7), std::move(additonalField8), std::move(additonalField9),
               std::move(additonalField10)}} {
  internal::wipe(encryptionString);  // what the move may have left in the argument
}

IPGStandardRequest::~IPGStandardRequest() {
  internal::wipe(fields_.enckey);
  internal::wipe(cardNumber_);
  internal::wipe(cvv_);
  internal::wipe(expiryDate_);
  internal::wipe(nameOnCard_);
}

void IPGStandardRequest::setEnckey(Text value) { internal::replaceWiping(fields_.enckey, value); }
void IPGStandardRequest::setCardNumber(Text value) { internal::replaceWiping(cardNumber_, value); }
void IPGStandardRequest::setExpiryDate(Text value) { internal::replaceWiping(expiryDate_, value); }
void IPGStandardRequest::setNameOnCard(Text value) { internal::replaceWiping(nameOnCard_, value); }
void IPGStandardRequest::setCvv(Text value) { internal::replaceWiping(cvv_, value); }

std::string IPGStandardRequest::validateInputForStandardRequest(
    const Text& orderID, const Text& transactionAmount, const Text& transactionCurrency,
    const Text& transactionDescription, const Text& /*transactionType*/,
    const Text& additionalField1, const Text& additionalField2, const Text& additionalField3,
    const Text& additionalField4, const Text& additionalField5, const Text& additionalField6,
    const Text& additionalField7, const Text& additionalField8, const Text& additionalField9,
    const Text& additionalField10, const Text& mid, const Text& encryptionString) {
  commonUtilities_ = CommonUtilities();
  const char* failure = internal::checkPaymentInput(
      commonUtilities_, {mid, encryptionString, orderID, transactionAmount, transactionCurrency,
                         transactionDescription});
  if (failure == nullptr) {
    failure = internal::checkAdditionalFields(
        commonUtilities_,
        {&additionalField1, &additionalField2, &additionalField3, &additionalField4,
         &additionalField5, &additionalField6, &additionalField7, &additionalField8,
         &additionalField9, &additionalField10},
        kMessages);
  }
  return internal::verdict(failure);
}

IPGStandardRequest& IPGStandardRequest::getTransactionRequestMessage() {
  const PaymentRequestFields& f = fields_;
  // Only the absence of the amount is refused here: an empty amount is written "-".
  const bool required = isFilled(f.mid) && isFilled(f.orderId) && f.amount.has_value() &&
                        isFilled(f.trnCurrency) && isFilled(f.meTransReqType) &&
                        isFilled(f.responseUrl) && isFilled(f.enckey);
  if (!required) {
    fields_.statusDesc = internal::kMandatoryFieldsMissing;
    return *this;
  }
  if (const char* failure = internal::checkRequestType(f, kMessages)) {
    fields_.statusDesc = failure;
    return *this;
  }
  // Whatever the sealed text is, even empty, the build counts as a success: this builder never
  // reports a sealing failure (unlike the card-capture builder). Deliberate; keep it so.
  fields_.reqMsg = internal::sealPaymentMessage(f, {});
  fields_.statusDesc = internal::kSuccess;
  return *this;
}

}  // namespace qipg
