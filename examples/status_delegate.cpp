// Asks the gateway for the status of a transaction, with a delegate class.
//
//   export QIPG_TEST_BASE_URL=https://127.0.0.1:PORT/ipg/   # the sandbox's base URL
//   export QIPG_CA_FILE=.../ca.pem                          # the sandbox's CA file
//   export QIPG_KEY=...                                     # the merchant key, never on argv
//   status_delegate ORDER_ID [TRANSACTION_REF]
//
// Prints the gateway's record and exits 0 when its status code is "S", 1 otherwise.
#include <qipg/qipg.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>

namespace {

constexpr const char* kMerchantID = "QIPGTEST0001";  // the sandbox's test merchant

// Receives the one answer of a status call. The record arrives on the client's transport
// thread, an input error on the caller's thread before getTransactionStatus returns; either
// way exactly one of them comes, so the promise is set once.
class StatusDelegate : public qipg::IPGResponseDelegate {
 public:
  void didReceivePaymentResponse(const qipg::PaymentResponse& response) override {
    answer_.set_value(response);
  }
  void didReceiveInputError(const std::string& message) override {
    std::fprintf(stderr, "input error: %s\n", message.c_str());
    answer_.set_value(std::nullopt);
  }
  void requestFailedError(const std::string& message) override {  // payments only
    std::fprintf(stderr, "request failed: %s\n", message.c_str());
  }

  std::optional<qipg::PaymentResponse> wait() { return answer_.get_future().get(); }

 private:
  std::promise<std::optional<qipg::PaymentResponse>> answer_;
};

void print(const char* name, const qipg::Text& value) {
  std::printf("%s: %s\n", name, value.value_or("(absent)").c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s ORDER_ID [TRANSACTION_REF]   (key in QIPG_KEY)\n", argv[0]);
    return 2;
  }
  const char* key = std::getenv("QIPG_KEY");
  if (key == nullptr || *key == '\0') {
    std::fprintf(stderr, "set QIPG_KEY to the merchant key\n");
    return 2;
  }
  // The test gateway, its base URL and CA file from QIPG_TEST_BASE_URL and QIPG_CA_FILE.
  const std::shared_ptr<qipg::QuandrelIPG> client = qipg::QuandrelIPG::create();
  if (!client) {
    std::fprintf(stderr, "cannot create the client: %s\n",
                 qipg::GatewayConfig::fromEnvironment().problem().value_or("transport").c_str());
    return 1;
  }

  auto delegate = std::make_shared<StatusDelegate>();
  client->getTransactionStatus(argv[1], argc == 3 ? argv[2] : "", kMerchantID, key, delegate);
  const std::optional<qipg::PaymentResponse> response = delegate->wait();
  // Stop the client's transport thread here, on this thread, before the program ends.
  client->shutdown();
  if (!response) return 1;

  print("statusCode", response->statusCode());
  print("statusDescription", response->statusDescription());
  print("orderID", response->orderID());
  print("transactionReferenceNo", response->transactionReferenceNo());
  print("amount", response->amount());
  print("captureStatus", response->captureStatus());
  return response->statusCode() == "S" ? 0 : 1;
}
