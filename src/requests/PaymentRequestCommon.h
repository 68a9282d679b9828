// The steps that the standard and the card-capture payment builders share, in the order both
// run them: validation of MID, key, order ID, amount, currency and description; the checks of
// the ten additional fields; the request type and recurrence tests of a build; the 20-slot
// head of the message; and the sealing. Where the two builders report different texts, the
// texts come from a per-class table (PaymentMessages).
#pragma once

#include <array>
#include <span>
#include <string>

#include "qipg/CommonUtilities.h"
#include "qipg/PaymentRequestFields.h"
#include "qipg/Types.h"
#include "requests/RequestCommon.h"

namespace qipg::internal {

// ---- texts of both payment builders
inline constexpr char kMandatoryFieldsMissing[] = "Mandatory fields are missing";
inline constexpr char kInvalidTransactionType[] = "Invalid transaction type";
inline constexpr std::array<const char*, 10> kInvalidAdditionalField = {
    "Invalid Additional Field1 Input", "Invalid Additional Field2 Input",
    "Invalid Additional Field3 Input", "Invalid Additional Field4 Input",
    "Invalid Additional Field5 Input", "Invalid Additional Field6 Input",
    "Invalid Additional Field7 Input", "Invalid Additional Field8 Input",
    "Invalid Additional Field9 Input", "Invalid Additional Field10 Input"};

// The texts in which the two builders differ.
struct PaymentMessages {
  std::array<const char*, 10> invalidAdditionalField;  // additional field N fails
  const char* invalidRequestType;                      // meTransReqType is not "R", "P" or "S"
  const char* recurrenceMissing;                       // "R" without all three recurrence fields
};

// The caller's arguments checked by both validations.
struct PaymentInput {
  const Text& mid;
  const Text& encryptionString;
  const Text& orderID;
  const Text& transactionAmount;
  const Text& transactionCurrency;
  const Text& transactionDescription;
};

// Validation checks of MID, key, order ID, amount, currency and description, in that order:
// the message of the first that fails, or nullptr.
const char* checkPaymentInput(const CommonUtilities& validators, const PaymentInput& input);

// The additional fields 1 to 10 in turn: an empty text is skipped; anything else (an absent
// text included) must pass the special-characters test and be at most 100 long. The message
// of the first that fails (from `messages`), or nullptr.
const char* checkAdditionalFields(const CommonUtilities& validators,
                                  const std::array<const Text*, 10>& fields,
                                  const PaymentMessages& messages);

// Build steps after the required fields: the request type, then for "R" the three recurrence
// fields. The message of the failing test, or nullptr.
const char* checkRequestType(const PaymentRequestFields& fields, const PaymentMessages& messages);

// Lays out the 20 head slots (mid ... addField10) followed by `tail`, seals the message with
// the fields' enckey (encryptTextWithEncKey) and wipes the plain message. Throws
// std::invalid_argument for an absent slot before anything is built or sealed.
std::string sealPaymentMessage(const PaymentRequestFields& fields, std::span<const Slot> tail);

}  // namespace qipg::internal
