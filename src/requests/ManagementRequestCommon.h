// What the status, cancel and refund builders share: the field checks of their validations
// (each family of checks with its texts, written once) and the 14-slot message of the cancel
// and refund requests.
#pragma once

#include <array>
#include <string>

#include "qipg/CommonUtilities.h"
#include "qipg/Types.h"

namespace qipg::internal {

// Order ID: missing, or not letters and digits / longer than 30. Message or nullptr.
const char* checkOrderID(const CommonUtilities& validators, const Text& orderID);

// Reference number that must be given: missing, or not digits and "." / longer than 16.
const char* checkReferenceNumber(const CommonUtilities& validators, const Text& refNumber);

// Reference number that may be the empty text: any other value (an absent one included) must
// be digits and "." and at most 16 long.
const char* checkOptionalReferenceNumber(const CommonUtilities& validators, const Text& refNumber);

// MID: missing, or not letters and digits / longer than 15.
const char* checkMerchantID(const CommonUtilities& validators, const Text& mid);

// Key: missing, then a length other than 32, then not letters and digits (the length is
// tested before the characters).
const char* checkEncryptionKey(const CommonUtilities& validators, const Text& key);

// The cancel and refund message: mid, orderId, pgMeTrnRefNo, amount, addField1 ... addField10
// joined by "|", an empty value written "-". Throws std::invalid_argument naming the first
// absent field.
std::string layoutCancelOrRefundMessage(const Text& mid, const Text& orderId,
                                        const Text& pgMeTrnRefNo, const Text& amount,
                                        const std::array<Text, 10>& addField);

}  // namespace qipg::internal
