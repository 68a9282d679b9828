#include "qipg/StatusRequest.h"

#include "requests/ManagementRequestCommon.h"
#include "requests/RequestCommon.h"

namespace qipg {

StatusRequest::StatusRequest() = default;

StatusRequest::StatusRequest(Text orderID, Text refNumber, Text urlString, Text merchantID,
                             Text encryptionString)
    : orderId_(std::move(orderID)),
      pgMeTrnRefNo_(std::move(refNumber)),
      url_(std::move(urlString)),
      mid_(std::move(merchantID)),
      enckey_(std::move(encryptionString)) {
  internal::wipe(encryptionString);  // what the move may have left in the argument
}

StatusRequest::~StatusRequest() { internal::wipe(enckey_); }

void StatusRequest::setEnckey(Text value) { internal::replaceWiping(enckey_, value); }

std::string StatusRequest::getRequestMessage() const {
  // The gateway expects 14 fields, of which only the first three carry anything.
  constexpr std::string_view kEmptyTail = "|||||||||||";
  const std::string_view mid = mid_ ? std::string_view(*mid_) : std::string_view();
  const std::string_view order = orderId_ ? std::string_view(*orderId_) : std::string_view();
  const std::string_view ref =
      pgMeTrnRefNo_ ? std::string_view(*pgMeTrnRefNo_) : std::string_view();
  std::string message;
  message.reserve(mid.size() + order.size() + ref.size() + 2 + kEmptyTail.size());
  message.append(mid).append("|").append(order).append("|").append(ref).append(kEmptyTail);
  return message;
}

std::string StatusRequest::validateInputForStatusRequest(const Text& orderID,
                                                         const Text& transactionRefNumber,
                                                         const Text& mmidString,
                                                         const Text& encryptionString) {
  commonUtilities_ = CommonUtilities();
  const char* failure = internal::checkOrderID(commonUtilities_, orderID);
  if (!failure) failure = internal::checkMerchantID(commonUtilities_, mmidString);
  if (!failure) failure = internal::checkEncryptionKey(commonUtilities_, encryptionString);
  if (!failure) {
    failure = internal::checkOptionalReferenceNumber(commonUtilities_, transactionRefNumber);
  }
  return internal::verdict(failure);
}

}  // namespace qipg
