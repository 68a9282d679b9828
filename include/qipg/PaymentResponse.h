/// @class qipg::PaymentResponse
/// The record in which every operation's result reaches the host: the status, cancel and
/// refund answers and the result of a payment made on the gateway's pages.
///
/// 25 text properties, every one absent on a fresh record. A record from an answer that could
/// not be used has statusCode "F" and every other property absent. Which properties each kind
/// of answer fills is documented on CommonUtilities' parsers.
///
/// A plain value: copyable, no locking; fill it on one thread and then hand it over.
#pragma once

#include <utility>

#include "qipg/Export.h"
#include "qipg/Types.h"

namespace qipg {

class QIPG_EXPORT PaymentResponse {
 public:
  /// A record with every property absent.
  PaymentResponse() = default;

  /// @{
  /// One of the record's properties; absent when the answer did not carry it. A setter stores
  /// its value as given.
  const Text& transactionReferenceNo() const { return transactionReferenceNo_; }
  void setTransactionReferenceNo(Text value) { transactionReferenceNo_ = std::move(value); }
  const Text& orderID() const { return orderID_; }
  void setOrderID(Text value) { orderID_ = std::move(value); }
  const Text& amount() const { return amount_; }
  void setAmount(Text value) { amount_ = std::move(value); }
  const Text& statusCode() const { return statusCode_; }
  void setStatusCode(Text value) { statusCode_ = std::move(value); }
  const Text& statusDescription() const { return statusDescription_; }
  void setStatusDescription(Text value) { statusDescription_ = std::move(value); }
  const Text& rrn() const { return rrn_; }
  void setRrn(Text value) { rrn_ = std::move(value); }
  const Text& authnCode() const { return authnCode_; }
  void setAuthnCode(Text value) { authnCode_ = std::move(value); }
  const Text& authzCode() const { return authzCode_; }
  void setAuthzCode(Text value) { authzCode_ = std::move(value); }
  const Text& authNStatus() const { return authNStatus_; }
  void setAuthNStatus(Text value) { authNStatus_ = std::move(value); }
  const Text& authZStatus() const { return authZStatus_; }
  void setAuthZStatus(Text value) { authZStatus_ = std::move(value); }
  const Text& responseCode() const { return responseCode_; }
  void setResponseCode(Text value) { responseCode_ = std::move(value); }
  const Text& captureStatus() const { return captureStatus_; }
  void setCaptureStatus(Text value) { captureStatus_ = std::move(value); }
  const Text& pgRefCancelReqID() const { return pgRefCancelReqID_; }
  void setPgRefCancelReqID(Text value) { pgRefCancelReqID_ = std::move(value); }
  const Text& refundAmount() const { return refundAmount_; }
  void setRefundAmount(Text value) { refundAmount_ = std::move(value); }
  const Text& transactionDateTime() const { return transactionDateTime_; }
  void setTransactionDateTime(Text value) { transactionDateTime_ = std::move(value); }
  const Text& addtionalField1() const { return addtionalField1_; }
  void setAddtionalField1(Text value) { addtionalField1_ = std::move(value); }
  const Text& addtionalField2() const { return addtionalField2_; }
  void setAddtionalField2(Text value) { addtionalField2_ = std::move(value); }
  const Text& addtionalField3() const { return addtionalField3_; }
  void setAddtionalField3(Text value) { addtionalField3_ = std::move(value); }
  const Text& addtionalField4() const { return addtionalField4_; }
  void setAddtionalField4(Text value) { addtionalField4_ = std::move(value); }
  const Text& addtionalField5() const { return addtionalField5_; }
  void setAddtionalField5(Text value) { addtionalField5_ = std::move(value); }
  const Text& addtionalField6() const { return addtionalField6_; }
  void setAddtionalField6(Text value) { addtionalField6_ = std::move(value); }
  const Text& addtionalField7() const { return addtionalField7_; }
  void setAddtionalField7(Text value) { addtionalField7_ = std::move(value); }
  const Text& addtionalField8() const { return addtionalField8_; }
  void setAddtionalField8(Text value) { addtionalField8_ = std::move(value); }
  const Text& addtionalField9() const { return addtionalField9_; }
  void setAddtionalField9(Text value) { addtionalField9_ = std::move(value); }
  const Text& addtionalField10() const { return addtionalField10_; }
  void setAddtionalField10(Text value) { addtionalField10_ = std::move(value); }
  /// @}

  /// Field-by-field equality, absent and empty told apart.
  bool operator==(const PaymentResponse&) const = default;

 private:
  Text transactionReferenceNo_;
  Text orderID_;
  Text amount_;
  Text statusCode_;
  Text statusDescription_;
  Text rrn_;
  Text authnCode_;
  Text authzCode_;
  Text authNStatus_;
  Text authZStatus_;
  Text responseCode_;
  Text captureStatus_;
  Text pgRefCancelReqID_;
  Text refundAmount_;
  Text transactionDateTime_;
  Text addtionalField1_;
  Text addtionalField2_;
  Text addtionalField3_;
  Text addtionalField4_;
  Text addtionalField5_;
  Text addtionalField6_;
  Text addtionalField7_;
  Text addtionalField8_;
  Text addtionalField9_;
  Text addtionalField10_;
};

}  // namespace qipg
