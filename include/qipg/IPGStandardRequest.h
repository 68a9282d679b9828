/// @class qipg::IPGStandardRequest
/// The builder of a standard payment request, the kind in which the customer completes the
/// payment on the gateway's own pages.
///
/// It stores the fields given at creation, vets a caller's raw input field by field
/// (validateInputForStandardRequest, one text verdict), and builds the pipe-separated request
/// message from its stored fields, seals it with the merchant key (encryptTextWithEncKey) and
/// records the sealed text in reqMsg and the outcome in statusDesc
/// (getTransactionRequestMessage).
///
/// Not thread-safe: one object is used by one thread at a time. The merchant key and the card
/// fields are wiped from memory when they are replaced and when the object is destroyed.
#pragma once

#include <string>
#include <utility>

#include "qipg/CommonUtilities.h"
#include "qipg/Export.h"
#include "qipg/PaymentRequestFields.h"
#include "qipg/Types.h"

namespace qipg {

class QIPG_EXPORT IPGStandardRequest {
 public:
  /// Every field absent.
  IPGStandardRequest();

  /// Stores the 23 texts, in order, into mid, orderId, amount, trnCurrency, trnRemarks,
  /// meTransReqType, recurrPeriod, recurrDay, noOfRecurring, responseUrl, reqMsg, statusDesc,
  /// enckey and addField1 ... addField10. Nothing is checked or trimmed; an absent argument
  /// leaves its field absent.
  IPGStandardRequest(Text merchantID, Text orderID, Text txnAmount, Text txnCurrency,
                     Text txnRemarks, Text meTxnReqType, Text recurrPeriod, Text recurrDay,
                     Text noOfRecurring, Text responseUrl, Text reqMsg, Text statusDesc,
                     Text encryptionString, Text additonalField1, Text additonalField2,
                     Text additonalField3, Text additonalField4, Text additonalField5,
                     Text additonalField6, Text additonalField7, Text additonalField8,
                     Text additonalField9, Text additonalField10);

  /// @{
  /// Copyable and movable; a copy holds its own copy of the key, wiped when it goes.
  IPGStandardRequest(const IPGStandardRequest&) = default;
  IPGStandardRequest& operator=(const IPGStandardRequest&) = default;
  IPGStandardRequest(IPGStandardRequest&&) = default;
  IPGStandardRequest& operator=(IPGStandardRequest&&) = default;
  ~IPGStandardRequest();
  /// @}

  /// Vets a caller's input: "Success" when every check passes, else the message of the first
  /// check that fails. Looks only at its arguments, never at the stored fields; the
  /// transaction type is accepted and not examined. "Missing" means absent or empty; an empty
  /// additional field is skipped, an absent one is rejected.
  std::string validateInputForStandardRequest(
      const Text& orderID, const Text& transactionAmount, const Text& transactionCurrency,
      const Text& transactionDescription, const Text& transactionType, const Text& additionalField1,
      const Text& additionalField2, const Text& additionalField3, const Text& additionalField4,
      const Text& additionalField5, const Text& additionalField6, const Text& additionalField7,
      const Text& additionalField8, const Text& additionalField9, const Text& additionalField10,
      const Text& mid, const Text& encryptionString);

  /// Checks the stored fields, lays out the 20-slot message, seals it with enckey and sets
  /// statusDesc (always) and reqMsg (when the message was built). After a seal statusDesc is
  /// "Success" whatever the sealed text is (an empty sealed text included). Returns this
  /// object, so that the caller reads statusDesc and reqMsg from the result.
  ///
  /// Throws std::invalid_argument, naming the field, when a field that a message slot needs
  /// (remarks, a recurrence field, an additional field) is absent; pass empty texts for the
  /// fields not used.
  IPGStandardRequest& getTransactionRequestMessage();

  /// @{
  /// One of the request's fields (what each holds: see the constructor). A setter stores its
  /// value as given and checks nothing.
  const Text& mid() const { return fields_.mid; }
  void setMid(Text value) { fields_.mid = std::move(value); }
  const Text& orderId() const { return fields_.orderId; }
  void setOrderId(Text value) { fields_.orderId = std::move(value); }
  const Text& amount() const { return fields_.amount; }
  void setAmount(Text value) { fields_.amount = std::move(value); }
  const Text& trnCurrency() const { return fields_.trnCurrency; }
  void setTrnCurrency(Text value) { fields_.trnCurrency = std::move(value); }
  const Text& trnRemarks() const { return fields_.trnRemarks; }
  void setTrnRemarks(Text value) { fields_.trnRemarks = std::move(value); }
  const Text& meTransReqType() const { return fields_.meTransReqType; }
  void setMeTransReqType(Text value) { fields_.meTransReqType = std::move(value); }
  const Text& recurrPeriod() const { return fields_.recurrPeriod; }
  void setRecurrPeriod(Text value) { fields_.recurrPeriod = std::move(value); }
  const Text& recurrDay() const { return fields_.recurrDay; }
  void setRecurrDay(Text value) { fields_.recurrDay = std::move(value); }
  const Text& noOfRecurring() const { return fields_.noOfRecurring; }
  void setNoOfRecurring(Text value) { fields_.noOfRecurring = std::move(value); }
  const Text& responseUrl() const { return fields_.responseUrl; }
  void setResponseUrl(Text value) { fields_.responseUrl = std::move(value); }
  const Text& reqMsg() const { return fields_.reqMsg; }
  void setReqMsg(Text value) { fields_.reqMsg = std::move(value); }
  const Text& statusDesc() const { return fields_.statusDesc; }
  void setStatusDesc(Text value) { fields_.statusDesc = std::move(value); }
  const Text& enckey() const { return fields_.enckey; }
  void setEnckey(Text value);
  const Text& addField1() const { return fields_.addField[0]; }
  void setAddField1(Text value) { fields_.addField[0] = std::move(value); }
  const Text& addField2() const { return fields_.addField[1]; }
  void setAddField2(Text value) { fields_.addField[1] = std::move(value); }
  const Text& addField3() const { return fields_.addField[2]; }
  void setAddField3(Text value) { fields_.addField[2] = std::move(value); }
  const Text& addField4() const { return fields_.addField[3]; }
  void setAddField4(Text value) { fields_.addField[3] = std::move(value); }
  const Text& addField5() const { return fields_.addField[4]; }
  void setAddField5(Text value) { fields_.addField[4] = std::move(value); }
  const Text& addField6() const { return fields_.addField[5]; }
  void setAddField6(Text value) { fields_.addField[5] = std::move(value); }
  const Text& addField7() const { return fields_.addField[6]; }
  void setAddField7(Text value) { fields_.addField[6] = std::move(value); }
  const Text& addField8() const { return fields_.addField[7]; }
  void setAddField8(Text value) { fields_.addField[7] = std::move(value); }
  const Text& addField9() const { return fields_.addField[8]; }
  void setAddField9(Text value) { fields_.addField[8] = std::move(value); }
  const Text& addField10() const { return fields_.addField[9]; }
  void setAddField10(Text value) { fields_.addField[9] = std::move(value); }

  /// Declared for symmetry with IPGCardCaptureRequest; neither set by the constructors nor
  /// read by any operation of this class.
  const Text& payTypeCode() const { return payTypeCode_; }
  void setPayTypeCode(Text value) { payTypeCode_ = std::move(value); }
  const Text& cardNumber() const { return cardNumber_; }
  void setCardNumber(Text value);
  const Text& expiryDate() const { return expiryDate_; }
  void setExpiryDate(Text value);
  const Text& nameOnCard() const { return nameOnCard_; }
  void setNameOnCard(Text value);
  const Text& cvv() const { return cvv_; }
  void setCvv(Text value);
  /// @}

 private:
  CommonUtilities commonUtilities_;  ///< the validators; renewed by every validation
  PaymentRequestFields fields_;
  Text cardNumber_;
  Text cvv_;
  Text expiryDate_;
  Text payTypeCode_;
  Text nameOnCard_;
};

}  // namespace qipg
