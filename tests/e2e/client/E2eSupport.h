// Shared pieces of the end-to-end tests: a sandbox gateway started in-process on an ephemeral
// port in the test's private directory (which also holds the defaults file and the bundle
// directory), a client configured for it, a payment made the way a browser makes it, and a
// delegate that hands its records to the waiting test.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <random>
#include <thread>

#include "Sandbox.h"
#include "qipg/CommonUtilities.h"
#include "unit/client/ClientSupport.h"
#include "unit/sandbox/SandboxTestSupport.h"

namespace qipg_e2e {

inline const std::string kMID = qipg::sandbox::kTestMerchantId;
inline const std::string kKey = qipg::sandbox::kTestMerchantKey;

// Collects the records and input errors of management calls, from any thread.
class Answers {
 public:
  std::shared_ptr<qipg::IPGResponseDelegate> delegate() {
    return qipg::makeResponseDelegate(
        [this](const qipg::PaymentResponse& response) {
          // Notified under the lock: the waiter may destroy this object as soon as it wakes.
          std::lock_guard lock(mutex_);
          responses_.push_back(response);
          changed_.notify_all();
        },
        [this](const std::string& message) {
          std::lock_guard lock(mutex_);
          inputErrors_.push_back(message);
        });
  }
  // Waits until `count` records have arrived, two minutes at the most (a call that never ends
  // fails the test instead of hanging it); returns them, padded with empty records.
  std::vector<qipg::PaymentResponse> waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, std::chrono::minutes(2),
                           [&] { return responses_.size() >= count; })) {
      ADD_FAILURE() << "only " << responses_.size() << " of " << count << " answers came";
    }
    std::vector<qipg::PaymentResponse> got = responses_;
    got.resize(std::max(got.size(), count));
    return got;
  }
  std::size_t responseCount() {
    std::lock_guard lock(mutex_);
    return responses_.size();
  }
  std::vector<std::string> inputErrors() {
    std::lock_guard lock(mutex_);
    return inputErrors_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<qipg::PaymentResponse> responses_;
  std::vector<std::string> inputErrors_;
};

// Secrets a test can search for afterwards: nothing else holds them by chance.
inline std::string randomDigits(std::mt19937_64& random, std::size_t count) {
  std::string digits;
  for (std::size_t i = 0; i < count; ++i) digits += static_cast<char>('0' + random() % 10);
  return digits;
}

// A card number that passes the Luhn check.
inline std::string randomCardNumber(std::mt19937_64& random) {
  std::string number = "4" + randomDigits(random, 14);
  int sum = 0;
  for (std::size_t i = 0; i < number.size(); ++i) {
    int digit = number[number.size() - 1 - i] - '0';
    if (i % 2 == 0) digit = digit * 2 > 9 ? digit * 2 - 9 : digit * 2;
    sum += digit;
  }
  return number + static_cast<char>('0' + (10 - sum % 10) % 10);
}

inline std::string randomKey(std::mt19937_64& random) {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  std::string key;
  for (int i = 0; i < 32; ++i) key += kAlphabet[random() % 62];
  return key;
}

// The record of an answer that could not be used.
inline qipg::PaymentResponse failedRecord() {
  qipg::PaymentResponse response;
  response.setStatusCode(std::string("F"));
  return response;
}

class SandboxTest : public qipg_test::ClientTest {
 protected:
  void SetUp() override {
    ClientTest::SetUp();
    qipg::sandbox::Options options;
    options.dataDir = (dir() / "sandbox").string();
    options.log = [this](const std::string& line) {
      for (const char* path : {"getTransactionStatus", "doCancelRequest", "doRefundRequest"}) {
        if (line.find(path) != std::string::npos) ++managementRequests_;
      }
    };
    std::string error;
    sandbox_ = qipg::sandbox::Sandbox::start(options, &error);
    ASSERT_NE(sandbox_, nullptr) << error;
  }
  void TearDown() override {
    sandbox_.reset();
    ClientTest::TearDown();
  }

  qipg::GatewayConfig config() const {
    qipg::GatewayConfig config;
    config.testBaseURL = sandbox_->baseURL();
    config.caFile = sandbox_->caFile();
    return config;
  }
  std::shared_ptr<qipg::QuandrelIPG> client(const qipg::GatewayConfig& gateway) const {
    auto created = qipg::QuandrelIPG::create(qipg::IPGEnvironmentTest, gateway);
    EXPECT_NE(created, nullptr);
    return created;
  }
  std::shared_ptr<qipg::QuandrelIPG> client() const { return client(config()); }

  // Pays `orderID` with an approved test card through the sandbox's pages, as a browser
  // would, and returns the result from the final page's hidden element. transactionType 0
  // only authorises, 1 also captures.
  qipg::PaymentResponse pay(const std::string& orderID, const std::string& amount,
                            std::uint64_t transactionType) {
    namespace web = qipg::sandbox::testing;
    std::optional<qipg::URLRequest> request =
        client()->getStandardPaymentRequest(orderID, amount, "INR", "e2e", transactionType, "", "",
                                            "", "", "", "", "", "", "", "", kMID, kKey, nullptr);
    if (!request) return {};
    const web::HttpAnswer form = web::postTo(*sandbox_, "doMEPayRequest", request->bodyText());
    const web::HttpAnswer finalPage =
        web::postTo(*sandbox_, "paymentInvoice",
                    "token=" + web::tokenIn(form.body) +
                        "&cardNumber=4111111111111111&expiry=1230&cvv=123&holder=Jane+Doe");
    return qipg::CommonUtilities().getPaymentResponseFromString(web::resultIn(finalPage.body));
  }

  qipg::sandbox::Sandbox& sandbox() { return *sandbox_; }
  // The management requests the sandbox has logged, once `expected` of them are or after 3 s:
  // it logs a request just after answering it, so the caller may have its answer first.
  int managementRequests(int expected) const {
    for (int i = 0; i < 300 && managementRequests_.load() < expected; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return managementRequests_.load();
  }

 private:
  std::unique_ptr<qipg::sandbox::Sandbox> sandbox_;
  std::atomic<int> managementRequests_{0};
};

}  // namespace qipg_e2e
