// Asks the gateway for the state of a payment, with qipg::Client and a future.
//
//   export QIPG_TEST_BASE_URL=https://127.0.0.1:8443/ipg/ QIPG_CA_FILE=ca.pem
//   export QIPG_KEY=...        # the merchant key: from the environment, never the command line
//   ./example_status ORDER1 4100
#include <qipg/Client.h>

#include <cstdio>
#include <cstdlib>
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
  options.merchantID = "QIPGTEST0001";  // the sandbox's test merchant
  options.encryptionKey = key;
  qipg::Result<std::shared_ptr<qipg::Client>> made = qipg::Client::create(std::move(options));
  if (!made) {
    std::fprintf(stderr, "cannot create the client: %s\n", made.error().message.c_str());
    return 1;
  }

  qipg::Result<qipg::PaymentResponse> answer =
      made.value()->status({.orderID = argv[1], .transactionRefNumber = argv[2]}).get();
  if (!answer) {
    const qipg::Error& error = answer.error();
    std::fprintf(stderr, "%s error: %s\n", std::string(qipg::errorKindName(error.kind)).c_str(),
                 error.message.c_str());
    return 1;
  }
  // A readable answer: "F" here is the gateway's verdict (an unknown order, say), not an error.
  const qipg::PaymentResponse& record = answer.value();
  std::printf("order %s, reference %s\nstatus %s: %s\namount %s, refunded %s\n",
              record.orderID().value_or("-").c_str(),
              record.transactionReferenceNo().value_or("-").c_str(),
              record.statusCode().value_or("-").c_str(),
              record.statusDescription().value_or("-").c_str(),
              record.amount().value_or("-").c_str(), record.refundAmount().value_or("-").c_str());
  return 0;
}
