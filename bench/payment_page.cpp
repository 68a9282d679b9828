// How long the payment page takes to hand the result to the host once the gateway's final page
// has loaded (read the body, cut out the result, parse, dismiss, tell the delegate), beside how
// long WebKit itself took to load that page, in the same run against the sandbox gateway.
//
// Needs a display: run it through scripts/with-display. Without one it says so and exits 0.
//   scripts/with-display build/bin/bench_payment_page [--iterations=N]
#include <gtk/gtk.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Sandbox.h"
#include "qipg/PaymentWindow.h"
#include "qipg/QuandrelIPG.h"

namespace {

using Clock = std::chrono::steady_clock;

bool spinUntil(const std::function<bool()>& done, unsigned seconds = 120) {
  return qipg::runMainLoopUntil(done, seconds);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2.0;
}

std::string fillScript() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char expiry[8];
  std::snprintf(expiry, sizeof expiry, "12%02d", (utc.tm_year + 1900 + 3) % 100);
  return std::string(
             "(function () {"
             "  const set = (id, v) => { document.getElementById(id).value = v; };"
             "  set('cardNumber', '4111111111111111');"
             "  set('expiry', '") +
         expiry +
         "');"
         "  set('cvv', '123');"
         "  set('holder', 'Bench Customer');"
         "  document.querySelector('form').requestSubmit();"
         "  return 'ok';"
         "})()";
}

struct Sample {
  double loadNs = 0;     // WebKit: final page load started -> finished
  double readOutNs = 0;  // controller: final page finished -> didTransactionComplete
};

// One payment through the window; false when something did not happen in time.
bool onePayment(const qipg::sandbox::Sandbox& gateway, int n, Sample& sample) {
  qipg::GatewayConfig config;
  config.testBaseURL = gateway.baseURL();
  config.caFile = gateway.caFile();
  auto client = qipg::QuandrelIPG::create(qipg::IPGEnvironmentTest, config);
  if (!client) return false;
  const std::string order =
      "BENCH" + std::to_string(static_cast<long>(std::time(nullptr))) + "N" + std::to_string(n);
  auto ignore = qipg::makeResponseDelegate(nullptr);
  auto request = client->getStandardPaymentRequest(
      order, "10.50", "INR", "Bench", 1, "", "", "", "", "", "", "", "", "", "",
      qipg::sandbox::kTestMerchantId, qipg::sandbox::kTestMerchantKey, ignore);
  if (!request) return false;

  const std::string formPage = gateway.baseURL() + "doMEPayRequest";
  const std::string finalPage = gateway.baseURL() + "paymentInvoice";
  bool formShown = false;
  bool told = false;
  Clock::time_point started, finished, completed;
  auto delegate = qipg::makePaymentControllerDelegate(
      [&](const qipg::PaymentResponse&) {
        completed = Clock::now();
        told = true;
      },
      [&] { told = true; });

  qipg::PaymentWindowOptions options;
  options.gateway = config;
  options.trustedCAFile = gateway.caFile();
  options.trustedHost = "127.0.0.1";
  options.onPageLoad = [&](qipg::PageLoadEvent event, const std::string& uri) {
    const Clock::time_point now = Clock::now();
    if (event == qipg::PageLoadEvent::Started) started = now;
    if (event == qipg::PageLoadEvent::Finished && uri == formPage) formShown = true;
    if (event == qipg::PageLoadEvent::Finished && uri == finalPage) finished = now;
  };
  std::string error;
  auto window = qipg::presentPaymentWindow(*request, delegate, options, &error);
  if (!window) {
    std::fprintf(stderr, "bench_payment_page: %s\n", error.c_str());
    return false;
  }
  if (!spinUntil([&] { return formShown; })) return false;
  window->runJavaScript(fillScript());
  if (!spinUntil([&] { return told; }) || completed == Clock::time_point()) return false;
  sample.loadNs = std::chrono::duration<double, std::nano>(finished - started).count();
  sample.readOutNs = std::chrono::duration<double, std::nano>(completed - finished).count();
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int iterations = 15;
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--iterations=", 13) == 0) iterations = std::atoi(argv[i] + 13);
  }
  iterations = std::clamp(iterations, 1, 1000);

  char dirTemplate[] = "/tmp/qipg-bench-page-XXXXXX";
  const char* dir = mkdtemp(dirTemplate);
  if (dir == nullptr) return 1;
  setenv("QIPG_DEFAULTS_FILE", (std::string(dir) + "/defaults.sqlite3").c_str(), 1);
  if (!gtk_init_check()) {
    std::printf("bench_payment_page: skipped, no display (run it through scripts/with-display)\n");
    std::filesystem::remove_all(dir);
    return 0;
  }

  qipg::sandbox::Options sandboxOptions;
  sandboxOptions.dataDir = std::string(dir) + "/sandbox";
  std::string error;
  auto gateway = qipg::sandbox::Sandbox::start(sandboxOptions, &error);
  if (!gateway) {
    std::fprintf(stderr, "bench_payment_page: sandbox: %s\n", error.c_str());
    return 1;
  }

  std::vector<double> loads, readOuts;
  Sample warmUp;  // the first payment pays for web process start-up and the TLS handshake
  bool ok = onePayment(*gateway, 0, warmUp);
  for (int n = 1; ok && n <= iterations; ++n) {
    Sample sample;
    ok = onePayment(*gateway, n, sample);
    loads.push_back(sample.loadNs);
    readOuts.push_back(sample.readOutNs);
  }
  gateway->stop();
  std::error_code ignored;
  std::filesystem::remove_all(dir, ignored);
  if (!ok) {
    std::fprintf(stderr, "bench_payment_page: a payment did not complete in time\n");
    return 1;
  }

  const double figure = median(readOuts);
  const double baseline = median(loads);
  std::printf("payment page, median of %d payments against the sandbox\n", iterations);
  std::printf("\n%-44s %14s   %-36s %14s %8s\n", "figure", "time", "baseline", "time", "ratio");
  std::printf("%-44s %11.0f ns   %-36s %11.0f ns %7.2fx\n",
              "final page finished -> delegate told", figure,
              "WebKit load of the final page", baseline, figure / baseline);
  return 0;
}
