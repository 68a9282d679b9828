// Status, cancel and refund against the sandbox gateway: real transactions made through its
// payment pages, and answers that cannot be used.
#include <chrono>
#include <functional>
#include <thread>

#include "e2e/client/E2eSupport.h"

namespace qipg_e2e {
namespace {

using qipg::PaymentResponse;
using qipg::QuandrelIPG;
using qipg::Text;
using Call = std::function<void(QuandrelIPG&, const std::shared_ptr<qipg::IPGResponseDelegate>&)>;

// Makes one call and returns the single record it delivered.
PaymentResponse answerOf(QuandrelIPG& client, const Call& call) {
  Answers answers;
  call(client, answers.delegate());
  return answers.waitFor(1).front();
}

Call status(const std::string& order, const Text& ref) {
  return [=](QuandrelIPG& c, const auto& d) { c.getTransactionStatus(order, ref, kMID, kKey, d); };
}
Call cancel(const std::string& order, const Text& ref) {
  return [=](QuandrelIPG& c, const auto& d) { c.cancelTransaction(order, ref, kMID, kKey, d); };
}
Call refund(const std::string& order, const Text& ref, const std::string& amount) {
  return [=](QuandrelIPG& c, const auto& d) {
    c.refundTransaction(order, ref, amount, kMID, kKey, d);
  };
}

class ManagementTest : public SandboxTest {};

// The gateway's rules themselves are the sandbox's tests; these are the records as read.
TEST_F(ManagementTest, StatusRefundAndCancelOfRealTransactions) {
  const PaymentResponse sale = pay("SALE1", "10.50", 1);
  const PaymentResponse authorisation = pay("AUTH1", "20", 0);
  ASSERT_EQ(sale.statusCode(), Text("S"));
  ASSERT_EQ(authorisation.statusCode(), Text("S"));
  const Text saleRef = sale.transactionReferenceNo();
  auto ipg = client();

  PaymentResponse record = answerOf(*ipg, status("SALE1", saleRef));
  EXPECT_EQ(record.statusDescription(), Text("Captured"));
  EXPECT_EQ(record.orderID(), Text("SALE1"));
  EXPECT_EQ(record.transactionReferenceNo(), saleRef);
  record = answerOf(*ipg, refund("SALE1", saleRef, "3.00"));
  EXPECT_EQ(record.statusCode(), Text("S")) << record.statusDescription().value_or("");
  EXPECT_EQ(record.rrn(), Text(""));  // cancel and refund records carry none
  EXPECT_EQ(answerOf(*ipg, status("SALE1", saleRef)).statusDescription(),
            Text("Partially refunded: 3.00 of 10.50 INR"));
  EXPECT_EQ(answerOf(*ipg, cancel("AUTH1", authorisation.transactionReferenceNo())).statusCode(),
            Text("S"));
}

TEST_F(ManagementTest, InputErrorsAreToldDuringTheCallAndNothingIsPosted) {
  auto ipg = client();
  Answers answers;
  ipg->getTransactionStatus("", "1", kMID, kKey, answers.delegate());
  ipg->cancelTransaction("ORDER1", "12x", kMID, kKey, answers.delegate());
  ipg->refundTransaction("ORDER1", "1", "1.00", kMID, "tooShort", answers.delegate());
  ipg->getTransactionStatus("", "1", kMID, kKey, nullptr);  // told nothing, nothing breaks
  EXPECT_EQ(
      answers.inputErrors(),
      (std::vector<std::string>{"Invalid Order ID", "Invalid Transaction Reference Number Input",
                                "Invalid length for Encryption Key"}));
  // One call that does go out: the gateway sees that one only.
  answerOf(*ipg, status("ORDER1", ""));
  ipg.reset();
  EXPECT_EQ(answers.responseCount(), 0u);
  EXPECT_EQ(managementRequests(1), 1);
}

TEST_F(ManagementTest, PropertyListCredentialsButTheCallersEmptyKeySeals) {
  writeFile(bundle() / "Info.plist",
            "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>merchantID</key><string>" +
                kMID + "</string><key>encryptionKey</key><string>" + kKey +
                "</string></dict></plist>");
  auto ipg = client();
  // Validated with the list's values, sealed and opened with "": the gateway cannot open it.
  EXPECT_EQ(answerOf(*ipg, [](QuandrelIPG& c,
                              const auto& d) { c.getTransactionStatus("ORDER1", "", "", "", d); }),
            failedRecord());
  EXPECT_EQ(managementRequests(1), 1);
}

TEST_F(ManagementTest, UnusableAnswersGiveOneFailedRecord) {
  using qipg::sandbox::Endpoint;
  using qipg::sandbox::Fault;
  struct Row {
    const char* name;
    Fault fault;
    std::function<void(qipg::GatewayConfig&)> configure;
    bool shutDownClient;  // shut the client down with the call under way instead of waiting
  };
  const std::vector<Row> rows = {
      {"HTTP 500 page", Fault::kHttp500, {}, false},
      {"garbage", Fault::kGarbage, {}, false},
      {"not UTF-8", Fault::kNotUtf8, {}, false},
      {"never answers: time-out", Fault::kHang, [](auto& c) { c.requestTimeoutMs = 300; }, false},
      {"never answers: shutdown", Fault::kHang, {}, true},
      {"CA not trusted", Fault::kNone, [](auto& c) { c.caFile.clear(); }, false},
      {"pinned key differs", Fault::kNone,
       [](auto& c) { c.pinnedPublicKey = "sha256//" + std::string(43, 'A') + "="; }, false},
      {"gateway down", Fault::kNone, [](auto& c) { c.connectTimeoutMs = 2000; }, false},
  };
  const std::vector<std::pair<Endpoint, Call>> calls = {
      {Endpoint::kStatus, status("ORDER1", "")},
      {Endpoint::kCancel, cancel("ORDER1", "1")},
      {Endpoint::kRefund, refund("O1", "1", "1")}};
  for (const Row& row : rows) {
    if (std::string(row.name) == "gateway down") sandbox().stop();
    qipg::GatewayConfig gateway = config();
    if (row.configure) row.configure(gateway);
    for (const auto& [endpoint, call] : calls) {
      SCOPED_TRACE(std::string(row.name) + ", endpoint " + std::to_string(int(endpoint)));
      auto ipg = client(gateway);
      sandbox().setFault(endpoint, row.fault);
      Answers answers;
      call(*ipg, answers.delegate());
      for (int i = 0; row.shutDownClient && i < 5000 && sandbox().heldRequests() == 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
      if (row.shutDownClient) ipg->shutdown();
      EXPECT_EQ(answers.waitFor(1).front(), failedRecord());
      ipg.reset();
      EXPECT_EQ(answers.responseCount(), 1u);
      sandbox().clearFaults();
    }
  }
}

TEST_F(ManagementTest, ClientReleasedWhileItsCallIsUnderWay) {
  Answers answers;
  client()->getTransactionStatus("NOSUCHORDER", "", kMID, kKey, answers.delegate());
  // The call keeps the client alive; it is released on the transport thread after answering.
  EXPECT_EQ(answers.waitFor(1).front().statusDescription(), Text("Transaction not found"));
}

}  // namespace
}  // namespace qipg_e2e
