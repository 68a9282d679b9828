#include "requests/PaymentRequestCommon.h"

#include <vector>

#include "qipg/Cryptography.h"

namespace qipg::internal {
namespace {

constexpr char kMissingMid[] = "Missing value for mid";
constexpr char kInvalidMid[] = "Invalid mid Input";
constexpr char kMissingKey[] = "Missing value for Encryption Key";
constexpr char kInvalidKey[] = "Invalid Encryption Key Input";
constexpr char kMissingOrderID[] = "Missing value for Order ID";
constexpr char kMissingAmount[] = "Missing value for Transaction Amount";
constexpr char kMissingCurrency[] = "Missing value for Transaction Currency";
constexpr char kUnsupportedCurrency[] = "Only INR and USD Currency is supported at this moment";
constexpr char kInvalidCurrency[] = "Invalid Transaction Currency Input";
constexpr char kMissingDescription[] = "Missing value for Transaction Description";
constexpr char kInvalidDescription[] = "Invalid Transaction Description Input";

}  // namespace

const char* checkPaymentInput(const CommonUtilities& validators, const PaymentInput& in) {
  // Each length test runs only once the character test has passed.
  if (!isFilled(in.mid)) return kMissingMid;
  if (!validators.isAlphaNumeric(in.mid) || !fitsLength(in.mid, 15)) return kInvalidMid;
  if (!isFilled(in.encryptionString)) return kMissingKey;
  if (!validators.isAlphaNumeric(in.encryptionString) || !fitsLength(in.encryptionString, 32)) {
    return kInvalidKey;
  }
  if (!isFilled(in.orderID)) return kMissingOrderID;
  if (!validators.isAlphaNumeric(in.orderID) || !fitsLength(in.orderID, 30)) {
    return kInvalidOrderIDInput;
  }
  if (!isFilled(in.transactionAmount)) return kMissingAmount;
  if (!validators.isNumeric(in.transactionAmount) || !fitsLength(in.transactionAmount, 15)) {
    return kInvalidTransactionAmountInput;
  }
  if (!isFilled(in.transactionCurrency)) return kMissingCurrency;
  if (*in.transactionCurrency != "INR" && *in.transactionCurrency != "USD") {
    return kUnsupportedCurrency;
  }
  // Cannot fail once the currency is INR or USD; kept where the gateway's client has it.
  if (!validators.isAlphaNumeric(in.transactionCurrency) ||
      !fitsLength(in.transactionCurrency, 5)) {
    return kInvalidCurrency;
  }
  if (!isFilled(in.transactionDescription)) return kMissingDescription;
  if (!validators.isAlphaNumericWithSpecialCharacters(in.transactionDescription) ||
      !fitsLength(in.transactionDescription, 100)) {
    return kInvalidDescription;
  }
  return nullptr;
}

const char* checkAdditionalFields(const CommonUtilities& validators,
                                  const std::array<const Text*, 10>& fields,
                                  const PaymentMessages& messages) {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const Text& field = *fields[i];
    if (isEmptyText(field)) continue;
    if (!validators.isAlphaNumericWithSpecialCharacters(field) || !fitsLength(field, 100)) {
      return messages.invalidAdditionalField[i];
    }
  }
  return nullptr;
}

const char* checkRequestType(const PaymentRequestFields& f, const PaymentMessages& messages) {
  const std::string& type = *f.meTransReqType;  // required before this step
  if (type != "R" && type != "P" && type != "S") return messages.invalidRequestType;
  if (type == "R" &&
      !(isFilled(f.recurrPeriod) && isFilled(f.recurrDay) && isFilled(f.noOfRecurring))) {
    return messages.recurrenceMissing;
  }
  return nullptr;
}

std::string sealPaymentMessage(const PaymentRequestFields& f, std::span<const Slot> tail) {
  std::vector<Slot> slots = {
      {&f.mid, "mid"},
      {&f.orderId, "orderId"},
      {&f.amount, "amount"},
      {&f.trnCurrency, "trnCurrency"},
      {&f.trnRemarks, "trnRemarks"},
      {&f.meTransReqType, "meTransReqType"},
      {&f.recurrPeriod, "recurrPeriod"},
      {&f.recurrDay, "recurrDay"},
      {&f.noOfRecurring, "noOfRecurring"},
      {&f.responseUrl, "responseUrl"},
  };
  slots.reserve(slots.size() + f.addField.size() + tail.size());
  for (std::size_t i = 0; i < f.addField.size(); ++i) {
    slots.push_back({&f.addField[i], kAddFieldNames[i]});
  }
  slots.insert(slots.end(), tail.begin(), tail.end());

  std::string plain = joinSlots(slots);
  std::string sealed = encryptTextWithEncKey(plain, f.enckey);
  wipe(plain);
  return sealed;
}

}  // namespace qipg::internal
