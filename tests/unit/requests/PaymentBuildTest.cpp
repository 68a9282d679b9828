// Building the payment messages: the required fields, the request type and recurrence tests,
// the payment type step, the slot layout (checked by opening the sealed message) and the
// outcome of a sealing that gives nothing.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "qipg/Cryptography.h"
#include "qipg/IPGCardCaptureRequest.h"
#include "qipg/IPGStandardRequest.h"

namespace qipg {
namespace {

const std::string kKey = "0123456789abcdef0123456789ABCDEF";
const std::string kMandatory = "Mandatory fields are missing";
const std::string kTail = "|U|-|-|-|-|-|-|-|-|-|-";  // response URL, no additional fields

using Standard = IPGStandardRequest;
using Card = IPGCardCaptureRequest;

Standard standardRequest() {
  return Standard("M123", "O1", "10.50", "INR", "", "S", "", "", "", "U", "old", "", kKey, "", "",
                  "", "", "", "", "", "", "", "");
}

Card cardRequest() {
  return Card("M123", "O1", "10.50", "INR", "Books", "S", "", "", "", "U", "old", "Initial", "DC",
              "N1", "E1", "H1", "V1", kKey, "", "", "", "", "", "", "", "", "", "");
}

template <typename Request>
struct Case {
  void (*change)(Request&);
  std::string status;
  std::string plain;  // the message sealed when status is "Success"
};

template <typename Request>
void expectBuilds(Request (*make)(), const std::vector<Case<Request>>& cases) {
  for (const auto& c : cases) {
    SCOPED_TRACE(c.status + " " + c.plain);
    Request request = make();
    c.change(request);
    EXPECT_EQ(&request.getTransactionRequestMessage(), &request);
    EXPECT_EQ(request.statusDesc(), c.status);
    if (c.status == "Success") {
      EXPECT_EQ(decryptTextWithDecryptionKey(request.reqMsg(), request.enckey()), c.plain);
    } else {
      EXPECT_EQ(request.reqMsg(), "old");  // an early end leaves the message alone
    }
  }
}

TEST(PaymentBuildTest, StandardRequest) {
  expectBuilds<Standard>(
      standardRequest,
      {
          {[](Standard&) {}, "Success", "M123|O1|10.50|INR|-|S|-|-|-|U|-|-|-|-|-|-|-|-|-|-"},
          {[](Standard& r) { r.setAmount(""); }, "Success", "M123|O1|-|INR|-|S|-|-|-" + kTail},
          {[](Standard& r) { r.setAmount(std::nullopt); }, kMandatory, ""},
          {[](Standard& r) { r.setMid(""); }, kMandatory, ""},
          {[](Standard& r) { r.setOrderId(std::nullopt); }, kMandatory, ""},
          {[](Standard& r) { r.setTrnCurrency(""); }, kMandatory, ""},
          {[](Standard& r) { r.setMeTransReqType(""); }, kMandatory, ""},
          {[](Standard& r) { r.setResponseUrl(""); }, kMandatory, ""},
          {[](Standard& r) { r.setEnckey(""); }, kMandatory, ""},
          {[](Standard& r) { r.setAmount(std::nullopt), r.setMeTransReqType("X"); }, kMandatory,
           ""},
          {[](Standard& r) { r.setMeTransReqType("NULL"); }, "Invalid transaction type", ""},
          {[](Standard& r) { r.setMeTransReqType("s"); }, "Invalid transaction type", ""},
          {[](Standard& r) { r.setMeTransReqType("R"), r.setRecurrPeriod("M"); },
           "Mandatory fields are missing for recurring payment", ""},
          {[](Standard& r) {
             r.setMeTransReqType("R"), r.setRecurrPeriod("M"), r.setRecurrDay("5"),
                 r.setNoOfRecurring("12");
           },
           "Success", "M123|O1|10.50|INR|-|R|M|5|12" + kTail},
          {[](Standard& r) { r.setMeTransReqType("P"), r.setRecurrDay(""); }, "Success",
           "M123|O1|10.50|INR|-|P|-|-|-" + kTail},
          {[](Standard& r) { r.setTrnRemarks(" "), r.setAddField1("a|b"), r.setAddField10("z"); },
           "Success", "M123|O1|10.50|INR| |S|-|-|-|U|a|b|-|-|-|-|-|-|-|-|z"},
      });
}

TEST(PaymentBuildTest, CardCaptureRequest) {
  const std::string head = "M123|O1|10.50|INR|Books|S|-|-|-" + kTail;
  const std::string card = "Card details are missing";
  expectBuilds<Card>(
      cardRequest,
      {
          {[](Card&) {}, "Success",
           "M123|O1|10.50|INR|Books|S|-|-|-|U|-|-|-|-|-|-|-|-|-|-|DC|N1|E1|V1|H1|NA"},
          {[](Card& r) { r.setNetBankCode("BANK9"); }, "Success", head + "|DC|N1|E1|V1|H1|NA"},
          {[](Card& r) { r.setAmount(""); }, kMandatory, ""},
          {[](Card& r) { r.setPayTypeCode(""); }, kMandatory, ""},
          {[](Card& r) { r.setEnckey(std::nullopt); }, kMandatory, ""},
          {[](Card& r) { r.setTrnCurrency(""); }, "Success",
           "M123|O1|10.50|-|Books|S|-|-|-" + kTail + "|DC|N1|E1|V1|H1|NA"},
          {[](Card& r) { r.setMeTransReqType("X"); }, kMandatory, ""},
          {[](Card& r) { r.setMeTransReqType("R"), r.setRecurrPeriod("M"), r.setRecurrDay("5"); },
           "Invalid transaction type", ""},
          {[](Card& r) { r.setCvv(""); }, card, ""},
          {[](Card& r) { r.setPayTypeCode("CC"), r.setCardNumber(""); }, card, ""},
          {[](Card& r) { r.setPayTypeCode("CUG"), r.setExpiryDate(std::nullopt); }, card, ""},
          {[](Card& r) { r.setPayTypeCode("NA"), r.setNameOnCard(""); }, card, ""},
          {[](Card& r) { r.setPayTypeCode("CUG"); }, "Success", head + "|CUG|N1|E1|V1|H1|NA"},
          {[](Card& r) { r.setPayTypeCode("NB"); }, "Net bank code is missing", ""},
          {[](Card& r) {
             r.setPayTypeCode("NB"), r.setNetBankCode("HDFC"), r.setCardNumber(""),
                 r.setExpiryDate(""), r.setCvv(""), r.setNameOnCard("");
           },
           "Success", head + "|NB|-|-|-|-|HDFC"},
          {[](Card& r) { r.setPayTypeCode("dc"); }, "Invalid payment type code", ""},
          {[](Card& r) { r.setPayTypeCode("XX"); }, "Invalid payment type code", ""},
      });

  Card request = cardRequest();
  request.setNetBankCode("BANK9");
  request.getTransactionRequestMessage();
  EXPECT_EQ(request.netBankCode(), "NA");
}

template <typename Request>
std::string thrownBy(Request request) {
  try {
    request.getTransactionRequestMessage();
  } catch (const std::invalid_argument& e) {
    EXPECT_EQ(request.reqMsg(), "old");
    return e.what();
  }
  return "nothing thrown";
}

TEST(PaymentBuildTest, AbsentSlotIsRefusedNamingTheField) {
  Standard standard = standardRequest();
  standard.setTrnRemarks(std::nullopt);
  EXPECT_EQ(thrownBy(standard), "trnRemarks is absent");
  standard = standardRequest();
  standard.setAddField7(std::nullopt);
  EXPECT_EQ(thrownBy(standard), "addField7 is absent");

  Card card = cardRequest();
  card.setTrnCurrency(std::nullopt);
  EXPECT_EQ(thrownBy(card), "trnCurrency is absent");
  card = cardRequest();
  card.setPayTypeCode("NB");
  card.setNetBankCode("HDFC");
  card.setCvv(std::nullopt);
  EXPECT_EQ(thrownBy(card), "cvv is absent");
}

TEST(PaymentBuildTest, SealingThatGivesNothing) {
  // The envelope cannot use a merchant key outside ASCII and gives the empty text.
  Standard standard = standardRequest();
  standard.setEnckey("k\u00e9y");
  standard.getTransactionRequestMessage();
  EXPECT_EQ(standard.statusDesc(), "Success");
  EXPECT_EQ(standard.reqMsg(), "");

  Card card = cardRequest();
  card.setEnckey("k\u00e9y");
  card.getTransactionRequestMessage();
  EXPECT_EQ(card.statusDesc(), "Error Occured during generating request message");
  EXPECT_EQ(card.reqMsg(), "old");
}

}  // namespace
}  // namespace qipg
