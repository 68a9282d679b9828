#include "qipg/IPGCardCaptureRequest.h"

#include <array>

#include "requests/PaymentRequestCommon.h"
#include "requests/RequestCommon.h"

namespace qipg {
namespace {

using internal::fitsLength;
using internal::hasLength;
using internal::isFilled;

// The tenth additional field reports the eighth field's message: required behaviour, keep it.
constexpr internal::PaymentMessages kMessages = {
    {internal::kInvalidAdditionalField[0], internal::kInvalidAdditionalField[1],
     internal::kInvalidAdditionalField[2], internal::kInvalidAdditionalField[3],
     internal::kInvalidAdditionalField[4], internal::kInvalidAdditionalField[5],
     internal::kInvalidAdditionalField[6], internal::kInvalidAdditionalField[7],
     internal::kInvalidAdditionalField[8], internal::kInvalidAdditionalField[7]},
    // Swapped relative to the standard builder, on purpose.
    internal::kMandatoryFieldsMissing,
    internal::kInvalidTransactionType,
};

constexpr char kMissingTransactionType[] = "Missing value for Transaction Type";
constexpr char kInvalidTransactionTypeInput[] = "Invalid Transaction Type Input";
constexpr char kMissingCardNumber[] = "Missing value for Card Number";
constexpr char kInvalidCardNumber[] = "Invalid Card Number Input";
constexpr char kMissingExpiry[] = "Missing value for Card Expiry";
constexpr char kInvalidExpiry[] = "Invalid Card Expiry Input";
constexpr char kMissingCvv[] = "Missing value for Card CVV";
constexpr char kInvalidCvv[] = "Invalid Card CVV Input";
constexpr char kMissingHolderName[] = "Missing value for Card Holder Name";
constexpr char kInvalidHolderName[] = "Invalid Card Holder Name Input";
constexpr char kMissingPaymentType[] = "Missing value for Payment Type";
constexpr char kInvalidPaymentType[] = "Invalid Payment Type Input";

constexpr char kCardDetailsMissing[] = "Card details are missing";
constexpr char kNetBankCodeMissing[] = "Net bank code is missing";
constexpr char kInvalidPaymentTypeCode[] = "Invalid payment type code";
constexpr char kSealingFailed[] = "Error Occured during generating request message";

// The net-banking code written for every card payment type.
constexpr char kNoNetBank[] = "NA";

bool isCardPaymentType(const std::string& code) {
  return code == "DC" || code == "CC" || code == "CUG" || code == kNoNetBank;
}

}  // namespace

IPGCardCaptureRequest::IPGCardCaptureRequest() = default;

IPGCardCaptureRequest::IPGCardCaptureRequest(
    Text merchantID, Text orderID, Text txnAmount, Text txnCurrency, Text txnRemarks,
    Text meTxnReqType, Text recurrPeriod, Text recurrDay, Text noOfRecurring, Text responseUrl,
    Text reqMsg, Text statusDesc, Text payTypeCode, Text cardNumber, Text expiryDate,
    Text nameOnCard, Text cvv, Text encryptionString, Text additonalField1, Text additonalField2,
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
               std::move(additonalField10)}},
      cardNumber_(std::move(cardNumber)),
      cvv_(std::move(cvv)),
      expiryDate_(std::move(expiryDate)),
      payTypeCode_(std::move(payTypeCode)),
      nameOnCard_(std::move(nameOnCard)) {
  // What the moves may have left in the arguments.
  internal::wipe(encryptionString);
  internal::wipe(cardNumber);
  internal::wipe(cvv);
  internal::wipe(expiryDate);
  internal::wipe(nameOnCard);
}

IPGCardCaptureRequest::~IPGCardCaptureRequest() {
  internal::wipe(fields_.enckey);
  internal::wipe(cardNumber_);
  internal::wipe(cvv_);
  internal::wipe(expiryDate_);
  internal::wipe(nameOnCard_);
}

void IPGCardCaptureRequest::setEnckey(Text value) {
  internal::replaceWiping(fields_.enckey, value);
}
void IPGCardCaptureRequest::setCardNumber(Text value) {
  internal::replaceWiping(cardNumber_, value);
}
void IPGCardCaptureRequest::setExpiryDate(Text value) {
  internal::replaceWiping(expiryDate_, value);
}
void IPGCardCaptureRequest::setNameOnCard(Text value) {
  internal::replaceWiping(nameOnCard_, value);
}
void IPGCardCaptureRequest::setCvv(Text value) { internal::replaceWiping(cvv_, value); }

std::string IPGCardCaptureRequest::validateInputForCardCaptureRequest(
    const Text& orderID, const Text& transactionAmount, const Text& transactionCurrency,
    const Text& transactionDescription, const Text& transactionType, const Text& cardHolderName,
    const Text& cardNumber, const Text& cardExpiryDate, const Text& cvvNumber,
    const Text& paymentType, const Text& additionalField1, const Text& additionalField2,
    const Text& additionalField3, const Text& additionalField4, const Text& additionalField5,
    const Text& additionalField6, const Text& additionalField7, const Text& additionalField8,
    const Text& additionalField9, const Text& additionalField10, const Text& mid,
    const Text& encryptionString) {
  commonUtilities_ = CommonUtilities();
  const CommonUtilities& v = commonUtilities_;
  const auto cardChecks = [&]() -> const char* {
    // Each length test runs only once the character test has passed.
    if (!isFilled(transactionType)) return kMissingTransactionType;
    if (!v.isAlphaNumeric(transactionType) || !fitsLength(transactionType, 2)) {
      return kInvalidTransactionTypeInput;
    }
    if (!isFilled(cardNumber)) return kMissingCardNumber;
    if (!v.isNumeric(cardNumber) || !fitsLength(cardNumber, 19) || fitsLength(cardNumber, 9)) {
      return kInvalidCardNumber;
    }
    if (!isFilled(cardExpiryDate)) return kMissingExpiry;
    if (!v.isNumeric(cardExpiryDate) || !hasLength(cardExpiryDate, 4)) return kInvalidExpiry;
    if (!isFilled(cvvNumber)) return kMissingCvv;
    if (!v.isNumeric(cvvNumber) || !fitsLength(cvvNumber, 4)) return kInvalidCvv;
    // The holder name is checked after the CVV although it comes first among the arguments.
    if (!isFilled(cardHolderName)) return kMissingHolderName;
    if (!v.isAlphaNumericWithSpecialCharacters(cardHolderName) || !fitsLength(cardHolderName, 20)) {
      return kInvalidHolderName;
    }
    if (!isFilled(paymentType)) return kMissingPaymentType;
    if (!v.isAlphaNumeric(paymentType) || !fitsLength(paymentType, 2)) {
      return kInvalidPaymentType;
    }
    return nullptr;
  };

  const char* failure =
      internal::checkPaymentInput(v, {mid, encryptionString, orderID, transactionAmount,
                                      transactionCurrency, transactionDescription});
  if (failure == nullptr) failure = cardChecks();
  if (failure == nullptr) {
    failure = internal::checkAdditionalFields(
        v,
        {&additionalField1, &additionalField2, &additionalField3, &additionalField4,
         &additionalField5, &additionalField6, &additionalField7, &additionalField8,
         &additionalField9, &additionalField10},
        kMessages);
  }
  return internal::verdict(failure);
}

IPGCardCaptureRequest& IPGCardCaptureRequest::getTransactionRequestMessage() {
  const PaymentRequestFields& f = fields_;
  // Unlike the standard builder: the amount must not be empty, and the currency is not
  // required (an empty one is written "-"), while the payment type is.
  const bool required = isFilled(f.mid) && isFilled(f.orderId) && isFilled(f.amount) &&
                        isFilled(payTypeCode_) && isFilled(f.meTransReqType) &&
                        isFilled(f.responseUrl) && isFilled(f.enckey);
  if (!required) {
    fields_.statusDesc = internal::kMandatoryFieldsMissing;
    return *this;
  }
  if (const char* failure = internal::checkRequestType(f, kMessages)) {
    fields_.statusDesc = failure;
    return *this;
  }

  const std::string& code = *payTypeCode_;
  if (isCardPaymentType(code)) {
    if (!(isFilled(cardNumber_) && isFilled(expiryDate_) && isFilled(cvv_) &&
          isFilled(nameOnCard_))) {
      fields_.statusDesc = kCardDetailsMissing;
      return *this;
    }
    netBankCode_ = kNoNetBank;
  } else if (code == "NB") {
    if (!isFilled(netBankCode_)) {
      fields_.statusDesc = kNetBankCodeMissing;
      return *this;
    }
  } else {
    fields_.statusDesc = kInvalidPaymentTypeCode;
    return *this;
  }

  // The CVV comes before the holder name here, unlike in the constructor.
  const std::array<internal::Slot, 6> tail = {{
      {&payTypeCode_, "payTypeCode"},
      {&cardNumber_, "cardNumber"},
      {&expiryDate_, "expiryDate"},
      {&cvv_, "cvv"},
      {&nameOnCard_, "nameOnCard"},
      {&netBankCode_, "netBankCode"},
  }};
  std::string sealed = internal::sealPaymentMessage(f, tail);
  if (sealed.empty()) {
    fields_.statusDesc = kSealingFailed;
    return *this;
  }
  fields_.reqMsg = std::move(sealed);
  fields_.statusDesc = internal::kSuccess;
  return *this;
}

}  // namespace qipg
