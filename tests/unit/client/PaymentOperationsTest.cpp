// The two payment operations and the payment page request, checked by opening the sealed
// message they produce.
#include <limits>
#include <thread>

#include "unit/client/ClientSupport.h"
#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"
#include "qipg/WebviewController.h"

namespace qipg_test {
namespace {

using qipg::QuandrelIPG;
using qipg::Text;
using qipg::URLRequest;

constexpr const char* kBase = "https://gw.example/ipg/";
constexpr const char* kMID = "MID001";
constexpr const char* kKey = "MerchantKey42";
constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (true) {
    const std::size_t bar = text.find('|', start);
    out.push_back(text.substr(start, bar - start));
    if (bar == std::string::npos) return out;
    start = bar + 1;
  }
}

class PaymentTest : public ClientTest {
 protected:
  void SetUp() override {
    ClientTest::SetUp();
    qipg::GatewayConfig config;
    config.testBaseURL = kBase;
    client_ = QuandrelIPG::create(1, config);
    ASSERT_NE(client_, nullptr);
  }

  std::optional<URLRequest> standard(std::uint64_t type, Text orderID = "ORDER1", Text mid = kMID,
                                     Text key = kKey) {
    return client_->getStandardPaymentRequest(orderID, "10.50", "INR", "Books", type, "", "", "",
                                              "", "", "", "", "", "", "", mid, key, delegate_);
  }

  std::optional<URLRequest> card(std::uint64_t type, std::uint64_t paymentType,
                                 Text cardNumber = "4111111111111111") {
    return client_->getCardCapturePaymentRequest(
        "ORDER2", "99.00", "USD", "Shoes", type, "A Holder", cardNumber, "1230", "123", paymentType,
        "extra", "", "", "", "", "", "", "", "", "", kMID, kKey, delegate_);
  }

  // The plain message sealed in a payment page body, split into its slots.
  static std::vector<std::string> openBody(const URLRequest& request, const Text& key = kKey) {
    const std::string body = request.bodyText();
    const std::string prefix = "merchantRequest=";
    const std::size_t mid = body.find("&MID=");
    EXPECT_EQ(body.rfind(prefix, 0), 0u) << body;
    EXPECT_NE(mid, std::string::npos) << body;
    if (body.rfind(prefix, 0) != 0 || mid == std::string::npos) return {};
    const Text plain =
        qipg::decryptTextWithDecryptionKey(body.substr(prefix.size(), mid - prefix.size()), key);
    EXPECT_TRUE(plain.has_value());
    return plain ? split(*plain) : std::vector<std::string>{};
  }

  std::shared_ptr<QuandrelIPG> client_;
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
};

TEST_F(PaymentTest, StandardPaymentRequestAndTypeCodes) {
  // The request type slot; null when the builder refuses "NULL".
  const std::pair<std::uint64_t, const char*> rows[] = {
      {0, "P"}, {1, "S"}, {2, nullptr}, {kMax, nullptr}};
  for (const auto& [type, code] : rows) {
    SCOPED_TRACE(type);
    delegate_->failures.clear();
    const std::optional<URLRequest> request = standard(type);
    if (code == nullptr) {
      EXPECT_FALSE(request.has_value());
      EXPECT_EQ(delegate_->failures, std::vector<std::string>{"Invalid transaction type"});
      continue;
    }
    ASSERT_TRUE(request.has_value());
    EXPECT_TRUE(delegate_->failures.empty());
    EXPECT_EQ(request->url, std::string(kBase) + "doMEPayRequest");
    EXPECT_EQ(request->httpMethod, "POST");
    EXPECT_EQ(request->cachePolicy, qipg::URLRequestCachePolicy::ReloadIgnoringLocalCacheData);
    EXPECT_EQ(request->timeoutInterval, URLRequest().timeoutInterval);
    const std::string body = request->bodyText();
    ASSERT_EQ(request->allHTTPHeaderFields.size(), 1u);
    EXPECT_EQ(request->valueForHTTPHeaderField("Content-Length"), std::to_string(body.size()));
    EXPECT_TRUE(body.ends_with("&MID=MID001&iosEnc=true")) << body;
    // The description is checked, not carried (slot 5).
    const std::vector<std::string> expected = {
        "MID001", "ORDER1", "10.50", "INR", "-",
        code,     "-",      "-",     "-",   std::string(kBase) + "paymentInvoice",
        "-",      "-",      "-",     "-",   "-",
        "-",      "-",      "-",     "-",   "-"};
    EXPECT_EQ(openBody(*request), expected);
  }
}

TEST_F(PaymentTest, CardCaptureTypeCodesAndRequest) {
  struct Row {
    std::uint64_t type, paymentType;
    const char* typeSlot;
    const char* paymentSlot;
  };
  const Row rows[] = {
      {0, 0, "P", "CC"}, {1, 1, "S", "DC"}, {2, 5, "S", "DC"}, {kMax, 0, "S", "CC"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.type << "/" << row.paymentType);
    const std::optional<URLRequest> request = card(row.type, row.paymentType);
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->url, std::string(kBase) + "doMEPayRequestCard");
    const std::vector<std::string> slots = openBody(*request);
    ASSERT_EQ(slots.size(), 26u);
    EXPECT_EQ(slots[4], "Shoes");
    EXPECT_EQ(slots[5], row.typeSlot);
    EXPECT_EQ(slots[9], std::string(kBase) + "paymentInvoice");
    EXPECT_EQ(slots[10], "extra");
    EXPECT_EQ(slots[20], row.paymentSlot);
    EXPECT_EQ(std::vector<std::string>(slots.begin() + 21, slots.end()),
              (std::vector<std::string>{"4111111111111111", "1230", "123", "A Holder", "NA"}));
  }
  EXPECT_TRUE(delegate_->failures.empty());
}

TEST_F(PaymentTest, EachFailedCallTellsTheDelegateExactlyOnce) {
  EXPECT_FALSE(standard(0, "bad order!").has_value());
  EXPECT_FALSE(standard(7).has_value());
  EXPECT_FALSE(card(0, 0, "12345").has_value());
  EXPECT_FALSE(standard(0, "ORDER1", kMID, std::nullopt).has_value());
  EXPECT_TRUE(standard(0).has_value());
  EXPECT_TRUE(card(1, 1).has_value());
  EXPECT_EQ(
      delegate_->failures,
      (std::vector<std::string>{"Invalid Order ID Input", "Invalid transaction type",
                                "Invalid Card Number Input", "Missing value for Encryption Key"}));
  EXPECT_TRUE(delegate_->inputErrors.empty());
  EXPECT_EQ(delegate_->responses, 0);

  // Without a delegate nothing is told and nothing breaks.
  delegate_.reset();
  EXPECT_FALSE(standard(0, "").has_value());
  EXPECT_FALSE(card(0, 0, "").has_value());
}

TEST_F(PaymentTest, CardCaptureBuildFailureReportsTheValidationVerdict) {
  // With no IV stored the envelope seals nothing: card capture treats that as a failed build,
  // the standard payment (which reports "Success" after every seal) returns an empty message.
  qipg::CommonUtilities::SetRandomIV(std::nullopt, std::string("randomIV"));
  EXPECT_FALSE(card(1, 0).has_value());
  EXPECT_EQ(delegate_->failures, std::vector<std::string>{"Success"});

  const std::optional<URLRequest> request = standard(1);
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(request->bodyText(), "merchantRequest=&MID=MID001&iosEnc=true");
  EXPECT_EQ(delegate_->failures.size(), 1u);
}

TEST_F(PaymentTest, ConcurrentCallsEachUseTheirOwnCredentials) {
  std::vector<std::thread> threads;
  std::vector<int> mismatches(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this, t, &mismatches] {
      const std::string mid = "MID" + std::to_string(t);
      const std::string key = "Key" + std::to_string(t);
      for (int i = 0; i < 25; ++i) {
        const std::optional<URLRequest> request = client_->getStandardPaymentRequest(
            "ORDER" + std::to_string(i), "1.00", "INR", "x", 0, "", "", "", "", "", "", "", "", "",
            "", mid, key, nullptr);
        if (!request || request->bodyText().find("&MID=" + mid + "&") == std::string::npos ||
            openBody(*request, key).empty()) {
          ++mismatches[t];
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mismatches, std::vector<int>(4, 0));
  const Text last = client_->merchantIDString();
  ASSERT_TRUE(last.has_value());
  EXPECT_EQ(last->rfind("MID", 0), 0u);  // one of the callers' values, whole
}

// The return address the message names is the page a controller under the same configuration
// takes for the final one, however the host spelt its base URLs.
TEST_F(PaymentTest, ReturnAddressIsTheFinalPageOfAControllerWithTheSameConfig) {
  qipg::GatewayConfig config;
  config.testBaseURL = "HTTPS://GW.Example:443/ipg/";
  config.productionBaseURL = "https://Prod.Example/";
  const auto controller = qipg::WebviewController::create(config);
  const std::pair<std::uint64_t, const char*> rows[] = {
      {1, "https://gw.example/ipg/paymentInvoice"}, {0, "https://prod.example/paymentInvoice"}};
  for (const auto& [environment, address] : rows) {
    SCOPED_TRACE(address);
    client_ = QuandrelIPG::create(environment, config);
    ASSERT_NE(client_, nullptr);
    const std::optional<URLRequest> request = standard(1);
    ASSERT_TRUE(request.has_value());
    const std::vector<std::string> slots = openBody(*request);
    ASSERT_EQ(slots.size(), 20u);
    EXPECT_EQ(slots[9], address);
    EXPECT_EQ(
        environment == 1 ? controller->testFinalPageURL() : controller->productionFinalPageURL(),
        address);
  }
}

TEST_F(PaymentTest, PaymentPageRequestByType) {
  const std::pair<std::uint64_t, Text> rows[] = {{0, std::string(kBase) + "doMEPayRequest"},
                                                 {1, std::string(kBase) + "doMEPayRequestCard"},
                                                 {2, std::nullopt},
                                                 {kMax, std::nullopt}};
  const std::string reqMsg = "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80";  // 1+2, 3 and 4 bytes
  const std::string body = "merchantRequest=" + reqMsg + "&MID=M1&iosEnc=true";
  for (const auto& [type, url] : rows) {
    SCOPED_TRACE(type);
    const URLRequest request = client_->getURLRequestforTransaction(reqMsg, "M1", type);
    EXPECT_EQ(request.url, url);
    EXPECT_EQ(request.httpMethod, "POST");
    EXPECT_EQ(request.bodyText(), body);
    EXPECT_EQ(request.allHTTPHeaderFields,
              (std::vector<std::pair<std::string, std::string>>{{"Content-Length", "49"}}));
    EXPECT_EQ(body.size(), 49u);  // UTF-8 bytes, not characters (44)
  }
  // Absent texts stand as empty ones.
  EXPECT_EQ(client_->getURLRequestforTransaction(std::nullopt, std::nullopt, 0).bodyText(),
            "merchantRequest=&MID=&iosEnc=true");
}

}  // namespace
}  // namespace qipg_test
