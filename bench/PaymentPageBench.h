// The payment window benchmark, one body for every toolkit (include the toolkit's Toolkit.h
// first, from tests/e2e/window/<toolkit>/). Against the sandbox gateway, in one run:
//   - opening the window on the payment request until the gateway's card form has loaded,
//     beside the same window loading that same card form directly by URL (a GET);
//   - the first window of a process, with prewarm() called earlier and without (each in a
//     fresh process, the same pause before opening), and the peak resident memory of that
//     process and its browser processes with one window open;
//   - reading the result once the final page has loaded, beside the engine's load of it;
//   - the proportional memory (PSS) of a process and its browser processes with the card form
//     shown in our window, beside a bare engine view (no library code, the same engine
//     settings) showing the same form, each in a fresh process;
//   - the PSS after 50 payments one after another in one payment view (in a till window),
//     beside the PSS after its first payment (--view-payments=N for another count); and the
//     private memory after them beside that after the 10th, once the engine's caches are warm:
//     what a leak per payment would grow (PSS also moves with other processes that share the
//     same libraries, such as tests running beside it).
//
// Needs a display: run it through scripts/with-display. Without one it says so and exits 0.
//   scripts/with-display build/bin/bench_payment_page[_qt] [--iterations=N]
#pragma once

#include <dirent.h>
#include <httplib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Sandbox.h"
#include "qipg/QuandrelIPG.h"

namespace bench {

using Clock = std::chrono::steady_clock;

double nanosSince(Clock::time_point start, Clock::time_point end) {
  return std::chrono::duration<double, std::nano>(end - start).count();
}

double median(std::vector<double> values) {
  if (values.empty()) return 0.0;
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2.0;
}

std::string fillScript() {
  return "(function () {"
         "  const set = (id, v) => { document.getElementById(id).value = v; };"
         "  set('cardNumber', '4111111111111111'); set('expiry', '1249');"
         "  set('cvv', '123'); set('holder', 'Bench Customer');"
         "  document.querySelector('form').requestSubmit(); return 'ok'; })()";
}

std::unique_ptr<qipg::sandbox::Sandbox> startGateway(const std::string& dataDir) {
  qipg::sandbox::Options options;
  options.dataDir = dataDir;
  std::string error;
  auto gateway = qipg::sandbox::Sandbox::start(options, &error);
  if (!gateway) std::fprintf(stderr, "bench: sandbox: %s\n", error.c_str());
  return gateway;
}

// A standard payment request for a new order, and the client that built it.
std::optional<qipg::URLRequest> paymentRequest(const qipg::sandbox::Sandbox& gateway,
                                               std::shared_ptr<qipg::QuandrelIPG>& client) {
  static int count = 0;
  qipg::GatewayConfig config;
  config.testBaseURL = gateway.baseURL();
  config.caFile = gateway.caFile();
  client = qipg::QuandrelIPG::create(qipg::IPGEnvironmentTest, config);
  if (!client) return std::nullopt;
  const std::string order = "B" + std::to_string(static_cast<long>(std::time(nullptr))) + "P" +
                            std::to_string(getpid()) + "N" + std::to_string(++count);
  return client->getStandardPaymentRequest(order, "10.50", "INR", "Bench", 1, "", "", "", "", "",
                                           "", "", "", "", "", qipg::sandbox::kTestMerchantId,
                                           qipg::sandbox::kTestMerchantKey, nullptr);
}

qipg::PaymentWindowOptions windowOptions(const qipg::sandbox::Sandbox& gateway,
                                         std::shared_ptr<qipg::QuandrelIPG> client) {
  qipg::PaymentWindowOptions options;
  options.client = std::move(client);
  options.trustedCAFile = gateway.caFile();
  options.trustedHost = "127.0.0.1";
  return options;
}

// Opens a window on `request` and returns the time until `formURL` has loaded in it (the
// page's HTML in `*html` if asked); the window is cancelled afterwards.
std::optional<double> openToForm(const qipg::URLRequest& request, const std::string& formURL,
                                 qipg::PaymentWindowOptions options, std::string* html = nullptr) {
  bool shown = false;
  Clock::time_point loaded;
  options.onPageLoad = [&](qipg::PageLoadEvent event, const std::string& uri) {
    if (event == qipg::PageLoadEvent::Finished && uri == formURL && !shown) {
      loaded = Clock::now();
      shown = true;
    }
  };
  bool told = false;
  auto delegate = qipg::makePaymentControllerDelegate(nullptr, [&] { told = true; });
  const Clock::time_point opened = Clock::now();
  std::string error;
  auto window = toolkit::present(request, delegate, options, &error);
  if (!window) {
    std::fprintf(stderr, "bench: %s\n", error.c_str());
    return std::nullopt;
  }
  if (!toolkit::spinUntil([&] { return shown; })) return std::nullopt;
  if (html != nullptr) {
    bool answered = false;
    window->runJavaScript("document.documentElement.outerHTML", [&](const qipg::Text& text) {
      *html = text.value_or("");
      answered = true;
    });
    toolkit::spinUntil([&] { return answered; });
  }
  window->pressCancel();
  toolkit::spinUntil([&] { return told; });
  return nanosSince(opened, loaded);
}

// Serves `html` by GET at the card form's path, over TLS with the sandbox's own certificate.
class FormServer {
 public:
  FormServer(const qipg::sandbox::Sandbox& gateway, std::string html)
      : server_((gateway.dataDir() + "/server-cert.pem").c_str(),
                (gateway.dataDir() + "/server-key.pem").c_str()),
        html_(std::move(html)) {
    server_.Get("/ipg/doMEPayRequest", [this](const httplib::Request&, httplib::Response& res) {
      res.set_content(html_, "text/html; charset=utf-8");
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
  }
  ~FormServer() {
    server_.stop();
    thread_.join();
  }
  std::string formURL() const {
    return "https://127.0.0.1:" + std::to_string(port_) + "/ipg/doMEPayRequest";
  }

 private:
  httplib::SSLServer server_;
  std::string html_;
  int port_ = 0;
  std::thread thread_;
};

// The sum of the `field` lines ("VmHWM:", "Pss:") of /proc/PID/`file` over this process and
// every process below it, in KiB.
long sumOverTree(const char* file, const std::string& field, pid_t pid = getpid()) {
  long total = 0;
  std::ifstream in("/proc/" + std::to_string(pid) + "/" + file);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind(field, 0) == 0) total += std::atol(line.c_str() + field.size());
  }
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  if (DIR* dir = opendir(tasks.c_str())) {
    while (dirent* entry = readdir(dir)) {
      if (entry->d_name[0] == '.') continue;
      std::ifstream children(tasks + "/" + entry->d_name + "/children");
      for (pid_t child; children >> child;) total += sumOverTree(file, field, child);
    }
    closedir(dir);
  }
  return total;
}

// Peak resident memory of this process and its browser processes, in KiB.
long peakRssKiB() { return sumOverTree("status", "VmHWM:"); }

// Proportional memory (PSS) of this process and its browser processes now, in KiB.
long pssKiB() { return sumOverTree("smaps_rollup", "Pss:"); }
long privateKiB() { return sumOverTree("smaps_rollup", "Private_Dirty:"); }

// Runs this program again with `argument` and reads the numbers of its line that starts with
// `tag`; false when it failed.
bool runChild(const std::string& self, const std::string& argument, const char* tag,
              std::vector<double>& numbers) {
  FILE* pipe = popen(("'" + self + "' " + argument + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) return false;
  char line[256];
  bool ok = false;
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    if (std::strncmp(line, tag, std::strlen(tag)) != 0) continue;
    std::istringstream fields(line + std::strlen(tag));
    numbers.clear();
    for (double n = 0; fields >> n;) numbers.push_back(n);
    ok = !numbers.empty();
  }
  return pclose(pipe) == 0 && ok;
}

// In a child process: the first window of the process, with or without prewarm(), after the
// same pause. Prints "FIRST <ns> <KiB>".
int firstOpen(const std::string& dir, bool warm) {
  auto gateway = startGateway(dir + "/first-" + std::to_string(getpid()));
  if (!gateway) return 1;
  if (warm) toolkit::Window::prewarm();
  toolkit::spinUntil([] { return false; }, 2);  // the customer fills the basket
  std::shared_ptr<qipg::QuandrelIPG> client;
  auto request = paymentRequest(*gateway, client);
  if (!request) return 1;
  const auto ns =
      openToForm(*request, gateway->baseURL() + "doMEPayRequest", windowOptions(*gateway, client));
  if (!ns) return 1;
  std::printf("FIRST %.0f %ld\n", *ns, peakRssKiB());
  std::fflush(stdout);
  std::_Exit(0);  // the engines' teardown is not measured
}

// In a child process: the card form saved by the parent (dir/form.html), served by GET and
// shown in our window or in a bare engine view; the peak PSS over three seconds of it shown.
// Prints "MEM <KiB>".
int memoryWithForm(const std::string& dir, bool bare) {
  auto gateway = startGateway(dir + "/memory-" + std::to_string(getpid()));
  if (!gateway) return 1;
  std::ifstream in(dir + "/form.html");
  std::stringstream html;
  html << in.rdbuf();
  FormServer server(*gateway, html.str());
  std::shared_ptr<qipg::QuandrelIPG> client;
  std::shared_ptr<toolkit::Window> window;
  if (bare) {
    if (!toolkit::openBareView(server.formURL())) return 1;
  } else {
    if (!paymentRequest(*gateway, client)) return 1;
    qipg::URLRequest get;
    get.url = server.formURL();
    get.httpMethod = "GET";
    bool shown = false;
    auto options = windowOptions(*gateway, client);
    options.onPageLoad = [&](qipg::PageLoadEvent event, const std::string& uri) {
      if (event == qipg::PageLoadEvent::Finished && uri == server.formURL()) shown = true;
    };
    std::string error;
    window =
        toolkit::present(get, qipg::makePaymentControllerDelegate(nullptr, [] {}), options, &error);
    if (!window || !toolkit::spinUntil([&] { return shown; })) return 1;
  }
  long peak = 0;
  for (int second = 0; second < 3; ++second) {
    toolkit::spinUntil([] { return false; }, 1);
    peak = std::max(peak, pssKiB());
  }
  std::printf("MEM %ld\n", peak);
  std::fflush(stdout);
  std::_Exit(0);  // the engines' teardown is not measured
}

// In a child process: `payments` payments one after another in one payment view, embedded in
// a till window; the PSS after the first and after the last, the private memory after the
// 10th (or the last, when fewer) and after the last. Prints "VIEW <KiB> <KiB> <KiB> <KiB>".
int paymentsInOneView(const std::string& dir, int payments) {
  auto gateway = startGateway(dir + "/view-" + std::to_string(getpid()));
  if (!gateway) return 1;
  const std::string formPage = gateway->baseURL() + "doMEPayRequest";
  std::shared_ptr<toolkit::Window> till;
  long afterFirst = 0, privateAfterTenth = 0;
  for (int n = 0; n < payments; ++n) {
    std::shared_ptr<qipg::QuandrelIPG> client;
    auto request = paymentRequest(*gateway, client);
    if (!request) return 1;
    bool formShown = false, told = false;
    auto delegate = qipg::makePaymentControllerDelegate([&](const qipg::PaymentResponse&) { told = true; },
                                                        [&] { told = true; });
    auto options = windowOptions(*gateway, client);
    options.onPageLoad = [&](qipg::PageLoadEvent event, const std::string& uri) {
      if (event == qipg::PageLoadEvent::Finished && uri == formPage) formShown = true;
    };
    std::string error;
    if (!till) {
      till = toolkit::present(*request, delegate, options, &error);  // the till and its view
      if (!till) return 1;
    } else if (!till->view()->start(*request, delegate, options, &error)) {
      return 1;
    }
    if (!toolkit::spinUntil([&] { return formShown; })) return 1;
    till->runJavaScript(fillScript());
    if (!toolkit::spinUntil([&] { return told; })) return 1;
    toolkit::spinUntil([] { return false; }, 1);  // what the ended payment let go of is gone
    if (n == 0) afterFirst = pssKiB();
    if (n == std::min(payments, 10) - 1) privateAfterTenth = privateKiB();
  }
  std::printf("VIEW %ld %ld %ld %ld\n", afterFirst, pssKiB(), privateAfterTenth, privateKiB());
  std::fflush(stdout);
  std::_Exit(0);  // the engines' teardown is not measured
}

struct ReadOut {
  double loadNs = 0;     // the engine: final page load started -> finished
  double readOutNs = 0;  // the controller: final page finished -> delegate told
};

// One payment through the window; false when something did not happen in time.
bool onePayment(const qipg::sandbox::Sandbox& gateway, ReadOut& sample) {
  std::shared_ptr<qipg::QuandrelIPG> client;
  auto request = paymentRequest(gateway, client);
  if (!request) return false;
  const std::string formPage = gateway.baseURL() + "doMEPayRequest";
  const std::string finalPage = gateway.baseURL() + "paymentInvoice";
  bool formShown = false, told = false;
  Clock::time_point started, finished, completed;
  auto delegate = qipg::makePaymentControllerDelegate(
      [&](const qipg::PaymentResponse&) {
        completed = Clock::now();
        told = true;
      },
      [&] { told = true; });
  auto options = windowOptions(gateway, client);
  options.onPageLoad = [&](qipg::PageLoadEvent event, const std::string& uri) {
    const Clock::time_point now = Clock::now();
    if (event == qipg::PageLoadEvent::Started) started = now;
    if (event == qipg::PageLoadEvent::Finished && uri == formPage) formShown = true;
    if (event == qipg::PageLoadEvent::Finished && uri == finalPage) finished = now;
  };
  std::string error;
  auto window = toolkit::present(*request, delegate, options, &error);
  if (!window || !toolkit::spinUntil([&] { return formShown; })) return false;
  window->runJavaScript(fillScript());
  if (!toolkit::spinUntil([&] { return told; }) || completed == Clock::time_point()) return false;
  sample.loadNs = nanosSince(started, finished);
  sample.readOutNs = nanosSince(finished, completed);
  return true;
}

void row(const char* figure, double figureValue, const char* baseline, double baselineValue,
         const char* unit = "ns") {
  std::printf("%-46s %12.0f %-3s  %-40s %12.0f %-3s %7.2fx\n", figure, figureValue, unit, baseline,
              baselineValue, unit, baselineValue > 0 ? figureValue / baselineValue : 0.0);
}

int run(int argc, char** argv) {
  int iterations = 9;
  int firstOpens = 4;
  int viewPayments = 50;
  std::string child;
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--iterations=", 13) == 0) iterations = std::atoi(argv[i] + 13);
    if (std::strncmp(argv[i], "--first-opens=", 14) == 0) firstOpens = std::atoi(argv[i] + 14);
    if (std::strncmp(argv[i], "--first-open=", 13) == 0) child = argv[i] + 13;
    if (std::strncmp(argv[i], "--memory=", 9) == 0) child = std::string("memory-") + (argv[i] + 9);
    if (std::strncmp(argv[i], "--view-payments=", 16) == 0) viewPayments = std::atoi(argv[i] + 16);
  }
  iterations = std::clamp(iterations, 1, 1000);
  firstOpens = std::clamp(firstOpens, 0, 100);

  std::string dir;
  if (const char* inherited = std::getenv("QIPG_BENCH_TMP"); inherited && !child.empty()) {
    dir = inherited;
  } else {
    char dirTemplate[] = "/tmp/qipg-bench-page-XXXXXX";
    if (mkdtemp(dirTemplate) == nullptr) return 1;
    dir = dirTemplate;
    setenv("QIPG_BENCH_TMP", dir.c_str(), 1);
    setenv("QIPG_DEFAULTS_FILE", (dir + "/defaults.sqlite3").c_str(), 1);
  }
  if (!toolkit::init(&argc, argv)) {
    std::printf(
        "bench_payment_page (%s): skipped, no display (run it through "
        "scripts/with-display)\n",
        toolkit::kName);
    std::filesystem::remove_all(dir);
    return 0;
  }
  if (child == "memory-view") return paymentsInOneView(dir, viewPayments);
  if (child.rfind("memory-", 0) == 0) return memoryWithForm(dir, child == "memory-bare");
  if (!child.empty()) return firstOpen(dir, child == "warm");

  // First windows of a process, each in a fresh process, cold and prewarmed in turn.
  std::vector<double> cold, warm, rss;
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  for (int n = 0; n < firstOpens; ++n) {
    for (bool prewarmed : {false, true}) {
      std::vector<double> figures;  // ns, KiB
      if (!runChild(self, std::string("--first-open=") + (prewarmed ? "warm" : "cold"), "FIRST",
                    figures) ||
          figures.size() != 2) {
        std::fprintf(stderr, "bench: a first window did not open\n");
        return 1;
      }
      (prewarmed ? warm : cold).push_back(figures[0]);
      if (!prewarmed) rss.push_back(figures[1]);
    }
  }

  auto gateway = startGateway(dir + "/sandbox");
  if (!gateway) return 1;
  const std::string formURL = gateway->baseURL() + "doMEPayRequest";
  // Warm-up: the engine's start-up, the TLS allowance, and the card form's HTML to serve.
  std::shared_ptr<qipg::QuandrelIPG> client;
  auto request = paymentRequest(*gateway, client);
  std::string html;
  if (!request || !openToForm(*request, formURL, windowOptions(*gateway, client), &html) ||
      html.empty()) {
    std::fprintf(stderr, "bench: the card form did not load\n");
    return 1;
  }
  FormServer direct(*gateway, "<!DOCTYPE html>" + html);
  std::ofstream(dir + "/form.html") << "<!DOCTYPE html>" << html;
  // Memory with the card form shown: ours and the bare engine in turn, each in a fresh process.
  std::vector<double> oursKiB, bareKiB;
  for (int n = 0; n < std::max(firstOpens / 2, 1); ++n) {
    for (bool bare : {false, true}) {
      std::vector<double> kib;
      if (!runChild(self, std::string("--memory=") + (bare ? "bare" : "ours"), "MEM", kib)) {
        std::fprintf(stderr, "bench: the card form did not show for the memory figure\n");
        return 1;
      }
      (bare ? bareKiB : oursKiB).push_back(kib[0]);
    }
  }
  // Payment after payment in one view, in a fresh process that embeds it.
  std::vector<double> viewKiB;
  setenv("QIPG_TEST_EMBEDDED", "1", 1);
  const bool viewRan = runChild(self, "--memory=view --view-payments=" + std::to_string(viewPayments),
                                "VIEW", viewKiB) && viewKiB.size() == 4;
  unsetenv("QIPG_TEST_EMBEDDED");
  if (!viewRan) {
    std::fprintf(stderr, "bench: the payments in one view did not all end\n");
    return 1;
  }
  qipg::URLRequest get;
  get.url = direct.formURL();
  get.httpMethod = "GET";
  openToForm(get, direct.formURL(), windowOptions(*gateway, client));  // warm-up

  std::vector<double> posted, fetched, loads, readOuts;
  bool ok = true;
  for (int n = 0; ok && n < iterations; ++n) {
    request = paymentRequest(*gateway, client);
    const auto viaPost =
        request ? openToForm(*request, formURL, windowOptions(*gateway, client)) : std::nullopt;
    const auto viaGet = openToForm(get, direct.formURL(), windowOptions(*gateway, client));
    ReadOut sample;
    ok = viaPost && viaGet && onePayment(*gateway, sample);
    if (!ok) break;
    posted.push_back(viaPost.value_or(0.0));
    fetched.push_back(viaGet.value_or(0.0));
    loads.push_back(sample.loadNs);
    readOuts.push_back(sample.readOutNs);
  }
  gateway->stop();
  std::error_code ignored;
  std::filesystem::remove_all(dir, ignored);
  if (!ok) {
    std::fprintf(stderr, "bench: a window did not load in time\n");
    return 1;
  }

  std::printf(
      "payment window (%s), medians: %d windows per row, %d fresh processes per first "
      "window\n\n",
      toolkit::kName, iterations, firstOpens);
  std::printf("%-46s %16s  %-40s %16s %8s\n", "figure", "value", "baseline", "value", "ratio");
  row("open -> card form loaded (payment POST)", median(posted),
      "same window, card form by URL (GET)", median(fetched));
  if (firstOpens > 0) {
    row("first window of a process, prewarm() before", median(warm),
        "first window of a process, cold", median(cold));
  }
  row("final page finished -> delegate told", median(readOuts), "engine's load of the final page",
      median(loads));
  row("PSS with the card form shown, our window", median(oursKiB),
      "bare engine view, same form and settings", median(bareKiB), "KiB");
  const std::string afterAll = "PSS after " + std::to_string(viewPayments) + " payments in one view";
  row(afterAll.c_str(), viewKiB[1], "after its first payment", viewKiB[0], "KiB");
  const std::string privateAfterAll =
      "private memory after " + std::to_string(viewPayments) + " payments";
  const std::string afterWarm =
      "after payment " + std::to_string(std::min(viewPayments, 10)) + " in it";
  row(privateAfterAll.c_str(), viewKiB[3], afterWarm.c_str(), viewKiB[2], "KiB");
  if (firstOpens > 0) {
    std::printf("\npeak RSS with one window open (process and its browser processes): %.0f KiB\n",
                median(rss));
  }
  return 0;
}

}  // namespace bench
