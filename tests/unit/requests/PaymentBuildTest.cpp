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

namespace qipg::payment_build_test {
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

// Fields set on a request, in order.
template <typename Request>
using Changes = std::vector<std::pair<void (Request::*)(Text), Text>>;

template <typename Request>
Request changed(Request (*make)(), const Changes<Request>& changes) {
  Request request = make();
  for (const auto& [set, value] : changes) (request.*set)(value);
  return request;
}

// `expected` is the status, or for a success the message sealed (told apart by its "|").
template <typename Request>
struct Case {
  Changes<Request> changes;
  std::string expected;
};

// Runs `cases`, then each of `required` absent and empty, which must be refused.
template <typename Request>
void expectBuilds(Request (*make)(), std::vector<Case<Request>> cases,
                  std::initializer_list<void (Request::*)(Text)> required) {
  for (auto set : required) {
    for (const Text& missing : {Text(), Text("")}) cases.push_back({{{set, missing}}, kMandatory});
  }
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    Request request = changed(make, c.changes);
    EXPECT_EQ(&request.getTransactionRequestMessage(), &request);
    if (c.expected.find('|') != std::string::npos) {
      EXPECT_EQ(request.statusDesc(), "Success");
      EXPECT_EQ(decryptTextWithDecryptionKey(request.reqMsg(), request.enckey()), c.expected);
    } else {
      EXPECT_EQ(request.statusDesc(), c.expected);
      EXPECT_EQ(request.reqMsg(), "old");  // an early end leaves the message alone
    }
  }
}

TEST(PaymentBuildTest, StandardRequest) {
  using S = Standard;
  const std::string type = "Invalid transaction type";
  expectBuilds<S>(standardRequest,
                  {{{}, "M123|O1|10.50|INR|-|S|-|-|-|U|-|-|-|-|-|-|-|-|-|-"},
                   {{{&S::setAmount, ""}}, "M123|O1|-|INR|-|S|-|-|-" + kTail},
                   {{{&S::setAmount, std::nullopt}}, kMandatory},
                   {{{&S::setAmount, std::nullopt}, {&S::setMeTransReqType, "X"}}, kMandatory},
                   {{{&S::setMeTransReqType, "NULL"}}, type},
                   {{{&S::setMeTransReqType, "s"}}, type},
                   {{{&S::setMeTransReqType, "R"}, {&S::setRecurrPeriod, "M"}},
                    "Mandatory fields are missing for recurring payment"},
                   {{{&S::setMeTransReqType, "R"},
                     {&S::setRecurrPeriod, "M"},
                     {&S::setRecurrDay, "5"},
                     {&S::setNoOfRecurring, "12"}},
                    "M123|O1|10.50|INR|-|R|M|5|12" + kTail},
                   {{{&S::setMeTransReqType, "P"}, {&S::setRecurrDay, ""}},
                    "M123|O1|10.50|INR|-|P|-|-|-" + kTail},
                   {{{&S::setTrnRemarks, " "}, {&S::setAddField1, "a|b"}, {&S::setAddField10, "z"}},
                    "M123|O1|10.50|INR| |S|-|-|-|U|a|b|-|-|-|-|-|-|-|-|z"}},
                  {&S::setMid, &S::setOrderId, &S::setTrnCurrency, &S::setMeTransReqType,
                   &S::setResponseUrl, &S::setEnckey});

  // The envelope cannot use a merchant key outside ASCII; this builder still reports success.
  S built = changed(standardRequest, {{&S::setEnckey, "k\u00e9y"}});
  built.getTransactionRequestMessage();
  EXPECT_EQ(built.statusDesc(), "Success");
  EXPECT_EQ(built.reqMsg(), "");
}

TEST(PaymentBuildTest, CardCaptureRequest) {
  using C = Card;
  const std::string head = "M123|O1|10.50|INR|Books|S|-|-|-" + kTail;
  const std::string card = "Card details are missing", code = "Invalid payment type code";
  expectBuilds<C>(
      cardRequest,
      {{{}, "M123|O1|10.50|INR|Books|S|-|-|-|U|-|-|-|-|-|-|-|-|-|-|DC|N1|E1|V1|H1|NA"},
       {{{&C::setNetBankCode, "BANK9"}}, head + "|DC|N1|E1|V1|H1|NA"},
       {{{&C::setTrnCurrency, ""}}, "M123|O1|10.50|-|Books|S|-|-|-" + kTail + "|DC|N1|E1|V1|H1|NA"},
       {{{&C::setMeTransReqType, "X"}}, kMandatory},
       {{{&C::setMeTransReqType, "R"}, {&C::setRecurrPeriod, "M"}, {&C::setRecurrDay, "5"}},
        "Invalid transaction type"},
       {{{&C::setCvv, ""}}, card},
       {{{&C::setPayTypeCode, "CC"}, {&C::setCardNumber, ""}}, card},
       {{{&C::setPayTypeCode, "CUG"}, {&C::setExpiryDate, std::nullopt}}, card},
       {{{&C::setPayTypeCode, "NA"}, {&C::setNameOnCard, ""}}, card},
       {{{&C::setPayTypeCode, "CUG"}}, head + "|CUG|N1|E1|V1|H1|NA"},
       {{{&C::setPayTypeCode, "NB"}}, "Net bank code is missing"},
       {{{&C::setPayTypeCode, "NB"},
         {&C::setNetBankCode, "HDFC"},
         {&C::setCardNumber, ""},
         {&C::setCvv, ""}},
        head + "|NB|-|E1|-|H1|HDFC"},
       {{{&C::setPayTypeCode, "dc"}}, code},
       {{{&C::setPayTypeCode, "XX"}}, code},
       // A merchant key outside ASCII gives an empty envelope, which this builder refuses.
       {{{&C::setEnckey, "k\u00e9y"}}, "Error Occured during generating request message"}},
      {&C::setMid, &C::setOrderId, &C::setAmount, &C::setPayTypeCode, &C::setMeTransReqType,
       &C::setResponseUrl, &C::setEnckey});

  C request = changed(cardRequest, {{&C::setNetBankCode, "BANK9"}});
  request.getTransactionRequestMessage();
  EXPECT_EQ(request.netBankCode(), "NA");
}

template <typename Request>
std::string thrownBy(Request (*make)(), const Changes<Request>& changes) {
  Request request = changed(make, changes);
  try {
    request.getTransactionRequestMessage();
  } catch (const std::invalid_argument& e) {
    EXPECT_EQ(request.reqMsg(), "old");
    return e.what();
  }
  return "nothing thrown";
}

TEST(PaymentBuildTest, AbsentSlotIsRefusedNamingTheField) {
  EXPECT_EQ(thrownBy<Standard>(standardRequest, {{&Standard::setTrnRemarks, {}}}),
            "trnRemarks is absent");
  EXPECT_EQ(thrownBy<Standard>(standardRequest, {{&Standard::setAddField7, {}}}),
            "addField7 is absent");
  EXPECT_EQ(thrownBy<Card>(cardRequest, {{&Card::setTrnCurrency, {}}}), "trnCurrency is absent");
  EXPECT_EQ(thrownBy<Card>(cardRequest, {{&Card::setPayTypeCode, "NB"},
                                         {&Card::setNetBankCode, "HDFC"},
                                         {&Card::setCvv, {}}}),
            "cvv is absent");
}

}  // namespace
}  // namespace qipg::payment_build_test
