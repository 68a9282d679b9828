/// @class qipg::RefundRequest
/// The builder of a refund request: vets the caller's fields for the refund of (part of) a
/// transaction and lays out the plain pipe-separated message that the client seals and posts to
/// the gateway's "doRefundRequest" endpoint. It does not seal the message itself. The same
/// shape as CancelRequest, plus the refund amount.
///
/// Not thread-safe: one object is used by one thread at a time. The merchant key is wiped from
/// memory when it is replaced and when the object is destroyed.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "qipg/CommonUtilities.h"
#include "qipg/Export.h"
#include "qipg/Types.h"

namespace qipg {

class QIPG_EXPORT RefundRequest {
 public:
  /// An empty request (every text absent, timeout 0); enough for validation.
  RefundRequest();

  /// Stores orderID, refNumber, urlString, merchantID and encryptionString into orderId,
  /// pgMeTrnRefNo, url, mid and enckey, 0 into timeout, amount into amount and the ten
  /// additional fields into addField1 ... addField10. Checks nothing.
  RefundRequest(Text orderID, Text refNumber, Text urlString, Text amount, Text merchantID,
                Text encryptionString, Text additonalField1, Text additonalField2,
                Text additonalField3, Text additonalField4, Text additonalField5,
                Text additonalField6, Text additonalField7, Text additonalField8,
                Text additonalField9, Text additonalField10);

  /// @{
  /// Copyable and movable; a copy holds its own copy of the key, wiped when it goes.
  RefundRequest(const RefundRequest&) = default;
  RefundRequest& operator=(const RefundRequest&) = default;
  RefundRequest(RefundRequest&&) = default;
  RefundRequest& operator=(RefundRequest&&) = default;
  ~RefundRequest();
  /// @}

  /// The plain message: mid, orderId, pgMeTrnRefNo, amount and addField1 ... addField10 joined
  /// by "|" (14 slots), an empty value written "-". Values are written as they stand, a "|"
  /// inside one included. url, enckey and timeout are not part of it.
  ///
  /// Throws std::invalid_argument, naming the field, when one of the 14 fields is absent; pass
  /// empty texts for the fields not used.
  std::string getRequestMessage() const;

  /// "Success", or the message of the first check that fails. Looks only at its arguments.
  /// The amount is judged by its characters only (digits and ".", at most 15).
  std::string validateInputForRefundRequest(const Text& orderID, const Text& transactionRefNumber,
                                            const Text& transactionAmount, const Text& mmidString,
                                            const Text& encryptionString);

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
  /// The amount to refund, as decimal text.
  const Text& amount() const { return amount_; }
  void setAmount(Text value) { amount_ = std::move(value); }
  const Text& addField1() const { return addField_[0]; }
  void setAddField1(Text value) { addField_[0] = std::move(value); }
  const Text& addField2() const { return addField_[1]; }
  void setAddField2(Text value) { addField_[1] = std::move(value); }
  const Text& addField3() const { return addField_[2]; }
  void setAddField3(Text value) { addField_[2] = std::move(value); }
  const Text& addField4() const { return addField_[3]; }
  void setAddField4(Text value) { addField_[3] = std::move(value); }
  const Text& addField5() const { return addField_[4]; }
  void setAddField5(Text value) { addField_[4] = std::move(value); }
  const Text& addField6() const { return addField_[5]; }
  void setAddField6(Text value) { addField_[5] = std::move(value); }
  const Text& addField7() const { return addField_[6]; }
  void setAddField7(Text value) { addField_[6] = std::move(value); }
  const Text& addField8() const { return addField_[7]; }
  void setAddField8(Text value) { addField_[7] = std::move(value); }
  const Text& addField9() const { return addField_[8]; }
  void setAddField9(Text value) { addField_[8] = std::move(value); }
  const Text& addField10() const { return addField_[9]; }
  void setAddField10(Text value) { addField_[9] = std::move(value); }
  /// @}

 private:
  CommonUtilities commonUtilities_;  ///< the validators; renewed by every validation
  std::int32_t timeout_ = 0;         ///< kept for the interface; nothing reads it
  Text orderId_;
  Text pgMeTrnRefNo_;
  Text url_;
  Text mid_;
  Text enckey_;
  Text amount_;
  std::array<Text, 10> addField_;
};

}  // namespace qipg
