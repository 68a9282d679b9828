// The hosted payment pages: test cards in both flows, refusals, card data at rest.
#include <gtest/gtest.h>

#include "Cards.h"
#include "SandboxTestSupport.h"

namespace qipg::sandbox::testing {
namespace {

using PaymentPages = SandboxFixture;

std::string cardMessage(const std::string& url, const std::string& orderId,
                        const std::string& payType, const std::string& number,
                        const std::string& expiry, const std::string& cvv,
                        const std::string& bank = "NA") {
  return kMid + "|" + orderId + "|10.50|INR|Books|S|-|-|-|" + url + "|-|-|-|-|-|-|-|-|-|-|" +
         payType + "|" + number + "|" + expiry + "|" + cvv + "|Jane Doe|" + bank;
}

std::string payBody(const std::string& message) {
  return "merchantRequest=" + encryptTextWithEncKey(message, kKey) + "&MID=" + kMid +
         "&iosEnc=true";
}

TEST_F(PaymentPages, RefusalsGetAnErrorPage) {
  ASSERT_FALSE(openCardForm("USED1", "1.00").empty());
  ASSERT_EQ(payWithCard("USED2", "1.00", "S", "4111111111111111").statusCode(), "S");
  const std::string std20 = standardMessage("ORD9", "10.50");
  auto replaced = [&](std::size_t slot, const std::string& value) {
    std::size_t start = 0;
    for (std::size_t i = 0; i < slot; ++i) start = std20.find('|', start) + 1;
    return std20.substr(0, start) + value + std20.substr(std20.find('|', start));
  };
  const struct {
    std::string endpoint, body;
    int status;
    std::string reason;
  } cases[] = {
      {"doMEPayRequest", "merchantRequest=" + encryptTextWithEncKey(std20, kKey) + "&MID=NOBODY",
       400, "Unknown merchant ID."},
      {"doMEPayRequest",
       "merchantRequest=" + encryptTextWithEncKey(std20, "wrongkey") + "&MID=" + kMid, 400,
       "could not be decrypted with this merchant&#39;s key"},
      {"doMEPayRequestCard", payBody(std20), 400,
       "Wrong message layout: expected 26 fields, got 20."},
      {"doMEPayRequest", payBody(replaced(2, "1,000.00")), 400, "Invalid amount"},
      {"doMEPayRequest", payBody(replaced(5, "R")), 400, "period, day and number"},
      {"doMEPayRequest", payBody(replaced(1, "USED2")), 400, "Order ID USED2 was already used"},
      {"doMEPayRequestCard", payBody(cardMessage(responseUrl(), "O2", "NB", "-", "-", "-", "-")),
       400, "Net banking needs a bank code."},
      {"paymentInvoice", "token=0123", 404, "This payment session is unknown."},
  };
  for (const auto& c : cases) {
    const auto answer = post(c.endpoint, c.body);
    EXPECT_EQ(answer.status, c.status) << c.reason;
    EXPECT_NE(answer.body.find(c.reason), std::string::npos) << c.reason;
    EXPECT_EQ(answer.body.find("responseString"), std::string::npos) << c.reason;
  }
  // A payment left pending may be started again.
  EXPECT_FALSE(openCardForm("USED1", "2.00").empty());
  EXPECT_EQ(sandbox_->transaction(kMid, "USED1")->amountMinor, 200);
}

// Every test card, in both flows: the outcome each promises, and no card number at rest.
TEST_F(PaymentPages, TestCardsGiveTheirOutcomeAndNoCardNumberReachesTheDataDirectory) {
  int n = 0;
  for (const TestCard& card : testCards()) {
    SCOPED_TRACE(card.name);
    const std::string expiry = card.expired ? "0120" : "1249", order = std::to_string(++n);
    const auto confirm =
        post("doMEPayRequestCard", payBody(cardMessage(responseUrl(), "CAP" + order, "CC",
                                                       card.number, expiry, card.cvv)));
    EXPECT_EQ(confirm.body.find(card.number), std::string::npos);
    const auto final = post("paymentInvoice", "token=" + tokenIn(confirm.body));
    for (const PaymentResponse& r :
         {CommonUtilities().getPaymentResponseFromString(resultIn(final.body)),
          payWithCard("STD" + order, "10.50", "S", card.number, expiry, card.cvv)}) {
      EXPECT_EQ(r.statusCode(), card.statusCode);
      EXPECT_EQ(r.statusDescription(), card.description);
    }
  }
  sandbox_->stop();
  for (const auto& entry : std::filesystem::directory_iterator(sandbox_->dataDir())) {
    const std::string bytes = qipg_test::readFile(entry.path());
    for (const TestCard& card : testCards()) {
      EXPECT_EQ(bytes.find(card.number), std::string::npos) << entry.path();
    }
  }
}

TEST(TestCards, ExpiryCountsUpToTheEndOfItsMonth) {
  using internal::CardOutcome;
  // As of May 2030.
  const std::pair<const char*, CardOutcome> cases[] = {
      {"0530", CardOutcome::kApproved}, {"0430", CardOutcome::kInvalid},
      {"1229", CardOutcome::kInvalid},  {"0131", CardOutcome::kApproved},
      {"0030", CardOutcome::kInvalid},  {"5/30", CardOutcome::kInvalid}};
  for (const auto& [expiry, outcome] : cases) {
    EXPECT_EQ(internal::checkCard("4111111111111111", expiry, "123", "J", 2030, 5).outcome, outcome)
        << expiry;
  }
  EXPECT_EQ(internal::checkCard("4111111111111111", "0530", "123", "  ", 2030, 5).reason,
            "Missing card holder name");
  EXPECT_EQ(internal::checkCard("4111111111111111", "0530", "12", "J", 2030, 5).reason,
            "Invalid card CVV");
}

}  // namespace
}  // namespace qipg::sandbox::testing
