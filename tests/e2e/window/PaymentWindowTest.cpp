// The payment window with a real browser engine against the sandbox gateway, one body for
// every toolkit (Toolkit.h picks it): payments approved, declined and captured on the
// gateway's pages, Cancel and the close button with reconciliation, a final page without its
// result, an address that only begins like the final page, certificates trusted only where
// asked, and the progress line and a load failure.
// Every wait is bounded by a time-out that fails the test instead of hanging it.
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Sandbox.h"
#include "Toolkit.h"
#include "qipg/Client.h"
#include "qipg/QuandrelIPG.h"

namespace qipg {
namespace {

using toolkit::spinUntil;

constexpr char kUnusedBaseURL[] = "https://gateway.invalid/ipg/";
constexpr char kExpiry[] = "1249";

std::unique_ptr<sandbox::Sandbox> startSandbox(const std::string& name) {
  sandbox::Options options;
  options.dataDir = std::string(std::getenv("QIPG_E2E_TMP")) + "/" + name;
  std::string error;
  auto started = sandbox::Sandbox::start(options, &error);
  EXPECT_NE(started, nullptr) << error;
  return started;
}

std::string fillCardForm(const std::string& cardNumber) {
  return "(() => { const set = (id, v) => { document.getElementById(id).value = v; };"
         "set('cardNumber', '" +
         cardNumber + "'); set('expiry', '" + kExpiry +
         "');"
         "set('cvv', '123'); set('holder', 'Jane Doe');"
         "document.querySelector('form').requestSubmit(); return 'ok'; })()";
}

std::string upperScheme(std::string url) {
  std::transform(url.begin(), url.begin() + static_cast<long>(url.find(':')), url.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return url;
}

// A gateway on plain HTTP (loopback) whose payment page sends the browser on with a 303 to
// `location` (relative to its base URL), and whose final page answers with or without a query.
class RedirectingGateway {
 public:
  explicit RedirectingGateway(const std::string& location) {
    server_.Post("/ipg/doMEPayRequest",
                 [location](const httplib::Request&, httplib::Response& res) {
                   res.set_redirect(location, 303);
                 });
    server_.Get("/ipg/paymentInvoice", [](const httplib::Request&, httplib::Response& res) {
      res.set_content(
          "<p>Paid</p><div id=\"responseString\" style=\"display: none;\">ORD42|TXN9|RRN1|S|"
          "Transaction Successful|10.50|2024-01-02 10:11:12|AN|AZ|C|-|-|a1|a2|a3|a4|a5|a6|a7|a8|"
          "a9|a10</div>",
          "text/html");
    });
    server_.set_keep_alive_max_count(1);  // no connection outlives its request at stop()
    port_ = server_.bind_to_any_port("127.0.0.1");
    EXPECT_GT(port_, 0) << "no port on 127.0.0.1";
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    // Running before anything may stop it (a stop before that would be lost).
    while (port_ > 0 && !server_.is_running()) std::this_thread::yield();
  }
  ~RedirectingGateway() {
    server_.stop();
    thread_.join();
  }
  std::string baseURL() const { return "http://127.0.0.1:" + std::to_string(port_) + "/ipg/"; }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

// How a flow finds the final page: through the client that built the request, or through
// base URLs given to the window.
struct FinalPages {
  bool fromClient = true;
  std::string test, production;
};

// One payment window and what it did, in order.
struct Flow {
  Flow(const sandbox::Sandbox& gateway, bool cardCapture, const std::string& cardNumber,
       const FinalPages& finalPages, const std::function<void(PaymentWindowOptions&)>& adjust = {})
      : Flow(gateway.baseURL(), gateway.caFile(), cardCapture, cardNumber, finalPages, adjust) {}

  Flow(const std::string& baseURL, const std::string& caFile, bool cardCapture,
       const std::string& cardNumber, const FinalPages& finalPages,
       const std::function<void(PaymentWindowOptions&)>& adjust = {})
      : order(std::string(toolkit::kName) + std::to_string(++count)), gatewayBase(baseURL) {
    GatewayConfig clientConfig;
    clientConfig.testBaseURL = baseURL;
    clientConfig.caFile = caFile;
    client = QuandrelIPG::create(IPGEnvironmentTest, clientConfig);
    std::string failure;
    auto recorder =
        makeResponseDelegate(nullptr, nullptr, [&](const std::string& m) { failure = m; });
    const auto* mid = sandbox::kTestMerchantId;
    const auto* key = sandbox::kTestMerchantKey;
    auto built =
        cardCapture
            ? client->getCardCapturePaymentRequest(order, "7.25", "INR", "Tickets", 1, "Jane Doe",
                                                   cardNumber, kExpiry, "123", 0, "", "", "",
                                                   "", "", "", "", "", "", "", mid, key, recorder)
            : client->getStandardPaymentRequest(order, "10.50", "INR", "Books", 1, "", "", "", "",
                                                "", "", "", "", "", "", mid, key, recorder);
    EXPECT_TRUE(built.has_value()) << failure;
    request = built.value_or(URLRequest{});

    delegate = makePaymentControllerDelegate(
        [this](const PaymentResponse& response) {
          openWhenTold = window->isOpen();
          completed.push_back(response);
        },
        [this] {
          openWhenTold = window->isOpen();
          ++cancelled;
        });
    if (finalPages.fromClient) {
      options.client = client;
    } else {
      options.gateway.testBaseURL = finalPages.test;
      options.gateway.productionBaseURL = finalPages.production;
    }
    options.trustedCAFile = caFile;
    options.trustedHost = "127.0.0.1";
    options.onPageLoad = [this](PageLoadEvent event, const std::string& uri) {
      loads.emplace_back(event, uri);
      if (event == PageLoadEvent::Finished && uri.rfind(gatewayBase, 0) != 0 && window &&
          toolkit::webViewShown(*window)) {
        blankShown = true;
      }
    };
    if (adjust) adjust(options);
  }

  void open() {
    std::string error;
    window = toolkit::present(request, delegate, options, &error);
    ASSERT_NE(window, nullptr) << error;
  }

  // Through the request's QuandrelIPG, or with `cppClientHook` a qipg::Client of the same
  // gateway with that event hook.
  void reconcile(EventHook cppClientHook = nullptr) {
    options.client = client;
    options.reconcile = PaymentReconciliation{order, sandbox::kTestMerchantId,
                                              sandbox::kTestMerchantKey,
                                              [this](const PaymentResponse& status) {
                                                statuses.push_back(status);
                                              }};
    if (!cppClientHook) return;
    ClientOptions typed;
    typed.gateway = client->config();
    typed.merchantID = sandbox::kTestMerchantId;
    typed.encryptionKey = sandbox::kTestMerchantKey;
    typed.eventHook = std::move(cppClientHook);
    options.client = nullptr;
    options.cppClient = Client::create(typed).value();
  }

  bool told() const { return cancelled + completed.size() > 0; }
  bool saw(PageLoadEvent event, const std::string& uri = "") const {
    for (const auto& load : loads) {
      if (load.first == event && (uri.empty() || load.second == uri)) return true;
    }
    return false;
  }
  // Every start is followed by exactly one finish or failure before the next start.
  bool startsAndEndsPair() const {
    bool open = false;
    for (const auto& load : loads) {
      if ((load.first == PageLoadEvent::Started) == open) return false;
      open = load.first == PageLoadEvent::Started;
    }
    return !open;
  }
  Text run(const std::string& script) {
    bool answered = false;
    Text result;
    window->runJavaScript(script, [&](const Text& r) {
      result = r;
      answered = true;
    });
    EXPECT_TRUE(spinUntil([&] { return answered; })) << "no answer to a script";
    return result;
  }

  static inline int count = 0;
  std::string order;
  std::string gatewayBase;
  std::shared_ptr<QuandrelIPG> client;
  URLRequest request;
  PaymentWindowOptions options;
  std::vector<std::pair<PageLoadEvent, std::string>> loads;
  std::vector<PaymentResponse> completed;
  std::vector<PaymentResponse> statuses;
  std::size_t cancelled = 0;
  bool openWhenTold = true;
  bool blankShown = false;
  std::shared_ptr<IPGPaymentControllerDelegate> delegate;
  std::shared_ptr<toolkit::Window> window;
};

// A picture of the card form in the window: a PNG only its owner may read. Kept in
// $QIPG_E2E_SHOTS when set (for looking at both toolkits' windows side by side).
void expectScreenshot(toolkit::Window& window) {
  const char* keep = std::getenv("QIPG_E2E_SHOTS");
  const std::string path = std::string(keep ? keep : std::getenv("QIPG_E2E_TMP")) + "/" +
                           toolkit::kName + "-card-form.png";
  spinUntil([] { return false; }, 1);  // the form painted
  bool done = false, saved = false;
  window.saveScreenshot(path, [&](bool ok) {
    saved = ok;
    done = true;
  });
  ASSERT_TRUE(spinUntil([&] { return done; }));
  ASSERT_TRUE(saved);
  struct stat info {};
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  std::ifstream png(path, std::ios::binary);
  std::string signature(8, '\0');
  png.read(signature.data(), 8);
  EXPECT_EQ(signature, "\x89PNG\r\n\x1a\n");
}

class PaymentWindowTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { gateway = startSandbox("sandbox").release(); }
  static void TearDownTestSuite() { delete gateway; }
  void SetUp() override { ASSERT_NE(gateway, nullptr); }
  static std::string page(const char* name) { return gateway->baseURL() + name; }

  static inline sandbox::Sandbox* gateway = nullptr;
};

TEST_F(PaymentWindowTest, PaymentsOnTheGatewaysPagesReachTheDelegateAfterDismissal) {
  const std::string base = gateway->baseURL();
  const struct {
    const char* name;
    bool cardCapture;
    const char* card;
    FinalPages finalPages;
    const char* status;
    const char* description;
  } cases[] = {
      {"standard, the client's test address", false, "4111 1111 1111 1111", {}, "S",
       "Transaction successful"},
      {"standard, declined card", false, "4000000000000002", {}, "F", "Declined by issuer"},
      {"card capture, production address spelt in capitals", true, "4111111111111111",
       {false, kUnusedBaseURL, upperScheme(base)}, "S", "Transaction successful"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Flow flow(*gateway, c.cardCapture, c.card, c.finalPages);
    if (c.finalPages.fromClient) flow.reconcile();  // asked for; a readable record needs none
    flow.open();
    ASSERT_TRUE(spinUntil([&] {
      return flow.saw(PageLoadEvent::Finished,
                      page(c.cardCapture ? "doMEPayRequestCard" : "doMEPayRequest"));
    })) << "the gateway's payment page did not load";
    EXPECT_FALSE(flow.blankShown) << "a page before the gateway's was shown";
    if (&c == &cases[0]) expectScreenshot(*flow.window);

    flow.run(c.cardCapture ? "document.querySelector('form').requestSubmit()"
                           : fillCardForm(c.card));
    ASSERT_TRUE(spinUntil([&] { return flow.told(); })) << "the final page was not read";
    EXPECT_TRUE(flow.saw(PageLoadEvent::Finished, page("paymentInvoice")));
    EXPECT_TRUE(flow.startsAndEndsPair());
    EXPECT_FALSE(flow.openWhenTold) << "the delegate was told before the dismissal";
    ASSERT_EQ(flow.completed.size(), 1u);
    const PaymentResponse& record = flow.completed[0];
    EXPECT_EQ(record.orderID(), Text(flow.order));
    EXPECT_EQ(record.statusCode(), Text(c.status));
    EXPECT_EQ(record.statusDescription(), Text(c.description));
    EXPECT_EQ(record.amount(), Text(c.cardCapture ? "7.25" : "10.50"));
    const auto stored = gateway->transaction(sandbox::kTestMerchantId, flow.order);
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(record.transactionReferenceNo(), Text(stored->referenceNo));
    EXPECT_EQ(stored->state, c.status[0] == 'S' ? "captured" : "failed");
    toolkit::drain();
    EXPECT_TRUE(flow.statuses.empty());
  }
}

// The customer leaves (Cancel, the window's close button, or a kiosk's idle limit), or the
// final page arrives spoilt: the delegate hears what the window saw, and reconciliation what the gateway knows,
// through the request's QuandrelIPG or a qipg::Client (the sandbox spoils the final page before
// it takes the payment).
TEST_F(PaymentWindowTest, UnclearEndingsAreReconciledWithTheGateway) {
  const struct {
    const char* name;
    std::function<void(Flow&)> finish;
    bool cancelled;
    const char* state;   // the gateway's record of the order
    const char* status;  // its status record's code
    bool cppClient = false;
    unsigned idleSeconds = 0;  // a kiosk's limit, with large text
  } cases[] = {
      {"Cancel on the card form", [](Flow& f) { f.window->pressCancel(); }, true, "pending", "P"},
      {"the close button, a window of qipg::Client",
       [](Flow& f) { toolkit::closeWithWindowButton(*f.window); }, true, "pending", "P", true},
      {"card form posted, final page without its result",
       [](Flow& f) {
         gateway->setFault(sandbox::Endpoint::kPaymentInvoice, sandbox::Fault::kGarbage);
         f.run(fillCardForm("4111111111111111"));
       },
       false, "pending", "P"},
      {"a kiosk's idle limit", [](Flow&) {}, true, "pending", "P", false, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Flow flow(*gateway, false, "", {}, [&](PaymentWindowOptions& options) {
      options.idleCancelSeconds = c.idleSeconds;
      options.largeText = options.fullScreen = c.idleSeconds > 0;
    });
    // The window's steps reach the client's hook, its reconciliation's status call among them.
    auto seen = std::make_shared<std::pair<std::mutex, std::vector<qipg::Event>>>();
    const EventHook hook = [seen](const qipg::Event& event) {
      std::lock_guard lock(seen->first);
      seen->second.push_back(event);
    };
    flow.client->setEventHook(hook);
    flow.reconcile(c.cppClient ? hook : nullptr);
    auto windowSteps = [&] {
      std::lock_guard lock(seen->first);
      std::vector<std::string> steps;
      for (const qipg::Event& event : seen->second) {
        if (event.operation == "payment") steps.emplace_back(qipg::eventKindName(event.kind));
      }
      return steps;
    };
    flow.open();
    ASSERT_TRUE(
        spinUntil([&] { return flow.saw(PageLoadEvent::Finished, page("doMEPayRequest")); }));
    c.finish(flow);
    ASSERT_TRUE(spinUntil([&] { return !flow.statuses.empty(); })) << "no reconciliation";
    gateway->clearFaults();
    EXPECT_EQ(flow.cancelled, c.cancelled ? 1u : 0u);
    EXPECT_FALSE(flow.openWhenTold) << "the delegate was told before the dismissal";
    EXPECT_EQ(flow.window->nativeWindow() == nullptr || !flow.window->isOpen(), true);
    if (!c.cancelled) {  // the delegate's record is the unreadable one, as ever
      ASSERT_EQ(flow.completed.size(), 1u);
      EXPECT_EQ(flow.completed[0].statusCode(), Text("F"));
      EXPECT_EQ(flow.completed[0].orderID(), std::nullopt);
    }
    const auto stored = gateway->transaction(sandbox::kTestMerchantId, flow.order);
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(stored->state, c.state);
    ASSERT_EQ(flow.statuses.size(), 1u);
    EXPECT_EQ(flow.statuses[0].orderID(), Text(flow.order))
        << flow.statuses[0].statusDescription().value_or("");
    EXPECT_EQ(flow.statuses[0].statusCode(), Text(c.status));
    ASSERT_TRUE(spinUntil([&] {  // the hook hears it on its own thread
      const std::vector<std::string> steps = windowSteps();
      return !steps.empty() && steps.back() == "reconciled";
    }));
    const std::vector<std::string> steps = windowSteps();
    EXPECT_EQ(steps.front(), "window-opened");
    EXPECT_EQ(std::vector(steps.end() - 2, steps.end()),
              (std::vector<std::string>{"final-page-read", "reconciled"}));
    EXPECT_EQ(std::count(steps.begin(), steps.end(), "page-loaded"),
              static_cast<long>(steps.size()) - 3);
  }
}

// A host without a main loop of its own: the window run to its end gives the cancel and the
// gateway's record of the order together.
TEST_F(PaymentWindowTest, RunToTheEndGivesTheOutcomeWithTheReconciledRecord) {
  if (toolkit::embedded()) GTEST_SKIP() << "a window's function";
  Flow flow(*gateway, false, "", {});
  flow.reconcile();
  flow.options.onPageLoad = [&](PageLoadEvent event, const std::string& uri) {
    if (event == PageLoadEvent::Finished && uri == page("doMEPayRequest")) {
      toolkit::later(&toolkit::closeTopWindows);
    }
  };
  std::string error;
  const auto outcome = toolkit::run(flow.request, flow.options, &error);
  ASSERT_TRUE(outcome.has_value()) << error;
  EXPECT_TRUE(outcome->cancelled);
  ASSERT_TRUE(outcome->reconciled.has_value());
  EXPECT_EQ(outcome->reconciled->orderID(), Text(flow.order));
  EXPECT_EQ(outcome->reconciled->statusCode(), Text("P"));
  EXPECT_EQ(flow.statuses.size(), 1u);  // the host's own callback heard it too
}

// A till takes payment after payment in one view: each payment tells its own delegate, and
// nothing of one is left in the view for the next.
TEST_F(PaymentWindowTest, OneViewTakesPaymentAfterPayment) {
  if (!toolkit::embedded()) GTEST_SKIP() << "a window takes one payment";
  const std::string form = page("doMEPayRequest");
  Flow first(*gateway, false, "", {});
  first.open();
  ASSERT_TRUE(spinUntil([&] { return first.saw(PageLoadEvent::Finished, form); }));
  first.run(fillCardForm("4111111111111111"));
  ASSERT_TRUE(spinUntil([&] { return first.told(); }));
  const auto view = first.window->view();
  EXPECT_EQ(view->nativeWebView(), nullptr);

  // A journal that cannot take a payment: nothing loads, the delegate hears why, the view is free.
  Flow refused(*gateway, false, "", {});
  refused.window = std::make_shared<toolkit::Window>(view, first.window->nativeWindow(), nullptr);
  refused.options.journal = PaymentJournal{.path = "/dev/null/journal.sqlite3"};
  std::string error;
  ASSERT_TRUE(view->start(refused.request, refused.delegate, refused.options, &error)) << error;
  ASSERT_TRUE(spinUntil([&] { return refused.told() && !view->isActive(); }));
  EXPECT_EQ(refused.completed.at(0).statusDescription()->rfind("the payment was not started", 0), 0u);

  Flow second(*gateway, false, "", {});
  second.window = std::make_shared<toolkit::Window>(view, first.window->nativeWindow(), nullptr);
  ASSERT_TRUE(view->start(second.request, second.delegate, second.options, &error)) << error;
  EXPECT_FALSE(view->start(second.request, second.delegate, second.options, &error));
  EXPECT_EQ(error, "a payment is under way in this view");
  ASSERT_TRUE(spinUntil([&] { return second.saw(PageLoadEvent::Finished, form); }));
  EXPECT_EQ(toolkit::progressLine(*second.window)->shown, false);
  second.window->pressCancel();
  ASSERT_TRUE(spinUntil([&] { return second.told(); }));
  toolkit::drain();
  ASSERT_EQ(first.completed.size(), 1u);
  EXPECT_EQ(first.completed[0].statusCode(), Text("S"));
  EXPECT_EQ(first.cancelled + second.completed.size(), 0u);
  EXPECT_EQ(second.cancelled, 1u);
}

// The final page is the return address itself, as the engine reports it: a gateway that sends
// the customer to it with an empty query or fragment added leaves the window on that page.
TEST_F(PaymentWindowTest, OnlyTheReturnAddressItselfEndsThePayment) {
  const struct {
    const char* location;
    bool final;
  } cases[] = {{"paymentInvoice?", false}, {"paymentInvoice#", false}, {"paymentInvoice", true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.location);
    RedirectingGateway other(c.location);
    Flow flow(other.baseURL(), "", false, "", {});
    flow.open();
    const std::string invoice = other.baseURL() + "paymentInvoice";
    ASSERT_TRUE(spinUntil([&] {
      for (const auto& [event, uri] : flow.loads) {
        if (event == PageLoadEvent::Finished && uri.rfind(invoice, 0) == 0) return true;
      }
      return false;
    })) << "the redirect was not followed";
    if (c.final) {
      ASSERT_TRUE(spinUntil([&] { return flow.told(); }));
      ASSERT_EQ(flow.completed.size(), 1u);
      EXPECT_EQ(flow.completed[0].orderID(), Text("ORD42"));
      EXPECT_EQ(flow.completed[0].statusCode(), Text("S"));
      continue;
    }
    spinUntil([] { return false; }, 1);  // a wrongly final page is read within this second
    EXPECT_FALSE(flow.told());
    EXPECT_TRUE(flow.window->isOpen());
    EXPECT_EQ(flow.run("location.href"), Text(other.baseURL() + c.location));
    flow.window->pressCancel();
    ASSERT_TRUE(spinUntil([&] { return flow.told(); }));
    EXPECT_EQ(flow.cancelled, 1u);
  }
}

TEST_F(PaymentWindowTest, SandboxCertificateIsTrustedOnlyForItsHostAndOnlyWhenAsked) {
  // A gateway whose certificate no window of this process has accepted yet (an engine may keep
  // an accepted certificate for the whole process).
  auto other = startSandbox("other");
  ASSERT_NE(other, nullptr);
  const std::string form = other->baseURL() + "doMEPayRequest";
  const std::pair<std::string, std::string> trusts[] = {
      {"", ""},                          // not asked
      {other->caFile(), "localhost"},    // another host
      {gateway->caFile(), "127.0.0.1"},  // another authority
  };
  for (const auto& trust : trusts) {
    const std::string caFile = trust.first, host = trust.second;
    SCOPED_TRACE(caFile + " for " + host);
    Flow flow(*other, false, "", {}, [&](PaymentWindowOptions& options) {
      options.trustedCAFile = caFile;
      options.trustedHost = host;
    });
    flow.open();
    ASSERT_TRUE(spinUntil([&] { return flow.saw(PageLoadEvent::Failed, form); }));
    toolkit::drain();
    EXPECT_FALSE(flow.saw(PageLoadEvent::Finished, form));
    EXPECT_TRUE(flow.window->isOpen());
    flow.window->pressCancel();
    ASSERT_TRUE(spinUntil([&] { return flow.told(); }));
  }
}

TEST_F(PaymentWindowTest, ProgressLineShowsWhileLoadingAndAFailureLeavesTheWindowUp) {
  auto doomed = startSandbox("doomed");
  ASSERT_NE(doomed, nullptr);
  // The gateway holds the payment page's request: the line shows until it is answered.
  doomed->setFault(sandbox::Endpoint::kPaymentPage, sandbox::Fault::kHang);
  Flow flow(*doomed, false, "", {}, [](PaymentWindowOptions& options) {
    options.language = "hi_IN";  // the chrome only: the gateway's page and the records stay
  });
  flow.open();
  std::optional<toolkit::Line> line;
  ASSERT_TRUE(spinUntil([&] {
    line = toolkit::progressLine(*flow.window);
    return doomed->heldRequests() == 1 && line && line->shown && line->width > 0;
  })) << "the line did not show";
  // Along the bottom edge of the bar's content box, 2 pixels high, its full width.
  EXPECT_EQ(line->x, 0.0);
  EXPECT_EQ(line->y, line->barHeight - 2.0);
  EXPECT_EQ(line->width, line->barWidth);
  EXPECT_EQ(line->height, 2.0);
  // Each control of ours is named for assistive technology, in the options' language, the
  // line with its value.
  for (const auto& [role, name] : {std::pair{toolkit::Role::Button, "रद्द करें"},
                                   {toolkit::Role::ProgressBar, "लोड हो रहा है"},
                                   {toolkit::Role::Image, "सुरक्षित कनेक्शन"},
                                   {toolkit::Role::Any, "भुगतान पृष्ठ"},
                                   {toolkit::Role::Any, "भुगतान"}}) {
    EXPECT_TRUE(toolkit::named(*flow.window, role, name)) << name;
  }

  doomed->clearFaults();
  const std::string form = doomed->baseURL() + "doMEPayRequest";
  ASSERT_TRUE(spinUntil([&] { return flow.saw(PageLoadEvent::Finished, form); }));
  EXPECT_FALSE(toolkit::progressLine(*flow.window)->shown);

  // The gateway goes away; the card form's post fails.
  flow.loads.clear();
  doomed->stop();
  flow.run(fillCardForm("4111111111111111"));
  ASSERT_TRUE(spinUntil([&] { return flow.saw(PageLoadEvent::Failed); })) << "no failure";
  toolkit::drain();
  EXPECT_TRUE(flow.window->isOpen());
  EXPECT_FALSE(flow.told());
  EXPECT_FALSE(toolkit::progressLine(*flow.window)->shown);
  // The card form is still there for the customer, who can still cancel.
  EXPECT_EQ(flow.run("document.getElementById('cardNumber') ? 'form' : 'gone'"), Text("form"));
  flow.window->pressCancel();
  ASSERT_TRUE(spinUntil([&] { return flow.told(); }));
  EXPECT_EQ(flow.cancelled, 1u);
}

}  // namespace
}  // namespace qipg
