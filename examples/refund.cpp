// Refunds part of a captured payment with qipg::Client and a callback. The callback runs on a
// library thread; this program just hands the result back to main.
//
//   export QIPG_TEST_BASE_URL=https://127.0.0.1:4431/ipg/ QIPG_CA_FILE=ca.pem QIPG_KEY=...
//   ./example_refund ORDER1 4100 5.00
#include <qipg/Client.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <utility>

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s ORDER_ID REFERENCE_NUMBER AMOUNT  (key in QIPG_KEY)\n",
                 argv[0]);
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

  std::promise<int> exitCode;
  made.value()->refund(
      {.orderID = argv[1], .transactionRefNumber = argv[2], .amount = argv[3]},
      [&exitCode](const qipg::Result<qipg::PaymentResponse>& answer) {
        if (!answer) {
          // Refunds carry no idempotency key: when outcomeUnknown is set, retrying blindly
          // may refund twice. The message says to confirm with a status inquiry first.
          const qipg::Error& error = answer.error();
          std::fprintf(stderr, "%s error: %s\n",
                       std::string(qipg::errorKindName(error.kind)).c_str(),
                       error.message.c_str());
          return exitCode.set_value(error.outcomeUnknown ? 3 : 1);
        }
        const qipg::PaymentResponse& record = answer.value();
        std::printf("refund of order %s: %s (%s), refunded %s\n",
                    record.orderID().value_or("-").c_str(),
                    record.statusCode().value_or("-").c_str(),
                    record.statusDescription().value_or("-").c_str(),
                    record.refundAmount().value_or("-").c_str());
        exitCode.set_value(record.statusCode() == "S" ? 0 : 1);
      });
  return exitCode.get_future().get();
}
