// The hosted payment pages: test cards in both flows, refusals, form encodings, card data at rest.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

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

struct CardCase {
  const char* number;
  const char* expiry;
  const char* cvv;
  const char* code;
  const char* description;
  const char* confirmation;  // what the card-capture confirmation says
};

const CardCase kCards[] = {
    {"4111111111111111", "1249", "123", "S", "Transaction successful",
     "Pay 10.50 INR with card ending 1111"},
    {"4000000000000002", "1249", "123", "F", "Declined by issuer",
     "Pay 10.50 INR with card ending 0002"},
    {"4000000000009995", "1249", "1234", "F", "Gateway error: the issuer did not answer",
     "Pay 10.50 INR with card ending 9995"},
    {"4242424242424242", "1249", "123", "F", "Declined: unknown test card",
     "Pay 10.50 INR with card ending 4242"},
    {"4111111111111112", "1249", "123", "F", "Invalid card number", "Invalid card number"},
    {"4111111111111111", "0120", "123", "F", "Card expired", "Card expired"},
    {"4111111111111111", "1349", "123", "F", "Invalid card expiry", "Invalid card expiry"},
    {"4111111111111111", "1249", "12", "F", "Invalid card CVV", "Invalid card CVV"},
};

TEST_F(PaymentPages, TestCardsGiveTheirOutcomeInBothFlows) {
  int n = 0;
  for (const CardCase& c : kCards) {
    SCOPED_TRACE(std::string(c.number) + " " + c.expiry + " " + c.cvv);
    // Card capture: the confirmation page, then the final page.
    const std::string captureOrder = "CAP" + std::to_string(n);
    const auto confirm =
        post("doMEPayRequestCard",
             payBody(cardMessage(responseUrl(), captureOrder, "DC", c.number, c.expiry, c.cvv)));
    ASSERT_EQ(confirm.status, 200);
    EXPECT_NE(confirm.body.find(c.confirmation), std::string::npos);
    EXPECT_EQ(confirm.body.find(c.number), std::string::npos);
    const auto final = post("paymentInvoice", "token=" + tokenIn(confirm.body));
    PaymentResponse r = CommonUtilities().getPaymentResponseFromString(resultIn(final.body));
    EXPECT_EQ(r.statusCode(), c.code);
    EXPECT_EQ(r.statusDescription(), c.description);
    EXPECT_EQ(r.orderID(), captureOrder);

    // Standard payment: the card form.
    r = payWithCard("STD" + std::to_string(n), "10.50", "S", c.number, c.expiry, c.cvv);
    EXPECT_EQ(r.statusCode(), c.code);
    EXPECT_EQ(r.statusDescription(), c.description);
    ++n;
  }
}

TEST_F(PaymentPages, NetBankingSucceedsWithAnyBankCode) {
  const auto confirm =
      post("doMEPayRequestCard",
           payBody(cardMessage(responseUrl(), "NB1", "NB", "-", "-", "-", "HDFC")));
  EXPECT_NE(confirm.body.find("Pay 10.50 INR by net banking (bank HDFC)"), std::string::npos);
  const auto final = post("paymentInvoice", "token=" + tokenIn(confirm.body));
  const PaymentResponse r = CommonUtilities().getPaymentResponseFromString(resultIn(final.body));
  EXPECT_EQ(r.statusCode(), "S");
  EXPECT_EQ(r.captureStatus(), "Y");
  EXPECT_EQ(sandbox_->transaction(kMid, "NB1")->payType, "NB");
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
      {"doMEPayRequest", "MID=" + kMid, 400, "The form has no merchantRequest field."},
      {"doMEPayRequestCard", payBody(std20), 400,
       "Wrong message layout: expected 26 fields, got 20."},
      {"doMEPayRequest", payBody(std20 + "|extra"), 400, "expected 20 fields, got 21."},
      {"doMEPayRequest", payBody(replaced(0, "OTHERMID")), 400, "does not match the form"},
      {"doMEPayRequest", payBody(replaced(1, "bad-order")), 400, "Invalid order ID"},
      {"doMEPayRequest", payBody(replaced(2, "1,000.00")), 400, "Invalid amount"},
      {"doMEPayRequest", payBody(replaced(2, "0.00")), 400, "Invalid amount"},
      {"doMEPayRequest", payBody(replaced(3, "EUR")), 400, "Unsupported currency"},
      {"doMEPayRequest", payBody(replaced(5, "X")), 400, "Invalid request type"},
      {"doMEPayRequest", payBody(replaced(5, "R")), 400, "period, day and number"},
      {"doMEPayRequest", payBody(replaced(9, "-")), 400, "The response URL is missing."},
      {"doMEPayRequest", payBody(replaced(1, "USED2")), 400, "Order ID USED2 was already used"},
      {"doMEPayRequestCard", payBody(cardMessage(responseUrl(), "O1", "XX", "-", "-", "-")), 400,
       "Unsupported payment type"},
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

TEST_F(PaymentPages, AcceptsTheLibrarysRawFormAndABrowsersEncodedForm) {
  const std::string envelope = encryptTextWithEncKey(standardMessage("FORM1", "10.50"), kKey);
  ASSERT_NE(envelope.find("\r\n"), std::string::npos);
  std::string browserEncoded;  // application/x-www-form-urlencoded of the envelope text as is
  for (unsigned char c : envelope) {
    if (std::isalnum(c)) {
      browserEncoded.push_back(static_cast<char>(c));
    } else {
      char escape[4];
      std::snprintf(escape, sizeof escape, "%%%02X", c);
      browserEncoded += escape;
    }
  }
  std::string plusRestored = envelope;
  for (std::size_t at; (at = plusRestored.find("%2B")) != std::string::npos;) {
    plusRestored.replace(at, 3, "+");
  }
  for (const std::string& value : {envelope, browserEncoded, plusRestored}) {
    const auto page =
        post("doMEPayRequest", "merchantRequest=" + value + "&MID=" + kMid + "&iosEnc=true");
    EXPECT_EQ(page.status, 200);
    EXPECT_FALSE(tokenIn(page.body).empty());
  }
}

TEST_F(PaymentPages, TheFinalPageIsAlwaysServedAtPaymentInvoice) {
  const std::string message =
      kMid + "|ELSE1|10.50|USD|-|S|-|-|-|https://shop.example/done|-|-|-|-|-|-|-|-|-|-";
  const auto form = post("doMEPayRequest", payBody(message));
  const auto final = post("paymentInvoice", "token=" + tokenIn(form.body) +
                                                "&cardNumber=4111+1111+1111+1111&expiry=1249"
                                                "&cvv=123&holder=Jane+Doe");
  EXPECT_EQ(final.status, 200);
  EXPECT_NE(final.body.find("href=\"https://shop.example/done\""), std::string::npos);
  EXPECT_EQ(CommonUtilities().getPaymentResponseFromString(resultIn(final.body)).amount(), "10.50");
  // Posting the token again shows the same result and charges nothing twice.
  const auto again = post("paymentInvoice", "token=" + tokenIn(form.body));
  EXPECT_EQ(resultIn(again.body), resultIn(final.body));
  EXPECT_EQ(sandbox_->transaction(kMid, "ELSE1")->responseUrl, "https://shop.example/done");
}

TEST_F(PaymentPages, NoCardNumberReachesTheDataDirectory) {
  for (const CardCase& c : kCards) {
    post("doMEPayRequestCard",
         payBody(cardMessage(responseUrl(), "DISK" + std::string(c.number).substr(12), "CC",
                             c.number, c.expiry, c.cvv)));
  }
  payWithCard("DISK2", "1.00", "S", "4000000000009995");
  sandbox_->stop();
  for (const auto& entry : std::filesystem::directory_iterator(sandbox_->dataDir())) {
    std::ifstream in(entry.path(), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (const CardCase& c : kCards) {
      EXPECT_EQ(bytes.find(c.number), std::string::npos) << entry.path();
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
}

}  // namespace
}  // namespace qipg::sandbox::testing
