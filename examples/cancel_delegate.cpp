// Cancels an authorised, not yet captured transaction, with a delegate class.
//
//   export QIPG_TEST_BASE_URL=https://127.0.0.1:PORT/ipg/   # the sandbox's base URL
//   export QIPG_CA_FILE=.../ca.pem                          # the sandbox's CA file
//   export QIPG_KEY=...                                     # the merchant key, never on argv
//   cancel_delegate ORDER_ID TRANSACTION_REF
//
// Prints the gateway's record and exits 0 when the cancellation was accepted ("S").
// Before trusting the outcome of a cancellation that timed out or failed, ask for the
// transaction's status: the gateway may have cancelled it anyway.
#include <qipg/qipg.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>

namespace {

constexpr const char* kMerchantID = "QIPGTEST0001";  // the sandbox's test merchant

// Receives the one answer of a cancel call: the record on the client's transport thread, or
// an input error on the caller's thread before cancelTransaction returns.
class CancelDelegate : public qipg::IPGResponseDelegate {
 public:
  void didReceivePaymentResponse(const qipg::PaymentResponse& response) override {
    answer_.set_value(response);
  }
  void didReceiveInputError(const std::string& message) override {
    std::fprintf(stderr, "input error: %s\n", message.c_str());
    answer_.set_value(std::nullopt);
  }
  void requestFailedError(const std::string&) override {}  // payments only

  std::optional<qipg::PaymentResponse> wait() { return answer_.get_future().get(); }

 private:
  std::promise<std::optional<qipg::PaymentResponse>> answer_;
};

void print(const char* name, const qipg::Text& value) {
  std::printf("%s: %s\n", name, value.value_or("(absent)").c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s ORDER_ID TRANSACTION_REF   (key in QIPG_KEY)\n", argv[0]);
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

  auto delegate = std::make_shared<CancelDelegate>();
  client->cancelTransaction(argv[1], argv[2], kMerchantID, key, delegate);
  const std::optional<qipg::PaymentResponse> response = delegate->wait();
  // Stop the client's transport thread here, on this thread, before the program ends.
  client->shutdown();
  if (!response) return 1;

  print("statusCode", response->statusCode());
  print("statusDescription", response->statusDescription());
  print("orderID", response->orderID());
  print("pgRefCancelReqID", response->pgRefCancelReqID());
  return response->statusCode() == "S" ? 0 : 1;
}
