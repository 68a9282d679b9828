#include "requests/ManagementRequestCommon.h"

#include "requests/RequestCommon.h"

namespace qipg::internal {
namespace {

constexpr char kInvalidOrderID[] = "Invalid Order ID";
constexpr char kInvalidReference[] = "Invalid Transaction Reference Number";
constexpr char kInvalidReferenceInput[] = "Invalid Transaction Reference Number Input";
constexpr char kInvalidMerchantID[] = "Invalid Merchant ID";
constexpr char kInvalidMerchantIDInput[] = "Invalid input for Merchant ID";
constexpr char kInvalidKey[] = "Invalid Encryption Key";
constexpr char kInvalidKeyLength[] = "Invalid length for Encryption Key";
constexpr char kInvalidKeyInput[] = "Invalid input for Encryption Key";

bool isValidReference(const CommonUtilities& validators, const Text& refNumber) {
  return validators.isNumeric(refNumber) && fitsLength(refNumber, 16);
}

}  // namespace

const char* checkOrderID(const CommonUtilities& validators, const Text& orderID) {
  if (!isFilled(orderID)) return kInvalidOrderID;
  if (!validators.isAlphaNumeric(orderID) || !fitsLength(orderID, 30)) {
    return kInvalidOrderIDInput;
  }
  return nullptr;
}

const char* checkReferenceNumber(const CommonUtilities& validators, const Text& refNumber) {
  if (!isFilled(refNumber)) return kInvalidReference;
  if (!isValidReference(validators, refNumber)) return kInvalidReferenceInput;
  return nullptr;
}

const char* checkOptionalReferenceNumber(const CommonUtilities& validators, const Text& refNumber) {
  if (isEmptyText(refNumber)) return nullptr;
  if (!isValidReference(validators, refNumber)) return kInvalidReferenceInput;
  return nullptr;
}

const char* checkMerchantID(const CommonUtilities& validators, const Text& mid) {
  if (!isFilled(mid)) return kInvalidMerchantID;
  if (!validators.isAlphaNumeric(mid) || !fitsLength(mid, 15)) return kInvalidMerchantIDInput;
  return nullptr;
}

const char* checkEncryptionKey(const CommonUtilities& validators, const Text& key) {
  if (!isFilled(key)) return kInvalidKey;
  // A second emptiness test of the key would sit here; it can no longer fail and would change
  // nothing, so it is left out.
  if (!hasLength(key, 32)) return kInvalidKeyLength;
  if (!validators.isAlphaNumeric(key)) return kInvalidKeyInput;
  return nullptr;
}

std::string layoutCancelOrRefundMessage(const Text& mid, const Text& orderId,
                                        const Text& pgMeTrnRefNo, const Text& amount,
                                        const std::array<Text, 10>& addField) {
  std::array<Slot, 14> slots = {{
      {&mid, "mid"},
      {&orderId, "orderId"},
      {&pgMeTrnRefNo, "pgMeTrnRefNo"},
      {&amount, "amount"},
  }};
  for (std::size_t i = 0; i < addField.size(); ++i)
    slots[4 + i] = {&addField[i], kAddFieldNames[i]};
  return joinSlots(slots);
}

}  // namespace qipg::internal
