// ipg demo: the tour. Starts a sandbox gateway in this process, then runs the library's five
// operations end to end (two payments in the real payment window, a status inquiry, a partial
// refund, a cancel) plus one input error, and prints one table of the records.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <future>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Command.h"
#include "Output.h"
#include "Toolkit.h"
#include "common/Url.h"
#include "qipg/Client.h"
#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"
#include "qipg/PaymentWindowOptions.h"
#include "qipg/QuandrelIPG.h"
#ifdef QIPG_HAVE_SANDBOX
#include "Sandbox.h"
#endif
#include "Till.h"
#ifdef QIPG_HAVE_GTK
#include "qipg/PaymentView.h"
#include "qipg/PaymentWindow.h"
#endif
#ifdef QIPG_HAVE_QT
#include "qipg/QtPaymentView.h"
#include "qipg/QtPaymentWindow.h"
#endif

namespace ipg {
namespace {

#if defined(QIPG_HAVE_SANDBOX) && (defined(QIPG_HAVE_GTK) || defined(QIPG_HAVE_QT))

constexpr char kApprovedCard[] = "4111111111111111";
constexpr char kSecondCard[] = "5555555555554444";
constexpr char kNeverFinalBaseURL[] = "https://final-page.invalid/";

// One row of the closing table.
struct Row {
  std::string operation;
  std::string order;
  std::string status;  // statusCode, or "error" for an input error
  std::string description;
  std::string detail;
};

std::string orEmpty(const qipg::Text& text) { return text.value_or("(absent)"); }

Row rowOf(const std::string& operation, const qipg::PaymentResponse& r, std::string detail) {
  return {operation, orEmpty(r.orderID()), orEmpty(r.statusCode()), orEmpty(r.statusDescription()),
          std::move(detail)};
}

std::string futureExpiry() {  // MMYY, three years ahead
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[8];
  std::snprintf(text, sizeof text, "12%02d", (utc.tm_year + 1900 + 3) % 100);
  return text;
}

// A presented payment window as the tour drives it: the calls both toolkits' windows share.
class Window {
 public:
  virtual ~Window() = default;
  virtual void runJavaScript(const std::string& script,
                             std::function<void(const qipg::Text&)> completion = {}) = 0;
  virtual void saveScreenshot(const std::string& pngPath, std::function<void(bool)> completion) = 0;
  virtual void pressCancel() = 0;
  virtual bool isOpen() const = 0;
};

// What the tour needs of a toolkit: presenting a window, and running the main loop until a
// condition holds (false on the time-out).
struct Toolkit {
  std::function<std::unique_ptr<Window>(const qipg::URLRequest&,
                                        std::shared_ptr<qipg::IPGPaymentControllerDelegate>,
                                        const qipg::PaymentWindowOptions&, std::string*)>
      present;
  std::function<bool(const std::function<bool()>&, unsigned)> runUntil;
};

// A window (qipg::PaymentWindow or qipg::QtPaymentWindow) or a view in its till
// (qipg::PaymentView or qipg::QtPaymentView) as the tour drives it; a screenshot of either is
// the whole window it is, or is in.
template <class Shown>
class Shell final : public Window {
 public:
  explicit Shell(std::shared_ptr<Shown> shown) : shown_(std::move(shown)) {}
  void runJavaScript(const std::string& script,
                     std::function<void(const qipg::Text&)> completion) override {
    shown_->runJavaScript(script, std::move(completion));
  }
  void saveScreenshot(const std::string& pngPath, std::function<void(bool)> completion) override {
    shown_->saveScreenshot(pngPath, std::move(completion), qipg::WindowSnapshotArea::Window);
  }
  void pressCancel() override { shown_->pressCancel(); }
  // A view stays in its till after a payment: it is open while a payment is under way.
  bool isOpen() const override {
    if constexpr (requires { shown_->isActive(); }) {
      return shown_->isActive();
    } else {
      return shown_->isOpen();
    }
  }

 private:
  std::shared_ptr<Shown> shown_;
};

// The toolkit of the window class W, presented by `presentW` and driven by `runUntil`.
template <class W, auto presentW, auto runUntil>
Toolkit toolkitOf() {
  return {
      [](const qipg::URLRequest& request,
         std::shared_ptr<qipg::IPGPaymentControllerDelegate> delegate,
         const qipg::PaymentWindowOptions& options, std::string* error) -> std::unique_ptr<Window> {
        std::shared_ptr<W> window = presentW(request, std::move(delegate), options, error);
        return window ? std::make_unique<Shell<W>>(std::move(window)) : nullptr;
      },
      runUntil};
}

// The view class V in a till window shown by `showTill`: the first payment makes the view and
// the till, and every payment after it starts in the same view.
template <class V, auto runUntil, auto showTill>
Toolkit embeddedToolkitOf() {
  auto view = std::make_shared<std::shared_ptr<V>>();
  return {[view](const qipg::URLRequest& request,
                 std::shared_ptr<qipg::IPGPaymentControllerDelegate> delegate,
                 const qipg::PaymentWindowOptions& options,
                 std::string* error) -> std::unique_ptr<Window> {
            if (!*view) {
              *view = V::create(error);
              if (!*view) return nullptr;
              showTill((*view)->widget(), "1500.00");
            }
            if (!(*view)->start(request, std::move(delegate), options, error)) return nullptr;
            return std::make_unique<Shell<V>>(*view);
          },
          runUntil};
}

Toolkit toolkitNamed([[maybe_unused]] const std::string& name, [[maybe_unused]] bool embedded) {
#ifdef QIPG_HAVE_QT
  if (name == "qt" && embedded) {
    return embeddedToolkitOf<qipg::QtPaymentView, &qipg::runQtMainLoopUntil, &showQtTill>();
  }
  if (name == "qt")
    return toolkitOf<qipg::QtPaymentWindow, &qipg::presentQtPaymentWindow,
                     &qipg::runQtMainLoopUntil>();
#endif
#ifdef QIPG_HAVE_GTK
  if (embedded) {
    return embeddedToolkitOf<qipg::PaymentView, &qipg::runMainLoopUntil, &showGtkTill>();
  }
  return toolkitOf<qipg::PaymentWindow, &qipg::presentPaymentWindow, &qipg::runMainLoopUntil>();
#else
  return {};
#endif
}

class Tour {
 public:
  Tour(std::filesystem::path out, Toolkit toolkit)
      : out_(std::move(out)), toolkit_(std::move(toolkit)) {}

  int run() {
    const char* titles[] = {"Start the sandbox gateway",
                            "Create a client and seal a sample message",
                            "Standard payment in the payment window",
                            "The final page, shown again for its screenshot",
                            "Card-capture payment (pre-authorisation)",
                            "Status inquiry of the first payment",
                            "Partial refund of the first payment",
                            "Cancel of the second payment",
                            "An input error",
                            "A status inquiry with the wrong merchant key"};
    bool (Tour::*steps[])() = {&Tour::startSandbox,  &Tour::createClient, &Tour::standardPayment,
                               &Tour::finalPageShot, &Tour::cardPayment,  &Tour::status,
                               &Tour::refund,        &Tour::cancel,       &Tour::inputError,
                               &Tour::wrongKey};
    int failed = 0;
    for (std::size_t i = 0; i < std::size(steps); ++i) {
      std::cout << i + 1 << ". " << titles[i] << std::endl;
      if (!(this->*steps[i])()) {
        std::cout << "   FAILED" << std::endl;
        ++failed;
        if (i < 3) break;  // nothing after works without the sandbox, the client or payment 1
      }
    }
    printTable();
    if (!screenshots_.empty()) {
      std::cout << "\nScreenshots:\n";
      for (const auto& path : screenshots_) std::cout << "  " << path << "\n";
    }
    std::cout << (failed == 0 ? "\nThe tour is complete.\n" : "\nThe tour had failures.\n");
    return failed == 0 ? 0 : 1;
  }

  ~Tour() {
    if (sandbox_) sandbox_->stop();
    std::error_code ignored;
    if (!work_.empty()) std::filesystem::remove_all(work_, ignored);
  }

 private:
  bool startSandbox() {
    char pattern[] = "/tmp/ipg-demo-XXXXXX";
    if (mkdtemp(pattern) == nullptr) return false;
    work_ = pattern;
    // The demo's own user defaults: creating its client must not change the host's IV.
    setenv("QIPG_DEFAULTS_FILE", (work_ / "defaults.sqlite3").c_str(), 1);
    qipg::sandbox::Options options;
    options.dataDir = work_ / "sandbox";
    std::string error;
    sandbox_ = qipg::sandbox::Sandbox::start(options, &error);
    if (!sandbox_) {
      std::cout << "   " << error << "\n";
      return false;
    }
    std::cout << "   " << sandbox_->baseURL() << " (test merchant "
              << qipg::sandbox::kTestMerchantId << ")\n";
    return true;
  }

  bool createClient() {
    qipg::GatewayConfig config;
    config.testBaseURL = sandbox_->baseURL();
    config.caFile = sandbox_->caFile();
    client_ = qipg::QuandrelIPG::create(qipg::IPGEnvironmentTest, config);
    if (!client_) return false;
    client_->setEventHook(verboseHook());
    const std::string message = "QIPGTEST0001|DEMO|1.00|INR|-|S|-|-|-|U|-|-|-|-|-|-|-|-|-|-";
    const std::string sealed = qipg::encryptTextWithEncKey(message, std::string(key()));
    const qipg::Text opened = qipg::decryptTextWithDecryptionKey(sealed, std::string(key()));
    std::cout << "   base URL " << client_->CurrentDomainURL() << ", IV stored under \"randomIV\": "
              << orEmpty(qipg::CommonUtilities::getRandomIVforKey(std::string("randomIV")))
              << "\n   sealed a " << message.size() << "-byte message into " << sealed.size()
              << " characters; opened again: " << (opened == message ? "identical" : "DIFFERENT")
              << "\n";
    return opened == message;
  }

  // Presents `request` (for `order`) in a payment window and drives it: `onPage` runs on every
  // finished page load with the window and the page's address. Returns the record, or nothing.
  std::optional<qipg::PaymentResponse> pay(
      const qipg::URLRequest& request, const std::string& order,
      const std::function<void(Window&, const std::string&)>& onPage, const std::string& title) {
    std::optional<qipg::PaymentResponse> result;
    bool cancelled = false;
    auto delegate = qipg::makePaymentControllerDelegate(
        [&](const qipg::PaymentResponse& r) { result = r; }, [&] { cancelled = true; });
    std::unique_ptr<Window> window;
    qipg::PaymentWindowOptions options = windowOptions(title);
    options.client = client_;
    // An unclear end (a cancel, an unreadable final page) is confirmed with the gateway.
    std::optional<qipg::PaymentResponse> reconciled;
    options.reconcile = qipg::PaymentReconciliation{
        order, mid(), key(), [&](const qipg::PaymentResponse& r) { reconciled = r; }};
    options.onPageLoad = [&](qipg::PageLoadEvent event, const std::string& uri) {
      if (event == qipg::PageLoadEvent::Finished && window) onPage(*window, uri);
    };
    std::string error;
    window = toolkit_.present(request, delegate, options, &error);
    if (!window) {
      std::cout << "   " << error << "\n";
      return std::nullopt;
    }
    const auto ended = [&] { return result.has_value() || cancelled; };
    if (!spinUntil(ended)) {
      std::cout << "   the payment did not finish in time\n";
      window->pressCancel();
    }
    spinUntil([&] { return !window->isOpen(); }, 5);
    later_ = nullptr;  // it would outlive the window
    if (cancelled && spinUntil([&] { return reconciled.has_value(); }, 30)) {
      std::cout << "   reconciled with the gateway: " << orEmpty(reconciled->statusCode()) << " "
                << orEmpty(reconciled->statusDescription()) << "\n";
    }
    return result;
  }

  qipg::PaymentWindowOptions windowOptions(const std::string& title) const {
    qipg::PaymentWindowOptions options;
    options.title = title;
    options.trustedCAFile = sandbox_->caFile();  // for the request's own host
    return options;
  }

  // Runs the main loop until `done()`; false after `seconds`. What a page hook left in `later_`
  // runs here, outside the engine's callbacks, after a second more of the main loop: a load
  // finishes before the page has been painted (in Qt WebEngine), and the pictures must show it.
  bool spinUntil(const std::function<bool()>& done, unsigned seconds = 60) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!done()) {
      const auto left =
          std::chrono::ceil<std::chrono::seconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0 ||
          !toolkit_.runUntil([&] { return done() || later_; }, unsigned(left.count()))) {
        return false;
      }
      if (later_) {
        const std::function<void()> work = std::exchange(later_, nullptr);
        toolkit_.runUntil([] { return false; }, 1);
        work();
      }
    }
    return true;
  }

  // Saves a PNG of the window into the output directory, then runs `then` (if any).
  void screenshot(Window& window, const std::string& name, std::function<void()> then = {}) {
    const std::string path = (out_ / name).string();
    window.saveScreenshot(path, [this, path, then = std::move(then)](bool saved) {
      if (saved) {
        screenshots_.push_back(path);
      } else {
        std::cout << "   (could not save " << path << ")\n";
      }
      if (then) then();
    });
  }

  bool standardPayment() {
    orderA_ = "DEMO" + std::to_string(std::time(nullptr)) + "A";
    std::string failure;
    auto failed =
        qipg::makeResponseDelegate(nullptr, nullptr, [&](const std::string& m) { failure = m; });
    const auto request =
        client_->getStandardPaymentRequest(orderA_, "1500.00", "INR", "Demo order", 1, "", "", "",
                                           "", "", "", "", "", "", "", mid(), key(), failed);
    if (!request) {
      std::cout << "   " << failure << "\n";
      return false;
    }
    const std::string cardForm = client_->CurrentDomainURL() + "doMEPayRequest";
    const auto record = pay(
        *request, orderA_,
        [&](Window& window, const std::string& uri) {
          if (uri != cardForm) return;
          // Keep the session token (the final page is shown again with it), take the picture of
          // the empty card form, then fill in the test card and pay.
          window.runJavaScript("document.querySelector('input[name=token]').value",
                               [this](const qipg::Text& token) { token_ = token; });
          const std::string fill =
              "(() => { const set = (id, v) => { document.getElementById(id).value = v; };"
              "set('cardNumber', '" +
              std::string(kApprovedCard) + "'); set('expiry', '" + futureExpiry() +
              "'); set('cvv', '123'); set('holder', 'Jane Doe');"
              "document.querySelector('form').requestSubmit(); })()";
          Window* shown = &window;  // alive while pay() waits
          later_ = [this, shown, fill] {
            screenshot(*shown, "payment-page.png", [shown, fill] { shown->runJavaScript(fill); });
          };
        },
        "Payment");
    if (!record) return false;
    rows_.push_back(rowOf("standard payment", *record,
                          "ref " + orEmpty(record->transactionReferenceNo()) + ", card " +
                              maskCardNumber(kApprovedCard)));
    refA_ = record->transactionReferenceNo();
    return record->statusCode() == "S";
  }

  // The window closes itself on the final page, so the picture of that page comes from a
  // second window that posts the session again (the sandbox shows the same result and
  // charges nothing twice) and is told final pages live elsewhere, so it stays up.
  bool finalPageShot() {
    if (!token_) return false;
    qipg::URLRequest request;
    request.url = qipg::internal::returnURL(client_->CurrentDomainURL());
    request.httpMethod = "POST";
    const std::string body = "token=" + *token_;
    request.httpBody.assign(body.begin(), body.end());
    request.setValueForHTTPHeaderField(std::to_string(body.size()), "Content-Length");
    qipg::PaymentWindowOptions options = windowOptions("Receipt");
    options.gateway.testBaseURL = options.gateway.productionBaseURL = kNeverFinalBaseURL;
    bool shot = false;
    std::unique_ptr<Window> window;
    options.onPageLoad = [&](qipg::PageLoadEvent event, const std::string& uri) {
      if (event == qipg::PageLoadEvent::Finished && uri == *request.url && window) {
        later_ = [&] { screenshot(*window, "final-page.png", [&shot] { shot = true; }); };
      }
    };
    window =
        toolkit_.present(request, qipg::makePaymentControllerDelegate(nullptr), options, nullptr);
    if (!window) return false;
    const bool ok = spinUntil([&] { return shot; }, 30);
    window->pressCancel();
    spinUntil([&] { return !window->isOpen(); }, 5);
    later_ = nullptr;
    return ok;
  }

  bool cardPayment() {
    orderB_ = "DEMO" + std::to_string(std::time(nullptr)) + "B";
    std::string failure;
    auto failed =
        qipg::makeResponseDelegate(nullptr, nullptr, [&](const std::string& m) { failure = m; });
    const auto request = client_->getCardCapturePaymentRequest(
        orderB_, "250.00", "INR", "Demo booking", 0, "Jane Doe", kSecondCard, futureExpiry(), "123",
        0, "", "", "", "", "", "", "", "", "", "", mid(), key(), failed);
    if (!request) {
      std::cout << "   " << failure << "\n";
      return false;
    }
    const std::string confirmation = client_->CurrentDomainURL() + "doMEPayRequestCard";
    const auto record = pay(
        *request, orderB_,
        [&](Window& window, const std::string& uri) {
          if (uri == confirmation)
            window.runJavaScript("document.querySelector('form').requestSubmit()");
        },
        "Card payment");
    if (!record) return false;
    rows_.push_back(rowOf("card-capture payment", *record,
                          "ref " + orEmpty(record->transactionReferenceNo()) + ", card " +
                              maskCardNumber(kSecondCard)));
    refB_ = record->transactionReferenceNo();
    return record->statusCode() == "S";
  }

  // A client of the idiomatic layer, for the management calls, with the test merchant's key or
  // another one.
  std::shared_ptr<qipg::Client> manager(const std::string& merchantKey) const {
    qipg::ClientOptions options;
    options.gateway = client_->config();
    options.merchantID = mid();
    options.encryptionKey = merchantKey;
    options.eventHook = verboseHook();
    qipg::Result<std::shared_ptr<qipg::Client>> made = qipg::Client::create(options);
    if (!made) std::cout << "   " << made.error().message << "\n";
    return made ? made.value() : nullptr;
  }

  // The result of a management call (bounded wait); a row for an error, and the record if any.
  std::optional<qipg::PaymentResponse> await(std::future<qipg::Result<qipg::PaymentResponse>> f,
                                             const std::string& operation,
                                             const std::string& order) {
    if (f.wait_for(std::chrono::seconds(30)) != std::future_status::ready) return std::nullopt;
    qipg::Result<qipg::PaymentResponse> result = f.get();
    if (result) return result.value();
    const qipg::Error& e = result.error();
    rows_.push_back({operation, order, std::string(qipg::errorKindName(e.kind)), e.message,
                     e.outcomeUnknown ? "may have been applied" : "nothing applied"});
    return std::nullopt;
  }

  bool status() {
    const auto client = manager(key());
    if (!client) return false;
    const auto record =
        await(client->status({.orderID = orderA_, .transactionRefNumber = orEmpty(refA_)}),
              "status inquiry", orderA_);
    if (!record) return false;
    const auto& r = *record;
    rows_.push_back(
        rowOf("status inquiry", r,
              "amount " + orEmpty(r.amount()) + ", captured " + orEmpty(r.captureStatus())));
    return r.statusCode() != "F";
  }

  bool refund() {
    const auto client = manager(key());
    if (!client) return false;
    const auto record =
        await(client->refund(
                  {.orderID = orderA_, .transactionRefNumber = orEmpty(refA_), .amount = "500.00"}),
              "partial refund", orderA_);
    if (!record) return false;
    const auto& r = *record;
    rows_.push_back(rowOf("partial refund", r, "refunded " + orEmpty(r.refundAmount())));
    return r.statusCode() == "S";
  }

  bool cancel() {
    const auto client = manager(key());
    if (!client) return false;
    const auto record =
        await(client->cancel({.orderID = orderB_, .transactionRefNumber = orEmpty(refB_)}),
              "cancel", orderB_);
    if (!record) return false;
    const auto& r = *record;
    rows_.push_back(rowOf("cancel", r, "request " + orEmpty(r.pgRefCancelReqID())));
    return r.statusCode() == "S";
  }

  bool inputError() {
    // A hyphen is not allowed in an order id: the client answers at once, sending nothing.
    const auto client = manager(key());
    return client &&
           !await(client->status({.orderID = "ORDER-1", .transactionRefNumber = orEmpty(refA_)}),
                  "status (bad order id)", "ORDER-1");
  }

  bool wrongKey() {
    // The sandbox cannot open the request, and its sealed refusal does not open with this key.
    const auto client = manager("notTheMerchantsKey0123456789ABCD");
    return client &&
           !await(client->status({.orderID = orderA_, .transactionRefNumber = orEmpty(refA_)}),
                  "status (wrong key)", orderA_);
  }

  void printTable() const {
    if (rows_.empty()) return;
    const char* headings[] = {"operation", "order", "status", "description", "detail"};
    std::size_t widths[5] = {};
    for (int c = 0; c < 5; ++c) widths[c] = std::string(headings[c]).size();
    const auto cells = [](const Row& r) {
      return std::vector<std::string>{r.operation, r.order, r.status, r.description, r.detail};
    };
    for (const Row& row : rows_) {
      const auto c = cells(row);
      for (int i = 0; i < 5; ++i) widths[i] = std::max(widths[i], c[i].size());
    }
    const auto line = [&](const std::vector<std::string>& c) {
      std::cout << "|";
      for (int i = 0; i < 5; ++i)
        std::cout << " " << std::left << std::setw(widths[i]) << c[i] << " |";
      std::cout << "\n";
    };
    std::cout << "\n";
    line({headings[0], headings[1], headings[2], headings[3], headings[4]});
    std::cout << "|";
    for (int i = 0; i < 5; ++i) std::cout << std::string(widths[i] + 2, '-') << "|";
    std::cout << "\n";
    for (const Row& row : rows_) line(cells(row));
  }

  static std::string mid() { return qipg::sandbox::kTestMerchantId; }
  static std::string key() { return qipg::sandbox::kTestMerchantKey; }

  std::filesystem::path out_;
  Toolkit toolkit_;
  std::function<void()> later_;  // see spinUntil()
  std::filesystem::path work_;
  std::unique_ptr<qipg::sandbox::Sandbox> sandbox_;
  std::shared_ptr<qipg::QuandrelIPG> client_;
  std::string orderA_, orderB_;
  qipg::Text refA_, refB_, token_;
  std::vector<Row> rows_;
  std::vector<std::string> screenshots_;
};

int runDemo(const std::string& outDir, const std::string& toolkit, bool embedded) {
  const std::filesystem::path out = outDir;
  std::error_code error;
  std::filesystem::create_directories(out, error);
  if (error || ::chmod(out.c_str(), 0700) != 0) {
    std::cerr << "ipg demo: cannot use " << out << " for the screenshots\n";
    return 1;
  }
  Tour tour(std::filesystem::absolute(out), toolkitNamed(toolkit, embedded));
  return tour.run();
}

#else

int runDemo(const std::string&, const std::string&, bool) {
  std::cerr << "ipg demo: this build has no sandbox gateway or no payment window\n";
  return 1;
}

#endif

}  // namespace

Command addDemoCommand(CLI::App& app) {
  auto out = std::make_shared<std::string>("demo-output");
  auto toolkit = std::make_shared<std::string>("gtk");
  auto embedded = std::make_shared<bool>(false);
  CLI::App* sub =
      app.add_subcommand("demo", "the tour: five operations end to end against a sandbox");
  sub->footer(
      "The tour of the library against a sandbox gateway started inside this process (nothing\n"
      "leaves this machine, and your own stored IV is not touched: the demo keeps its user\n"
      "defaults in a private temporary directory): a client for the sandbox seals and opens a\n"
      "sample message; a standard payment is completed in the real payment window, the test\n"
      "card filled in by the demo itself; a card-capture payment (a pre-authorisation); a status\n"
      "inquiry and a partial refund of the first payment, a cancel of the second (through\n"
      "qipg::Client); one input error, reported before anything is sent, and one call with a\n"
      "wrong merchant key, diagnosed. It prints one table of the records. It needs a\n"
      "display for the window (`make demo` runs it under Xvfb when there is none) and saves PNG\n"
      "screenshots of the payment page and of the final page in the output directory. The\n"
      "window is WebKitGTK's, or Qt WebEngine's with --toolkit qt: the same tour, the same\n"
      "screenshots and table. A payment that ends unclear (cancelled) is confirmed with the\n"
      "gateway's status of the order. With --embedded the payments run in the payment view\n"
      "placed in a small till window (a cart, a total, Pay), payment after payment in the same\n"
      "view, and the screenshots show the whole till.\n");
  sub->add_option("--out", *out, "directory for the screenshots (default demo-output)");
  addToolkitOption(*sub, *toolkit);
  sub->add_flag("--embedded", *embedded,
                "the payment view embedded in a till window instead of the payment window");
  return {sub, [out, toolkit, embedded] {
            if (const std::string missing = toolkitMissing(*toolkit); !missing.empty()) {
              std::cerr << "ipg demo: " << missing << "\n";
              return kExitUsage;
            }
            return runDemo(*out, *toolkit, *embedded);
          }};
}

}  // namespace ipg
