// A standard payment in the payment window: the customer types the card on the gateway's
// own page. Afterwards the result is confirmed with a status inquiry, because what comes back
// through the customer's window alone must never be trusted.
//
//   export QIPG_TEST_BASE_URL=https://127.0.0.1:PORT/ipg/   # the sandbox's base URL
//   export QIPG_CA_FILE=.../ca.pem                          # the sandbox's CA file
//   export QIPG_KEY=...                                     # the merchant key, never on argv
//   standard_payment_window ORDER_ID AMOUNT
//
// Needs a display (or Xvfb). Exits 0 when the gateway confirms the payment ("S").
#include <qipg/PaymentWindow.h>
#include <qipg/qipg.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>

namespace {

constexpr const char* kMerchantID = "QIPGTEST0001";  // the sandbox's test merchant

// Asks the gateway itself what became of the order; the only answer to act on.
std::optional<qipg::PaymentResponse> confirm(qipg::QuandrelIPG& client, const std::string& order,
                                             const qipg::Text& reference, const char* key) {
  auto answer = std::make_shared<std::promise<std::optional<qipg::PaymentResponse>>>();
  std::future<std::optional<qipg::PaymentResponse>> future = answer->get_future();
  client.getTransactionStatus(
      order, reference.value_or(""), kMerchantID, key,
      qipg::makeResponseDelegate(
          [answer](const qipg::PaymentResponse& response) { answer->set_value(response); },
          [answer](const std::string& message) {
            std::fprintf(stderr, "input error: %s\n", message.c_str());
            answer->set_value(std::nullopt);
          }));
  return future.get();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s ORDER_ID AMOUNT   (key in QIPG_KEY)\n", argv[0]);
    return 2;
  }
  const char* key = std::getenv("QIPG_KEY");
  if (key == nullptr || *key == '\0') {
    std::fprintf(stderr, "set QIPG_KEY to the merchant key\n");
    return 2;
  }
  const std::shared_ptr<qipg::QuandrelIPG> client = qipg::QuandrelIPG::create();
  if (!client) {
    std::fprintf(stderr, "cannot create the client: %s\n",
                 qipg::GatewayConfig::fromEnvironment().problem().value_or("transport").c_str());
    return 1;
  }

  // A refused payment is told to the delegate synchronously, and no request comes back.
  auto refused = qipg::makeResponseDelegate({}, {}, [](const std::string& message) {
    std::fprintf(stderr, "payment refused: %s\n", message.c_str());
  });
  const std::optional<qipg::URLRequest> request = client->getStandardPaymentRequest(
      argv[1], argv[2], "INR", "Example order", /*transactionType=*/1 /* sale */, "", "", "", "",
      "", "", "", "", "", "", kMerchantID, key, refused);
  if (!request) return 1;

  qipg::PaymentWindowOptions options;
  options.gateway = client->config();
  options.title = "Pay " + std::string(argv[2]) + " INR";
  // The sandbox's own CA, trusted for the request's host only (empty: the system's store).
  options.trustedCAFile = options.gateway.caFile;
  std::string error;
  const std::optional<qipg::PaymentOutcome> outcome =
      qipg::runPaymentWindow(*request, options, &error);
  if (!outcome) {
    std::fprintf(stderr, "no payment window: %s\n", error.c_str());
    return 1;
  }
  if (outcome->cancelled) {
    std::printf("cancelled by the customer\n");
    return 1;
  }
  std::printf("window says: %s (%s)\n", outcome->response.statusCode().value_or("?").c_str(),
              outcome->response.statusDescription().value_or("").c_str());

  const std::optional<qipg::PaymentResponse> confirmed =
      confirm(*client, argv[1], outcome->response.transactionReferenceNo(), key);
  // Stop the client's transport thread here, on this thread, before the program ends.
  client->shutdown();
  if (!confirmed) return 1;
  std::printf("gateway says: %s (%s), reference %s\n",
              confirmed->statusCode().value_or("?").c_str(),
              confirmed->statusDescription().value_or("").c_str(),
              confirmed->transactionReferenceNo().value_or("-").c_str());
  return confirmed->statusCode() == "S" ? 0 : 1;
}
