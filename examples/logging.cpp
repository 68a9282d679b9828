// Sends every step of the client's calls to syslog(3), one line each with key=value fields,
// so that "what happened to order X at 14:32?" has an answer in the merchant's own logs:
//
//   export QIPG_TEST_BASE_URL=https://127.0.0.1:8443/ipg/ QIPG_CA_FILE=ca.pem
//   export QIPG_KEY=...        # the merchant key: from the environment, never the command line
//   ./example_logging ORDER1 4100
//   journalctl -t qipg-example   # or /var/log/syslog
//
// The events hold identifiers and timings only, never card data, keys or messages.
#include <qipg/Client.h>
#include <qipg/Events.h>
#include <syslog.h>

#include <cstdio>
#include <cstdlib>
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
  openlog("qipg-example", LOG_PID, LOG_USER);

  qipg::ClientOptions options;
  options.gateway = qipg::GatewayConfig::fromEnvironment();
  options.merchantID = "QIPGTEST0001";  // the sandbox's test merchant
  options.encryptionKey = key;
  // Runs on a thread of the client's own: syslog() may take its time without holding up a call.
  options.eventHook = [](const qipg::Event& event) {
    const bool failed = event.error.has_value();
    syslog(failed ? LOG_WARNING : LOG_INFO, "%s", qipg::formatEvent(event).c_str());
  };
  qipg::Result<std::shared_ptr<qipg::Client>> made = qipg::Client::create(std::move(options));
  if (!made) {
    std::fprintf(stderr, "cannot create the client: %s\n", made.error().message.c_str());
    return 1;
  }

  qipg::Result<qipg::PaymentResponse> answer =
      made.value()->status({.orderID = argv[1], .transactionRefNumber = argv[2]}).get();
  std::printf("status: %s (the steps are in syslog)\n",
              answer ? answer.value().statusCode().value_or("-").c_str()
                     : answer.error().toString().c_str());
  made.value().reset();  // the client's last events reach syslog before it is gone
  closelog();
  return answer ? 0 : 1;
}
