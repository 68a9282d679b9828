// Cancels a pre-authorisation with qipg::Client, giving up after 20 seconds with a
// std::stop_token: a cancel whose answer never came may still have been applied, so the program
// says to check the status before trying again.
//
//   export QIPG_TEST_BASE_URL=https://127.0.0.1:8443/ipg/ QIPG_CA_FILE=ca.pem QIPG_KEY=...
//   ./example_cancel ORDER1 4100
#include <qipg/Client.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <stop_token>
#include <string>
#include <utility>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s ORDER_ID REFERENCE_NUMBER  (key in QIPG_KEY)\n", argv[0]);
    return 2;
  }
  const char* key = std::getenv("QIPG_KEY");
  if (key == nullptr || *key == '\0') {
    std::fprintf(stderr, "set QIPG_KEY to the merchant key\n");
    return 2;
  }

  qipg::ClientOptions options;
  options.gateway = qipg::GatewayConfig::fromEnvironment();
  options.merchantID = "QIPGTEST0001";
  options.encryptionKey = key;
  auto made = qipg::Client::create(std::move(options));
  if (!made) {
    std::fprintf(stderr, "cannot create the client: %s\n", made.error().message.c_str());
    return 1;
  }

  std::stop_source giveUp;
  std::future<qipg::Result<qipg::PaymentResponse>> pending =
      made.value()->cancel({.orderID = argv[1], .transactionRefNumber = argv[2]},
                           giveUp.get_token());
  if (pending.wait_for(std::chrono::seconds(20)) == std::future_status::timeout) {
    giveUp.request_stop();  // closes the connection; the future then holds a Cancelled error
  }
  qipg::Result<qipg::PaymentResponse> answer = pending.get();
  if (!answer) {
    const qipg::Error& error = answer.error();
    std::fprintf(stderr, "%s error: %s\n", std::string(qipg::errorKindName(error.kind)).c_str(),
                 error.message.c_str());
    return error.outcomeUnknown ? 3 : 1;
  }
  const qipg::PaymentResponse& record = answer.value();
  std::printf("cancel of order %s: %s (%s)\n", record.orderID().value_or("-").c_str(),
              record.statusCode().value_or("-").c_str(),
              record.statusDescription().value_or("-").c_str());
  return record.statusCode() == "S" ? 0 : 1;
}
