// The validations of the two payment builders: every check's limit, absent against empty, and
// which message wins when two fields are bad.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <tuple>
#include <vector>

#include "qipg/IPGCardCaptureRequest.h"
#include "qipg/IPGStandardRequest.h"

namespace qipg::payment_validation_test {
namespace {

std::string rep(char c, std::size_t n) { return std::string(n, c); }

struct Args {
  Text orderID = "ORD42", amount = "10.50", currency = "INR", description = "Books & more";
  Text type = "S", holder = "A Kumar", cardNumber = "4111111111111111", expiry = "1230";
  Text cvv = "123", paymentType = "DC";
  std::array<Text, 10> add = {"", "", "", "", "", "", "", "", "", ""};
  Text mid = "M123", key = "0123456789abcdef0123456789ABCDEF";
};

std::string validateStandard(const Args& a) {
  return IPGStandardRequest().validateInputForStandardRequest(
      a.orderID, a.amount, a.currency, a.description, a.type, a.add[0], a.add[1], a.add[2],
      a.add[3], a.add[4], a.add[5], a.add[6], a.add[7], a.add[8], a.add[9], a.mid, a.key);
}

std::string validateCardCapture(const Args& a) {
  return IPGCardCaptureRequest().validateInputForCardCaptureRequest(
      a.orderID, a.amount, a.currency, a.description, a.type, a.holder, a.cardNumber, a.expiry,
      a.cvv, a.paymentType, a.add[0], a.add[1], a.add[2], a.add[3], a.add[4], a.add[5], a.add[6],
      a.add[7], a.add[8], a.add[9], a.mid, a.key);
}

using Validate = std::string (*)(const Args&);

// One argument changed from a valid set, and the answer.
using Case = std::tuple<Text Args::*, Text, std::string>;

void expectAll(Validate validate, const std::vector<Case>& cases) {
  for (const auto& [field, value, expected] : cases) {
    Args args;
    args.*field = value;
    EXPECT_EQ(validate(args), expected) << value.value_or("<absent>");
  }
}

// A field with a longest allowed value (field, fill, max, missing, invalid, bad text): absent
// and empty get the missing message; `max` characters of `fill` pass; one more, or the bad
// text, get the invalid message.
using Limit = std::tuple<Text Args::*, char, std::size_t, const char*, const char*, const char*>;

void expectLimits(Validate validate, const std::vector<Limit>& limits) {
  for (const auto& [field, fill, max, missing, invalid, bad] : limits) {
    expectAll(validate, {{field, std::nullopt, missing},
                         {field, "", missing},
                         {field, rep(fill, max), "Success"},
                         {field, rep(fill, max + 1), invalid},
                         {field, bad, invalid}});
  }
}

const std::vector<Limit> kSharedLimits = {
    {&Args::mid, 'M', 15, "Missing value for mid", "Invalid mid Input", "M-1"},
    {&Args::key, 'k', 32, "Missing value for Encryption Key", "Invalid Encryption Key Input", "k#"},
    {&Args::orderID, 'o', 30, "Missing value for Order ID", "Invalid Order ID Input", "O 1"},
    {&Args::amount, '9', 15, "Missing value for Transaction Amount",
     "Invalid Transaction Amount Input", "1,000.00"},
    {&Args::description, 'd', 100, "Missing value for Transaction Description",
     "Invalid Transaction Description Input", "a_b"},
};

const std::vector<Case> kSharedCases = {
    {&Args::key, "k", "Success"},
    {&Args::amount, "1000.00", "Success"},
    {&Args::currency, std::nullopt, "Missing value for Transaction Currency"},
    {&Args::currency, "EUR", "Only INR and USD Currency is supported at this moment"},
    {&Args::currency, "USD", "Success"},
};

TEST(PaymentValidationTest, SharedChecks) {
  for (Validate validate : {validateStandard, validateCardCapture}) {
    expectLimits(validate, kSharedLimits);
    expectAll(validate, kSharedCases);
  }
  // The standard builder never looks at the transaction type.
  expectAll(validateStandard, {{&Args::type, "NULL", "Success"}, {&Args::type, {}, "Success"}});
}

TEST(PaymentValidationTest, AdditionalFields) {
  for (std::size_t i = 0; i < 10; ++i) {
    for (const Text& bad : {Text(), Text("a|b"), Text("~"), Text(rep('x', 101))}) {
      Args args;
      args.add[i] = bad;
      const std::string number = std::to_string(i + 1);
      EXPECT_EQ(validateStandard(args), "Invalid Additional Field" + number + " Input");
      // The card-capture builder reports the tenth field as the eighth.
      EXPECT_EQ(validateCardCapture(args),
                "Invalid Additional Field" + (i == 9 ? "8" : number) + " Input");
    }
  }
  Args full;
  full.add.fill(rep('x', 91) + "@-/$ %*[]");
  EXPECT_EQ(validateStandard(full), "Success");
  EXPECT_EQ(validateCardCapture(full), "Success");
}

TEST(PaymentValidationTest, CardChecks) {
  expectLimits(validateCardCapture,
               {{&Args::type, 'S', 2, "Missing value for Transaction Type",
                 "Invalid Transaction Type Input", "*"},
                {&Args::cardNumber, '4', 19, "Missing value for Card Number",
                 "Invalid Card Number Input", "4111 1111 1111"},
                {&Args::cvv, '1', 4, "Missing value for Card CVV", "Invalid Card CVV Input", "1a"},
                {&Args::holder, 'h', 20, "Missing value for Card Holder Name",
                 "Invalid Card Holder Name Input", "O'Neil"},
                {&Args::paymentType, 'D', 2, "Missing value for Payment Type",
                 "Invalid Payment Type Input", "D-"}});
  expectAll(validateCardCapture, {{&Args::cardNumber, rep('4', 9), "Invalid Card Number Input"},
                                  {&Args::cardNumber, rep('4', 10), "Success"},
                                  {&Args::cardNumber, "4111.111111", "Success"},
                                  {&Args::expiry, std::nullopt, "Missing value for Card Expiry"},
                                  {&Args::expiry, "123", "Invalid Card Expiry Input"},
                                  {&Args::paymentType, "CUG", "Invalid Payment Type Input"},
                                  {&Args::paymentType, "NB", "Success"}});
}

TEST(PaymentValidationTest, FirstFailingCheckWins) {
  const struct {
    void (*change)(Args&);
    std::string standard, card;
  } rows[] = {
      {[](Args& a) { a.mid = a.key = ""; }, "Missing value for mid", "Missing value for mid"},
      {[](Args& a) { a.key = a.orderID = ""; }, "Missing value for Encryption Key",
       "Missing value for Encryption Key"},
      {[](Args& a) { a.orderID = "O-1", a.amount = "x"; }, "Invalid Order ID Input",
       "Invalid Order ID Input"},
      {[](Args& a) { a.description = "", a.cardNumber = "", a.add[0].reset(); },
       "Missing value for Transaction Description", "Missing value for Transaction Description"},
      {[](Args& a) { a.cardNumber = a.expiry = a.cvv = a.holder = "", a.paymentType = "CC"; },
       "Success", "Missing value for Card Number"},
      {[](Args& a) { a.holder = "", a.cvv = "x"; }, "Success", "Invalid Card CVV Input"},
      {[](Args& a) { a.paymentType = "", a.add[0].reset(); }, "Invalid Additional Field1 Input",
       "Missing value for Payment Type"},
  };
  for (const auto& row : rows) {
    Args args;
    row.change(args);
    EXPECT_EQ(validateStandard(args), row.standard);
    EXPECT_EQ(validateCardCapture(args), row.card);
  }
}

}  // namespace
}  // namespace qipg::payment_validation_test
