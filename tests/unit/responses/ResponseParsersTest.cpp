// The three answer parsers: how many fields each accepts, which field lands in which property,
// the cleaning of the first field, and absent against empty.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qipg/CommonUtilities.h"
#include "qipg/PaymentResponse.h"

namespace qipg {
namespace {

using R = PaymentResponse;

// "f0|f1|...|f<n-1>".
std::string fields(int n) {
  std::string text;
  for (int i = 0; i < n; ++i) text += (i ? "|f" : "f") + std::to_string(i);
  return text;
}

enum Kind { kPayment, kStatus, kCancelOrRefund };

R parse(Kind kind, const Text& text) {
  const CommonUtilities parsers;
  if (kind == kPayment) return parsers.getPaymentResponseFromString(text);
  if (kind == kStatus) return parsers.getResponseFromString(text);
  return parsers.getCancelOrRefundPaymentResponse(text);
}

R failed() {
  R record;
  record.setStatusCode("F");
  return record;
}

TEST(ResponseParsersTest, FieldCountsAroundEachThreshold) {
  const struct {
    Kind kind;
    int least, most;
  } rows[] = {{kPayment, 22, 22}, {kStatus, 22, 1000}, {kCancelOrRefund, 16, 1000}};
  for (const auto& row : rows) {
    for (int n = row.least - 1; n <= row.least + 1; ++n) {
      EXPECT_EQ(parse(row.kind, fields(n)) == failed(), n < row.least || n > row.most) << n;
    }
    EXPECT_EQ(parse(row.kind, std::nullopt), failed());
    EXPECT_EQ(parse(row.kind, ""), failed());
  }
}

using Getter = const Text& (R::*)() const;

TEST(ResponseParsersTest, FieldOrderOfEachAnswer) {
  // The properties filled from fields 0, 1, 2... in turn, then the ten additional fields; the
  // properties a parser does not take from the answer are left empty or absent.
  const std::vector<Getter> extras = {&R::addtionalField1, &R::addtionalField2, &R::addtionalField3,
                                      &R::addtionalField4, &R::addtionalField5, &R::addtionalField6,
                                      &R::addtionalField7, &R::addtionalField8, &R::addtionalField9,
                                      &R::addtionalField10};
  const struct {
    Kind kind;
    int count;
    std::vector<Getter> inOrder, empty, absent;
  } answers[] = {{kPayment,
                  22,
                  {&R::orderID, &R::transactionReferenceNo, &R::rrn, &R::statusCode,
                   &R::statusDescription, &R::amount, &R::transactionDateTime, &R::authnCode,
                   &R::authzCode, &R::captureStatus, &R::pgRefCancelReqID, &R::refundAmount},
                  {},
                  {&R::authNStatus, &R::authZStatus, &R::responseCode}},
                 {kStatus,
                  23,
                  {&R::transactionReferenceNo, &R::orderID, &R::amount, &R::authNStatus,
                   &R::authZStatus, &R::captureStatus, &R::rrn, &R::authzCode, &R::responseCode,
                   &R::transactionDateTime, &R::statusCode, &R::statusDescription},
                  {},
                  {&R::authnCode, &R::pgRefCancelReqID, &R::refundAmount}},
                 {kCancelOrRefund,
                  16,
                  {&R::transactionReferenceNo, &R::orderID, &R::pgRefCancelReqID, &R::refundAmount,
                   &R::statusCode, &R::statusDescription},
                  {&R::rrn, &R::amount, &R::transactionDateTime, &R::authnCode, &R::authzCode,
                   &R::captureStatus},
                  {&R::authNStatus, &R::authZStatus, &R::responseCode}}};
  for (const auto& answer : answers) {
    const R r = parse(answer.kind, fields(answer.count));
    std::vector<Getter> order = answer.inOrder;
    order.insert(order.end(), extras.begin(), extras.end());
    for (std::size_t i = 0; i < order.size(); ++i) {
      EXPECT_EQ((r.*order[i])(), "f" + std::to_string(i)) << answer.kind;
    }
    for (Getter get : answer.empty) EXPECT_EQ((r.*get)(), "") << answer.kind;
    for (Getter get : answer.absent) EXPECT_EQ((r.*get)(), std::nullopt) << answer.kind;
  }
}

TEST(ResponseParsersTest, OnlyTheFirstFieldIsCleaned) {
  const std::string tail = "|b|\"c d\"|" + std::string(18, '|') + "\"";
  const R payment = parse(kPayment, "\" O 1\"\"" + tail);
  EXPECT_EQ(payment.orderID(), "O1");  // quotation marks and blanks removed
  EXPECT_EQ(payment.rrn(), "\"c d\"");
  EXPECT_EQ(payment.addtionalField10(), "\"");

  const R status = parse(kStatus, "\"R E F" + tail);
  EXPECT_EQ(status.transactionReferenceNo(), "R E F");  // only quotation marks removed
  EXPECT_EQ(status.amount(), "\"c d\"");
  EXPECT_EQ(status.authzCode(), "");           // an empty field is empty, not absent
  EXPECT_EQ(status.addtionalField10(), "\"");  // the closing quotation mark of the answer stays

  EXPECT_EQ(parse(kCancelOrRefund, "\"R E F" + tail).transactionReferenceNo(), "\"R E F");
}

}  // namespace
}  // namespace qipg
