// Shared helpers of the sandbox tests: a temporary data directory, a sandbox on an ephemeral
// port, an HTTPS client that verifies the sandbox's CA, and the client library's envelope.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>
#include <qipg/CommonUtilities.h>
#include <qipg/Cryptography.h>
#include <qipg/PaymentResponse.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <regex>
#include <string>

#include "Sandbox.h"
#include "TestSupport.h"

namespace qipg::sandbox::testing {

inline const std::string kMid = kTestMerchantId;
inline const std::string kKey = kTestMerchantKey;
inline constexpr char kTestIVText[] = "4e9a1c07b3d58f26";

using qipg_test::TempDir;

// Points the client library's IV store at a private file and stores the test IV, once.
inline void useTestIV() {
  static TempDir defaults;
  ::setenv("QIPG_DEFAULTS_FILE", (defaults.path() + "/defaults.sqlite3").c_str(), 1);
  CommonUtilities::SetRandomIV(std::string(kTestIVText), std::string("randomIV"));
}

struct HttpAnswer {
  int status = 0;  // 0: no answer
  std::string body;
};

// Posts `body` to one of the sandbox's endpoints over HTTPS, trusting its CA only.
inline HttpAnswer postTo(const Sandbox& sandbox, const std::string& endpoint,
                         const std::string& body,
                         const std::string& contentType = "application/x-www-form-urlencoded") {
  httplib::SSLClient client("127.0.0.1", sandbox.port());
  client.set_ca_cert_path(sandbox.caFile().c_str());
  client.enable_server_certificate_verification(true);
  client.set_connection_timeout(20, 0);
  client.set_read_timeout(60, 0);
  auto res = client.Post(("/ipg/" + endpoint).c_str(), body, contentType.c_str());
  if (!res) return {};
  return {res->status, res->body};
}

// The session token of a card form; "" when the page has none.
inline std::string tokenIn(const std::string& html) {
  std::smatch m;
  static const std::regex token("name=\"token\" value=\"([0-9a-f]+)\"");
  return std::regex_search(html, m, token) ? m[1].str() : std::string();
}

// The hidden result element's content, read the way the payment page controller reads it.
inline Text resultIn(const std::string& html) {
  const std::string marker = "<div id=\"responseString\" style=\"display: none;\">";
  const std::size_t start = html.find(marker);
  if (start == std::string::npos) return std::nullopt;
  const std::size_t end = html.find("</div>", start);
  if (end == std::string::npos) return std::nullopt;
  return html.substr(start + marker.size(), end - start - marker.size());
}

// A sandbox in its own data directory, with an HTTPS client for it.
class SandboxFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    useTestIV();
    restart();
  }

  void restart(Options options = {}) {
    sandbox_.reset();
    options.dataDir = dir_.path() + "/data";
    std::string error;
    sandbox_ = Sandbox::start(std::move(options), &error);
    ASSERT_NE(sandbox_, nullptr) << error;
  }

  HttpAnswer post(const std::string& endpoint, const std::string& body,
                  const std::string& contentType = "application/x-www-form-urlencoded") {
    return postTo(*sandbox_, endpoint, body, contentType);
  }

  // The management form as the client library builds it.
  static std::string managementBody(const std::string& envelope, const std::string& midKey,
                                    const std::string& mid = kMid) {
    return "merchantReqStrT=" + envelope + "&" + midKey + "=" + mid + "&iosEnc=true";
  }

  PaymentResponse status(const std::string& orderId, const std::string& ref = "") {
    const std::string message = kMid + "|" + orderId + "|" + ref + "|||||||||||";
    const auto answer =
        post("getTransactionStatus", managementBody(encryptTextWithEncKey(message, kKey), "mid"));
    return CommonUtilities().getResponseFromString(decryptTextWithDecryptionKey(answer.body, kKey));
  }

  PaymentResponse cancelOrRefund(const std::string& endpoint, const std::string& orderId,
                                 const std::string& ref, const std::string& amount) {
    const std::string message = kMid + "|" + orderId + "|" + ref + "|" +
                                (amount.empty() ? "-" : amount) + "|-|-|-|-|-|-|-|-|-|-";
    const auto answer = post(endpoint, managementBody(encryptTextWithEncKey(message, kKey), "MID"));
    return CommonUtilities().getCancelOrRefundPaymentResponse(
        decryptTextWithDecryptionKey(answer.body, kKey));
  }

  std::string responseUrl() const { return sandbox_->baseURL() + "paymentInvoice"; }

  // A standard payment message (20 slots).
  std::string standardMessage(const std::string& orderId, const std::string& amount,
                              const std::string& type = "S") const {
    return kMid + "|" + orderId + "|" + amount + "|INR|-|" + type + "|-|-|-|" + responseUrl() +
           "|add1|-|-|-|-|-|-|-|-|add10";
  }

  // Opens the card form of a standard payment; the session token, or "" when refused.
  std::string openCardForm(const std::string& orderId, const std::string& amount,
                           const std::string& type = "S") {
    const auto page = post(
        "doMEPayRequest",
        "merchantRequest=" + encryptTextWithEncKey(standardMessage(orderId, amount, type), kKey) +
            "&MID=" + kMid + "&iosEnc=true");
    return tokenIn(page.body);
  }

  // Pays a standard payment with a card; the page's result.
  PaymentResponse payWithCard(const std::string& orderId, const std::string& amount,
                              const std::string& type, const std::string& cardNumber,
                              const std::string& expiry = "1249", const std::string& cvv = "123") {
    const std::string token = openCardForm(orderId, amount, type);
    EXPECT_FALSE(token.empty());
    const auto page =
        post("paymentInvoice", "token=" + token + "&cardNumber=" + cardNumber +
                                   "&expiry=" + expiry + "&cvv=" + cvv + "&holder=Jane+Doe");
    EXPECT_EQ(page.status, 200);
    return CommonUtilities().getPaymentResponseFromString(resultIn(page.body));
  }

  TempDir dir_;
  std::unique_ptr<Sandbox> sandbox_;
};

}  // namespace qipg::sandbox::testing
