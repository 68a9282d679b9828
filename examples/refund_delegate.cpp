// Refunds part or all of a captured transaction, with a delegate made of lambdas
// (qipg::makeResponseDelegate).
//
//   export QIPG_TEST_BASE_URL=https://127.0.0.1:PORT/ipg/   # the sandbox's base URL
//   export QIPG_CA_FILE=.../ca.pem                          # the sandbox's CA file
//   export QIPG_KEY=...                                     # the merchant key, never on argv
//   refund_delegate ORDER_ID TRANSACTION_REF AMOUNT
//
// Prints the gateway's record and exits 0 when the refund was accepted ("S").
#include <qipg/qipg.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>

namespace {

constexpr const char* kMerchantID = "QIPGTEST0001";  // the sandbox's test merchant

void print(const char* name, const qipg::Text& value) {
  std::printf("%s: %s\n", name, value.value_or("(absent)").c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s ORDER_ID TRANSACTION_REF AMOUNT   (key in QIPG_KEY)\n",
                 argv[0]);
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

  // Exactly one of the two lambdas runs: the record on the client's transport thread, or the
  // input error on this thread before refundTransaction returns. The promise is shared, so it
  // lives as long as the delegate does.
  auto answer = std::make_shared<std::promise<std::optional<qipg::PaymentResponse>>>();
  std::future<std::optional<qipg::PaymentResponse>> future = answer->get_future();
  auto delegate = qipg::makeResponseDelegate(
      [answer](const qipg::PaymentResponse& response) { answer->set_value(response); },
      [answer](const std::string& message) {
        std::fprintf(stderr, "input error: %s\n", message.c_str());
        answer->set_value(std::nullopt);
      });
  client->refundTransaction(argv[1], argv[2], argv[3], kMerchantID, key, delegate);
  const std::optional<qipg::PaymentResponse> response = future.get();
  // Stop the client's transport thread here, on this thread, before the program ends.
  client->shutdown();
  if (!response) return 1;

  print("statusCode", response->statusCode());
  print("statusDescription", response->statusDescription());
  print("orderID", response->orderID());
  print("refundAmount", response->refundAmount());
  return response->statusCode() == "S" ? 0 : 1;
}
