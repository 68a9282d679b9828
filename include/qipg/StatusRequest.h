/// @class qipg::StatusRequest
/// The builder of a transaction-status inquiry: vets the caller's fields and lays out the plain
/// pipe-separated message that the client seals and posts to the gateway's
/// "getTransactionStatus" endpoint. It does not seal the message itself.
///
/// Not thread-safe: one object is used by one thread at a time. The merchant key is wiped from
/// memory when it is replaced and when the object is destroyed.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "qipg/CommonUtilities.h"
#include "qipg/Export.h"
#include "qipg/Types.h"

namespace qipg {

class QIPG_EXPORT StatusRequest {
 public:
  /// An empty request (every text absent, timeout 0); enough for validation.
  StatusRequest();

  /// Stores orderID, refNumber, urlString, merchantID and encryptionString into orderId,
  /// pgMeTrnRefNo, url, mid and enckey, and 0 into timeout. Checks nothing.
  StatusRequest(Text orderID, Text refNumber, Text urlString, Text merchantID,
                Text encryptionString);

  /// @{
  /// Copyable and movable; a copy holds its own copy of the key, wiped when it goes.
  StatusRequest(const StatusRequest&) = default;
  StatusRequest& operator=(const StatusRequest&) = default;
  StatusRequest(StatusRequest&&) = default;
  StatusRequest& operator=(StatusRequest&&) = default;
  ~StatusRequest();
  /// @}

  /// The plain message: mid, orderId and pgMeTrnRefNo joined by "|", then eleven more "|"
  /// (14 fields, the last 11 empty). Fields are written as they stand; an absent field is
  /// written as the empty text. url, enckey and timeout are not part of it.
  std::string getRequestMessage() const;

  /// "Success", or the message of the first check that fails. Looks only at its arguments.
  /// The reference number may be the empty text; an absent one is rejected.
  std::string validateInputForStatusRequest(const Text& orderID, const Text& transactionRefNumber,
                                            const Text& mmidString, const Text& encryptionString);

  /// @{
  /// One of the request's fields (what each holds: see the constructor). A setter stores its
  /// value as given and checks nothing.
  std::int32_t timeout() const { return timeout_; }
  void setTimeout(std::int32_t value) { timeout_ = value; }
  const Text& orderId() const { return orderId_; }
  void setOrderId(Text value) { orderId_ = std::move(value); }
  const Text& pgMeTrnRefNo() const { return pgMeTrnRefNo_; }
  void setPgMeTrnRefNo(Text value) { pgMeTrnRefNo_ = std::move(value); }
  /// The full endpoint address the client posts to.
  const Text& url() const { return url_; }
  void setUrl(Text value) { url_ = std::move(value); }
  const Text& mid() const { return mid_; }
  void setMid(Text value) { mid_ = std::move(value); }
  const Text& enckey() const { return enckey_; }
  void setEnckey(Text value);
  /// @}

 private:
  CommonUtilities commonUtilities_;  ///< the validators; renewed by every validation
  std::int32_t timeout_ = 0;         ///< kept for the interface; nothing reads it
  Text orderId_;
  Text pgMeTrnRefNo_;
  Text url_;
  Text mid_;
  Text enckey_;
};

}  // namespace qipg
