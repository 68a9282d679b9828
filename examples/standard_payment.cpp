// The request that opens the gateway's payment page, made with qipg::Client. Nothing is sent:
// a real application hands the request to a payment window (libqipg-gtk, libqipg-qt) instead
// of printing where it goes.
//
//   export QIPG_TEST_BASE_URL=https://127.0.0.1:8443/ipg/ QIPG_KEY=...
//   ./example_standard_payment ORDER1001 10.50
#include <qipg/Client.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s ORDER_ID AMOUNT  (key in QIPG_KEY)\n", argv[0]);
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

  qipg::Result<qipg::URLRequest> page = made.value()->standardPayment(
      {.orderID = argv[1],
       .amount = argv[2],
       .currency = "INR",
       .type = qipg::TransactionType::Sale,  // authorise and capture; PreAuthorisation holds only
       .description = "Two books"});
  if (!page) {
    std::fprintf(stderr, "payment refused: %s\n", page.error().message.c_str());
    return 1;
  }
  std::printf("%s %s\nbody: %zu bytes\n", page.value().httpMethod.c_str(),
              page.value().url.value_or("(no URL)").c_str(), page.value().httpBody.size());
  return 0;
}
