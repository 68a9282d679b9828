// The smallest standard payment: ask the client for the payment page request and show where
// it goes. A real application hands the request to a WebviewController instead of printing.
//
//   QIPG_TEST_BASE_URL=https://127.0.0.1:8443/ipg/ ./example_standard_payment
#include <qipg/qipg.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

// Tells what went wrong when the library refuses the payment.
class PrintingDelegate : public qipg::IPGResponseDelegate {
 public:
  void didReceivePaymentResponse(const qipg::PaymentResponse&) override {}
  void didReceiveInputError(const std::string& message) override { print(message); }
  void requestFailedError(const std::string& message) override { print(message); }

 private:
  static void print(const std::string& message) {
    std::fprintf(stderr, "payment refused: %s\n", message.c_str());
  }
};

}  // namespace

int main() {
  // The test gateway; its address comes from QIPG_TEST_BASE_URL when that is set.
  std::shared_ptr<qipg::QuandrelIPG> client = qipg::QuandrelIPG::create();
  if (!client) {
    const qipg::Text problem = qipg::GatewayConfig::fromEnvironment().problem();
    std::fprintf(stderr, "cannot create the client: %s\n",
                 problem.value_or("the HTTP transport did not start").c_str());
    return 1;
  }

  auto delegate = std::make_shared<PrintingDelegate>();
  // MID and key as the gateway gave them to the merchant (or from Info.plist when both are
  // left empty).
  const std::optional<qipg::URLRequest> request = client->getStandardPaymentRequest(
      "ORDER1001", "10.50", "INR", "Two books", /*transactionType=*/1, "", "", "", "", "", "", "",
      "", "", "", "MERCHANT01", "MerchantKey01", delegate);
  if (!request) return 1;

  std::printf("%s %s\nbody: %zu bytes\n", request->httpMethod.c_str(),
              request->url.value_or("(no URL)").c_str(), request->httpBody.size());
  return 0;
}
