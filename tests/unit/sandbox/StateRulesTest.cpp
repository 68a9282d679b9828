// What the sandbox allows after a payment: status, cancel and refund as the client library
// sends them and reads the answers.
#include <gtest/gtest.h>

#include "SandboxTestSupport.h"

namespace qipg::sandbox::testing {
namespace {

// One step of a scenario on one order: an operation and the answer it must get.
struct Step {
  const char* operation;  // "status", "cancel" or "refund"
  const char* amount;     // refund amount ("" for none)
  const char* code;       // expected statusCode
  const char* description;
};

class StateRules : public SandboxFixture {
 protected:
  // Runs the steps on one order in turn.
  void runSteps(const std::string& orderId, const std::string& ref, const std::vector<Step>& steps) {
    for (const Step& s : steps) {
      SCOPED_TRACE(std::string(s.operation) + " " + s.amount);
      const std::string operation = s.operation;
      const PaymentResponse r =
          operation == "status"
              ? status(orderId, ref)
              : cancelOrRefund(operation == "cancel" ? "doCancelRequest" : "doRefundRequest",
                               orderId, ref, s.amount);
      EXPECT_EQ(r.statusCode(), s.code);
      EXPECT_EQ(r.statusDescription(), s.description);
      EXPECT_EQ(r.orderID(), orderId);
      EXPECT_EQ(r.transactionReferenceNo(), ref);
    }
  }
};

TEST_F(StateRules, SaleIsCapturedThenRefundedInPartsButNeverCancelled) {
  const PaymentResponse paid = payWithCard("SALE1", "10.50", "S", "4111111111111111");
  ASSERT_EQ(paid.statusCode(), "S");
  EXPECT_EQ(paid.statusDescription(), "Transaction successful");
  EXPECT_EQ(paid.amount(), "10.50");
  EXPECT_EQ(paid.captureStatus(), "Y");
  EXPECT_EQ(paid.addtionalField1(), "add1");
  EXPECT_EQ(paid.addtionalField10(), "add10");
  const std::string ref = paid.transactionReferenceNo().value_or("");

  const std::vector<Step> steps = {
      {"status", "", "S", "Captured"},
      {"refund", "3.00", "S", "Refund of 3.00 INR accepted; 7.50 INR left to refund"},
      {"status", "", "R", "Partially refunded: 3.00 of 10.50 INR"},
      {"refund", "7.51", "F",
       "Refund refused: the amount exceeds the refundable balance of 7.50 INR"},
      {"cancel", "", "F", "Cancel refused: the transaction is captured; refund it instead"},
      {"refund", "7.5", "S", "Refund of 7.50 INR accepted; fully refunded"},
      {"refund", "0.01", "F", "Refund refused: the transaction is already fully refunded"},
      {"status", "", "R", "Fully refunded"},
  };
  runSteps("SALE1", ref, steps);
  const auto stored = sandbox_->transaction(kMid, "SALE1");
  ASSERT_TRUE(stored.has_value());
  EXPECT_EQ(stored->refundedMinor, 1050);
  EXPECT_EQ(stored->cardLast4, "1111");
}

TEST_F(StateRules, AuthorisationIsCancelledOnceAndNeverRefunded) {
  const PaymentResponse paid = payWithCard("AUTH1", "99.99", "P", "5555555555554444");
  ASSERT_EQ(paid.statusCode(), "S");
  EXPECT_EQ(paid.statusDescription(), "Authorised, not captured");
  EXPECT_EQ(paid.captureStatus(), "N");
  const std::string ref = paid.transactionReferenceNo().value_or("");

  const std::vector<Step> steps = {
      {"status", "", "S", "Authorised, not captured"},
      {"refund", "1.00", "F", "Refund refused: the transaction is not captured; cancel it instead"},
      {"cancel", "", "S", "Transaction cancelled"},
      {"cancel", "", "F", "Cancel refused: the transaction is already cancelled"},
      {"refund", "1.00", "F", "Refund refused: the transaction is cancelled"},
      {"status", "", "C", "Cancelled"},
  };
  runSteps("AUTH1", ref, steps);
}

TEST_F(StateRules, RefusalsOfFailedPendingAndUnknownPaymentsAndBadAmounts) {
  const PaymentResponse declined = payWithCard("DECL1", "5.00", "P", "4000000000000002");
  ASSERT_EQ(declined.statusCode(), "F");
  const std::string declinedRef = declined.transactionReferenceNo().value_or("");
  ASSERT_FALSE(openCardForm("PEND1", "5.00").empty());
  const std::string pendingRef = sandbox_->transaction(kMid, "PEND1")->referenceNo;
  const std::string ref =
      payWithCard("KNOWN1", "20.00", "S", "4111111111111111").transactionReferenceNo().value_or("");

  const struct {
    std::string order, ref, endpoint, amount, description;
  } cases[] = {
      {"DECL1", declinedRef, "doCancelRequest", "",
       "Cancel refused: the transaction did not succeed"},
      {"PEND1", pendingRef, "doCancelRequest", "", "Cancel refused: the payment is still pending"},
      {"PEND1", pendingRef, "doRefundRequest", "1.00",
       "Refund refused: the payment is still pending"},
      {"NOSUCHORDER", "410000000001", "doRefundRequest", "1.00",
       "Refund refused: transaction not found"},
      {"KNOWN1", ref, "doRefundRequest", "", "Refund refused: the amount is missing"},
      {"KNOWN1", ref, "doRefundRequest", "0", "Refund refused: invalid amount"},
      {"KNOWN1", ref, "doCancelRequest", "5.00",
       "Cancel refused: partial cancellation is not supported"},
  };
  for (const auto& c : cases) {
    const PaymentResponse r = cancelOrRefund(c.endpoint, c.order, c.ref, c.amount);
    EXPECT_EQ(r.statusCode(), "F") << c.description;
    EXPECT_EQ(r.statusDescription(), c.description);
  }
  EXPECT_EQ(sandbox_->transaction(kMid, "KNOWN1")->refundedMinor, 0);
  EXPECT_EQ(status("DECL1").statusDescription(), "Declined by issuer");
  EXPECT_EQ(status("PEND1").statusCode(), "P");
  const PaymentResponse unknown = status("NOSUCHORDER");
  EXPECT_EQ(unknown.statusCode(), "F");
  EXPECT_EQ(unknown.statusDescription(), "Transaction not found");
  EXPECT_EQ(unknown.orderID(), "NOSUCHORDER");
  EXPECT_EQ(status("KNOWN1", "123").statusDescription(),
            "Transaction not found: the reference number does not match the order");
}

TEST_F(StateRules, ARestartLosesNothing) {
  const PaymentResponse paid = payWithCard("KEEP1", "12.34", "S", "4111111111111111");
  const std::string ref = paid.transactionReferenceNo().value_or("");
  ASSERT_EQ(cancelOrRefund("doRefundRequest", "KEEP1", ref, "2.34").statusCode(), "S");
  const std::string pendingToken = openCardForm("KEEP2", "1.00");
  const auto before = sandbox_->transaction(kMid, "KEEP1");

  restart();
  const auto after = sandbox_->transaction(kMid, "KEEP1");
  ASSERT_TRUE(after.has_value());
  EXPECT_EQ(after->referenceNo, before->referenceNo);
  EXPECT_EQ(after->refundedMinor, 234);
  EXPECT_EQ(status("KEEP1", ref).statusDescription(), "Partially refunded: 2.34 of 12.34 INR");
  EXPECT_EQ(cancelOrRefund("doRefundRequest", "KEEP1", ref, "10.01").statusDescription(),
            "Refund refused: the amount exceeds the refundable balance of 10.00 INR");
  // A payment session opened before the restart can still be completed.
  const auto page = post("paymentInvoice", "token=" + pendingToken +
                                               "&cardNumber=4111111111111111&expiry=1249&cvv=123"
                                               "&holder=A");
  EXPECT_EQ(CommonUtilities().getPaymentResponseFromString(resultIn(page.body)).statusCode(), "S");
}

}  // namespace
}  // namespace qipg::sandbox::testing
