// The Qt window posts the payment page request itself: the server receives the library's
// body byte for byte, with no page in between.
#include <gtest/gtest.h>

#include "Sandbox.h"
#include "Toolkit.h"
#include "qipg/QuandrelIPG.h"
#include "unit/client/CaptureServer.h"

namespace qipg {
namespace {

TEST(QtNativePost, TheGatewayReceivesTheRequestsBodyByteForByte) {
  qipg_test::CaptureServer server(qipg_test::CaptureServer::answer("<html><body>form</body></html>"));
  GatewayConfig config;
  config.testBaseURL = "http://127.0.0.1:" + std::to_string(server.port()) + "/ipg/";
  auto client = QuandrelIPG::create(IPGEnvironmentTest, config);
  ASSERT_NE(client, nullptr);
  auto request = client->getStandardPaymentRequest(
      "QTPOST1", "10.50", "INR", "Books", 1, "", "", "", "", "", "", "", "", "", "",
      sandbox::kTestMerchantId, sandbox::kTestMerchantKey, nullptr);
  ASSERT_TRUE(request.has_value());

  bool loaded = false;
  PaymentWindowOptions options;
  options.client = client;
  options.onPageLoad = [&](PageLoadEvent event, const std::string&) {
    loaded |= event == PageLoadEvent::Finished;
  };
  std::string error;
  auto window = toolkit::present(*request, makePaymentControllerDelegate(nullptr), options, &error);
  ASSERT_NE(window, nullptr) << error;
  ASSERT_TRUE(toolkit::spinUntil([&] { return loaded; }));

  const std::vector<std::string> received = server.requests(1);
  ASSERT_EQ(received.size(), 1u) << "a page came in between";
  const std::string& wire = received[0];
  const std::size_t head = wire.find("\r\n\r\n");
  ASSERT_NE(head, std::string::npos);
  EXPECT_EQ(wire.substr(0, wire.find("\r\n")), "POST /ipg/doMEPayRequest HTTP/1.1");
  EXPECT_NE(wire.find("\r\nContent-Type: application/x-www-form-urlencoded\r\n"), std::string::npos);
  EXPECT_EQ(wire.substr(head + 4), request->bodyText());
  window->pressCancel();
  ASSERT_TRUE(toolkit::spinUntil([&] { return !window->isOpen(); }));
}

}  // namespace
}  // namespace qipg
