// First calls with qipg::Client: the status of a payment through a future, then a refund of
// part of it through a callback. Exits 0 when both answers came back, 1 on an error that
// certainly changed nothing, 5 when the refund may have taken effect without an answer.
//
//   . ./sandbox.env                      # QIPG_TEST_BASE_URL, QIPG_CA_FILE, QIPG_MID, QIPG_KEY
//   ./first_calls ORDER_ID REFERENCE_NUMBER REFUND_AMOUNT
#include <qipg/Client.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <utility>

namespace {

void printError(const char* what, const qipg::Error& error) {
  std::fprintf(stderr, "%s: %s error: %s\n", what,
               std::string(qipg::errorKindName(error.kind)).c_str(), error.message.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s ORDER_ID REFERENCE_NUMBER REFUND_AMOUNT\n", argv[0]);
    return 2;
  }
  // The sandbox's test key may live in the environment; a real key comes from the host's own
  // secret store or an owner-only file, never from the command line.
  const char* mid = std::getenv("QIPG_MID");
  const char* key = std::getenv("QIPG_KEY");
  if (key == nullptr || *key == '\0') {
    std::fprintf(stderr, "set QIPG_KEY to the merchant key\n");
    return 2;
  }

  qipg::ClientOptions options;  // gateway: QIPG_TEST_BASE_URL and QIPG_CA_FILE when set
  options.merchantID = mid != nullptr ? mid : "QIPGTEST0001";
  options.encryptionKey = key;
  qipg::Result<std::shared_ptr<qipg::Client>> made = qipg::Client::create(std::move(options));
  if (!made) {
    printError("client", made.error());  // always ErrorKind::Config
    return 1;
  }
  std::shared_ptr<qipg::Client> client = made.value();

  // A future: wait for the answer where it suits you.
  qipg::Result<qipg::PaymentResponse> status =
      client->status({.orderID = argv[1], .transactionRefNumber = argv[2]}).get();
  if (!status) {
    printError("status", status.error());
    return 1;
  }
  // Every field of a record is a qipg::Text: a text that may be absent.
  const qipg::PaymentResponse& record = status.value();
  std::printf("status of %s: %s (%s), amount %s\n", record.orderID().value_or("-").c_str(),
              record.statusCode().value_or("-").c_str(),
              record.statusDescription().value_or("-").c_str(),
              record.amount().value_or("-").c_str());

  // A callback: it runs on a thread of the client, so hand the result back to main.
  std::promise<int> exitCode;
  client->refund(
      {.orderID = argv[1], .transactionRefNumber = argv[2], .amount = argv[3]},
      [&exitCode](const qipg::Result<qipg::PaymentResponse>& refund) {
        if (!refund) {
          printError("refund", refund.error());
          // No usable answer, yet the gateway may have applied the refund: ask for the status
          // before trying again, or the customer may be refunded twice.
          return exitCode.set_value(refund.error().outcomeUnknown ? 5 : 1);
        }
        // "F" here is the gateway's verdict (above the captured amount, say), not an error.
        std::printf("refund: %s (%s), refunded %s\n",
                    refund.value().statusCode().value_or("-").c_str(),
                    refund.value().statusDescription().value_or("-").c_str(),
                    refund.value().refundAmount().value_or("-").c_str());
        exitCode.set_value(0);
      });
  const int code = exitCode.get_future().get();
  client->shutdown();
  return code;
}
