// A host that ends with calls in flight, the way real hosts do: its client lives in a global
// and the process ends by returning from main, by std::exit, or by dropping the last
// reference inside a callback while main returns. Run by ExitTest many times over.
//
// Usage: exit_host MODE BASE_URL CA_FILE, MODE one of main, exit, callback, ipg-main, ipg-exit.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "qipg/Client.h"
#include "qipg/QuandrelIPG.h"

namespace {

std::shared_ptr<qipg::Client> client;
std::shared_ptr<qipg::QuandrelIPG> ipg;
std::vector<std::future<qipg::Result<qipg::PaymentResponse>>> pending;

constexpr int kCalls = 50;
const char* const kMID = "QIPGTEST0001";
const char* const kKey = "qipgSandboxTestKey0123456789ABCD";

qipg::GatewayConfig gateway(const char* baseURL, const char* caFile) {
  qipg::GatewayConfig config;
  config.testBaseURL = baseURL;
  config.caFile = caFile;
  return config;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const std::string mode = argv[1];
  if (mode.rfind("ipg-", 0) == 0) {
    ipg = qipg::QuandrelIPG::create(qipg::IPGEnvironmentTest, gateway(argv[2], argv[3]));
    if (!ipg) return 3;
    for (int i = 0; i < kCalls; ++i) {
      ipg->getTransactionStatus("EXIT" + std::to_string(i), "", kMID, kKey, nullptr);
    }
  } else {
    auto created = qipg::Client::create({.gateway = gateway(argv[2], argv[3]),
                                         .merchantID = kMID,
                                         .encryptionKey = kKey});
    if (!created) return 3;
    client = std::move(created.value());
    for (int i = 0; i < kCalls; ++i) {
      const qipg::TransactionQuery query{.orderID = "EXIT" + std::to_string(i)};
      if (mode == "callback") {
        // Each answer drops a reference; one of them is the last, on a completion thread.
        client->status(query, [keep = client](const qipg::Result<qipg::PaymentResponse>&) mutable {
          keep.reset();
        });
      } else {
        pending.push_back(client->status(query));
      }
    }
    if (mode == "callback") client.reset();
  }
  if (mode == "exit" || mode == "ipg-exit") std::exit(0);
  return 0;
}
