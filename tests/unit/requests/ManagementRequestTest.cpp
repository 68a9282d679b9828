// The status, cancel and refund builders: their validations and their plain messages.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "qipg/CancelRequest.h"
#include "qipg/RefundRequest.h"
#include "qipg/StatusRequest.h"

namespace qipg::management_request_test {
namespace {

std::string rep(char c, std::size_t n) { return std::string(n, c); }

struct Args {
  Text orderID = "ORD42", ref = "987", amount = "150.00", mid = "M123";
  Text key = "0123456789abcdef0123456789ABCDEF";
};

std::string validateStatus(const Args& a) {
  return StatusRequest().validateInputForStatusRequest(a.orderID, a.ref, a.mid, a.key);
}
std::string validateCancel(const Args& a) {
  return CancelRequest().validateInputForCancelRequest(a.orderID, a.ref, a.mid, a.key);
}
std::string validateRefund(const Args& a) {
  return RefundRequest().validateInputForRefundRequest(a.orderID, a.ref, a.amount, a.mid, a.key);
}

// One argument changed from a valid set, and the answer.
using Case = std::tuple<Text Args::*, Text, std::string>;

// Order ID, MID and key are checked alike by all three.
const std::vector<Case> kShared = {
    {&Args::orderID, std::nullopt, "Invalid Order ID"},
    {&Args::orderID, rep('o', 30), "Success"},
    {&Args::orderID, rep('o', 31), "Invalid Order ID Input"},
    {&Args::orderID, "O-1", "Invalid Order ID Input"},
    {&Args::mid, "", "Invalid Merchant ID"},
    {&Args::mid, rep('m', 15), "Success"},
    {&Args::mid, rep('m', 16), "Invalid input for Merchant ID"},
    {&Args::mid, "M 1", "Invalid input for Merchant ID"},
    {&Args::key, std::nullopt, "Invalid Encryption Key"},
    {&Args::key, rep('k', 31), "Invalid length for Encryption Key"},
    {&Args::key, rep('k', 31) + "-", "Invalid input for Encryption Key"},
    {&Args::ref, rep('1', 16), "Success"},
    {&Args::ref, rep('1', 17), "Invalid Transaction Reference Number Input"},
    {&Args::ref, "12a", "Invalid Transaction Reference Number Input"},
    {&Args::ref, "12.5", "Success"},
};

// The reference number is optional for a status inquiry only.
const std::vector<Case> kStatusOnly = {
    {&Args::ref, "", "Success"},
    {&Args::ref, std::nullopt, "Invalid Transaction Reference Number Input"},
};
const std::vector<Case> kCancelAndRefund = {
    {&Args::ref, "", "Invalid Transaction Reference Number"},
    {&Args::ref, std::nullopt, "Invalid Transaction Reference Number"},
};
const std::vector<Case> kRefundOnly = {
    {&Args::amount, "0", "Success"},
    {&Args::amount, "1.2.3", "Success"},
    {&Args::amount, rep('9', 15), "Success"},
    {&Args::amount, rep('9', 16), "Invalid Transaction Amount Input"},
    {&Args::amount, "-5", "Invalid Transaction Amount Input"},
    {&Args::amount, std::nullopt, "Invalid Transaction Amount"},
    {&Args::amount, "", "Invalid Transaction Amount"},
};

TEST(ManagementValidationTest, EachCheck) {
  using Validate = std::string (*)(const Args&);
  const struct {
    Validate validate;
    std::vector<const std::vector<Case>*> tables;
  } builders[] = {{validateStatus, {&kShared, &kStatusOnly}},
                  {validateCancel, {&kShared, &kCancelAndRefund}},
                  {validateRefund, {&kShared, &kCancelAndRefund, &kRefundOnly}}};
  for (const auto& builder : builders) {
    EXPECT_EQ(builder.validate(Args()), "Success");
    for (const auto* table : builder.tables) {
      for (const auto& [field, value, expected] : *table) {
        Args args;
        args.*field = value;
        EXPECT_EQ(builder.validate(args), expected) << value.value_or("<absent>");
      }
    }
  }
}

TEST(ManagementValidationTest, FirstFailingCheckWins) {
  Args a;
  a.orderID = a.mid = a.key = "";
  EXPECT_EQ(validateStatus(a), "Invalid Order ID");
  EXPECT_EQ(validateCancel(a), "Invalid Order ID");
  Args b;
  b.ref = "x", b.key = "";  // the status inquiry checks the key before the reference number
  EXPECT_EQ(validateStatus(b), "Invalid Encryption Key");
  EXPECT_EQ(validateCancel(b), "Invalid Transaction Reference Number Input");
  Args c;
  c.amount = c.mid = "";
  EXPECT_EQ(validateRefund(c), "Invalid Transaction Amount");
}

TEST(ManagementMessageTest, StatusLayout) {
  EXPECT_EQ(
      StatusRequest("O1", "99", "https://x/getTransactionStatus", "M1", "k").getRequestMessage(),
      "M1|O1|99|||||||||||");
  EXPECT_EQ(StatusRequest("O1", "", "u", "M1", "k").getRequestMessage(), "M1|O1" + rep('|', 12));
  EXPECT_EQ(StatusRequest().getRequestMessage(), rep('|', 13));
}

template <typename Request>
Request request(Text amount) {
  return Request("ORD42", "987", "https://x/", std::move(amount), "M123", "k", "", "", "", "", "",
                 "", "", "", "", "");
}

TEST(ManagementMessageTest, CancelAndRefundLayout) {
  EXPECT_EQ(request<CancelRequest>("").getRequestMessage(), "M123|ORD42|987|-|-|-|-|-|-|-|-|-|-|-");
  EXPECT_EQ(request<RefundRequest>("150.00").getRequestMessage(),
            "M123|ORD42|987|150.00|-|-|-|-|-|-|-|-|-|-");
  EXPECT_EQ(request<RefundRequest>("").getRequestMessage(), "M123|ORD42|987|-|-|-|-|-|-|-|-|-|-|-");

  CancelRequest blanks("", "", "u", "", "", "k", "", "", "", "", "", "", "", "", "", "");
  EXPECT_EQ(blanks.getRequestMessage(), "-|-|-|-|-|-|-|-|-|-|-|-|-|-");
  blanks.setAddField1(" ");
  blanks.setAddField10("a|b");
  EXPECT_EQ(blanks.getRequestMessage(), "-|-|-|-| |-|-|-|-|-|-|-|-|a|b");

  try {
    request<RefundRequest>(std::nullopt).getRequestMessage();
    ADD_FAILURE() << "an absent amount was written";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "amount is absent");
  }
  EXPECT_THROW(CancelRequest().getRequestMessage(), std::invalid_argument);
}

}  // namespace
}  // namespace qipg::management_request_test
