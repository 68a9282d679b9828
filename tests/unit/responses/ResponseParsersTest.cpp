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

// Which answer field each property gets; kAbsent and kEmpty for the properties a parser does
// not take from the answer.
constexpr int kAbsent = -1, kEmpty = -2;
struct Expect {
  const Text& (R::*get)() const;
  int field;
};

void expectMapping(Kind kind, int count, std::vector<Expect> table) {
  const R r = parse(kind, fields(count));
  const std::vector<const Text& (R::*)() const> extras = {
      &R::addtionalField1, &R::addtionalField2, &R::addtionalField3, &R::addtionalField4,
      &R::addtionalField5, &R::addtionalField6, &R::addtionalField7, &R::addtionalField8,
      &R::addtionalField9, &R::addtionalField10};
  const int first = kind == kCancelOrRefund ? 6 : 12;
  for (int i = 0; i < 10; ++i) table.push_back({extras[i], first + i});
  for (const Expect& e : table) {
    const Text expected = e.field == kAbsent  ? Text()
                          : e.field == kEmpty ? Text("")
                                              : Text("f" + std::to_string(e.field));
    EXPECT_EQ((r.*e.get)(), expected) << "field " << e.field;
  }
}

TEST(ResponseParsersTest, FieldOrderOfEachAnswer) {
  expectMapping(kPayment, 22,
                {{&R::orderID, 0},
                 {&R::transactionReferenceNo, 1},
                 {&R::rrn, 2},
                 {&R::statusCode, 3},
                 {&R::statusDescription, 4},
                 {&R::amount, 5},
                 {&R::transactionDateTime, 6},
                 {&R::authnCode, 7},
                 {&R::authzCode, 8},
                 {&R::captureStatus, 9},
                 {&R::pgRefCancelReqID, 10},
                 {&R::refundAmount, 11},
                 {&R::authNStatus, kAbsent},
                 {&R::authZStatus, kAbsent},
                 {&R::responseCode, kAbsent}});
  expectMapping(kStatus, 23,
                {{&R::transactionReferenceNo, 0},
                 {&R::orderID, 1},
                 {&R::amount, 2},
                 {&R::authNStatus, 3},
                 {&R::authZStatus, 4},
                 {&R::captureStatus, 5},
                 {&R::rrn, 6},
                 {&R::authzCode, 7},
                 {&R::responseCode, 8},
                 {&R::transactionDateTime, 9},
                 {&R::statusCode, 10},
                 {&R::statusDescription, 11},
                 {&R::authnCode, kAbsent},
                 {&R::pgRefCancelReqID, kAbsent},
                 {&R::refundAmount, kAbsent}});
  expectMapping(kCancelOrRefund, 16,
                {{&R::transactionReferenceNo, 0},
                 {&R::orderID, 1},
                 {&R::pgRefCancelReqID, 2},
                 {&R::refundAmount, 3},
                 {&R::statusCode, 4},
                 {&R::statusDescription, 5},
                 {&R::rrn, kEmpty},
                 {&R::amount, kEmpty},
                 {&R::transactionDateTime, kEmpty},
                 {&R::authnCode, kEmpty},
                 {&R::authzCode, kEmpty},
                 {&R::captureStatus, kEmpty},
                 {&R::authNStatus, kAbsent},
                 {&R::authZStatus, kAbsent},
                 {&R::responseCode, kAbsent}});
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
