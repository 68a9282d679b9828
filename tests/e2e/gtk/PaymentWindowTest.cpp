// The payment window with real WebKit against the sandbox gateway: payments completed and
// declined on the gateway's pages under the test and the production address, Cancel and the
// window's close button, the progress line while a page loads, and a load failure.
// Every wait is bounded by a GLib time-out that fails the test instead of hanging it.
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Sandbox.h"
#include "qipg/PaymentWindow.h"
#include "qipg/QuandrelIPG.h"

namespace qipg {
namespace {

constexpr char kUnusedBaseURL[] = "https://gateway.invalid/ipg/";

// Iterates the main loop until `done()`; false when `seconds` pass first.
bool spinUntil(const std::function<bool()>& done, unsigned seconds = 120) {
  return runMainLoopUntil(done, seconds);
}

std::unique_ptr<sandbox::Sandbox> startSandbox(const std::string& name) {
  sandbox::Options options;
  options.dataDir = std::string(std::getenv("QIPG_E2E_TMP")) + "/" + name;
  std::string error;
  auto started = sandbox::Sandbox::start(options, &error);
  EXPECT_NE(started, nullptr) << error;
  return started;
}

constexpr char kExpiry[] = "1249";

std::string fillCardForm(const std::string& cardNumber) {
  return "(() => { const set = (id, v) => { document.getElementById(id).value = v; };"
         "set('cardNumber', '" +
         cardNumber + "'); set('expiry', '" + kExpiry + "');"
         "set('cvv', '123'); set('holder', 'Jane Doe');"
         "document.querySelector('form').requestSubmit(); return 'ok'; })()";
}

GatewayConfig finalPageUnder(const std::string& testBase, const std::string& productionBase) {
  GatewayConfig config;
  config.testBaseURL = testBase;
  config.productionBaseURL = productionBase;
  return config;
}

// The progress lines under `window`.
void findLines(GtkWidget* widget, std::vector<GtkWidget*>& lines) {
  if (gtk_widget_has_css_class(widget, "qipg-progress-line")) lines.push_back(widget);
  for (GtkWidget* c = gtk_widget_get_first_child(widget); c; c = gtk_widget_get_next_sibling(c)) {
    findLines(c, lines);
  }
}

// One payment window and what it did, in order.
struct Flow {
  Flow(const sandbox::Sandbox& gateway, bool cardCapture, const std::string& cardNumber,
       GatewayConfig finalPages, const std::function<void(PaymentWindowOptions&)>& adjust = {})
      : order("GTK" + std::to_string(++count)) {
    GatewayConfig clientConfig;
    clientConfig.testBaseURL = gateway.baseURL();
    clientConfig.caFile = gateway.caFile();
    auto client = QuandrelIPG::create(IPGEnvironmentTest, clientConfig);
    std::string failure;
    auto recorder =
        makeResponseDelegate(nullptr, nullptr, [&](const std::string& m) { failure = m; });
    const auto* mid = sandbox::kTestMerchantId;
    const auto* key = sandbox::kTestMerchantKey;
    auto request =
        cardCapture
            ? client->getCardCapturePaymentRequest(order, "7.25", "INR", "Tickets", 1, "Jane Doe",
                                                   cardNumber, kExpiry, "123", 0, "", "", "",
                                                   "", "", "", "", "", "", "", mid, key, recorder)
            : client->getStandardPaymentRequest(order, "10.50", "INR", "Books", 1, "", "", "", "",
                                                "", "", "", "", "", "", mid, key, recorder);
    EXPECT_TRUE(request.has_value()) << failure;

    delegate = makePaymentControllerDelegate(
        [this](const PaymentResponse& response) {
          openWhenTold = window->isOpen();
          completed.push_back(response);
        },
        [this] {
          openWhenTold = window->isOpen();
          ++cancelled;
        });
    PaymentWindowOptions options;
    options.gateway = std::move(finalPages);
    options.trustedCAFile = gateway.caFile();
    options.trustedHost = "127.0.0.1";
    options.onPageLoad = [this](PageLoadEvent event, const std::string& uri) {
      loads.emplace_back(event, uri);
    };
    if (adjust) adjust(options);
    std::string error;
    window = presentPaymentWindow(request.value_or(URLRequest{}), delegate, options, &error);
    EXPECT_NE(window, nullptr) << error;
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
  std::vector<std::pair<PageLoadEvent, std::string>> loads;
  std::vector<PaymentResponse> completed;
  std::size_t cancelled = 0;
  bool openWhenTold = true;
  std::shared_ptr<IPGPaymentControllerDelegate> delegate;
  std::shared_ptr<PaymentWindow> window;
};

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
    GatewayConfig finalPages;
    const char* status;
    const char* description;
  } cases[] = {
      {"standard, test address", false, "4111 1111 1111 1111", finalPageUnder(base, kUnusedBaseURL),
       "S", "Transaction successful"},
      {"standard, declined card", false, "4000000000000002", finalPageUnder(base, kUnusedBaseURL),
       "F", "Declined by issuer"},
      {"card capture, production address", true, "4111111111111111",
       finalPageUnder(kUnusedBaseURL, base), "S", "Transaction successful"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Flow flow(*gateway, c.cardCapture, c.card, c.finalPages);
    ASSERT_TRUE(spinUntil([&] {
      return flow.saw(PageLoadEvent::Finished,
                      page(c.cardCapture ? "doMEPayRequestCard" : "doMEPayRequest"));
    })) << "the gateway's payment page did not load";

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
  }
}

TEST_F(PaymentWindowTest, CancelButtonAndCloseButtonCancelAfterDismissal) {
  const std::function<void(GtkWindow*)> closers[] = {
      [](GtkWindow* window) {  // the bar's Cancel button
        GtkWidget* bar = gtk_widget_get_first_child(GTK_WIDGET(window));
        GtkWidget* cancel = nullptr;
        for (GtkWidget* w = bar; w != nullptr && cancel == nullptr;
             w = gtk_widget_get_first_child(w)) {
          if (GTK_IS_BUTTON(w)) cancel = w;
        }
        ASSERT_NE(cancel, nullptr);
        EXPECT_STREQ(gtk_button_get_label(GTK_BUTTON(cancel)), "Cancel");
        g_signal_emit_by_name(cancel, "clicked");
      },
      [](GtkWindow* window) { gtk_window_close(window); },  // the window's close button
  };
  for (const auto& close : closers) {
    Flow flow(*gateway, false, "", finalPageUnder(gateway->baseURL(), kUnusedBaseURL));
    ASSERT_TRUE(
        spinUntil([&] { return flow.saw(PageLoadEvent::Finished, page("doMEPayRequest")); }));
    close(GTK_WINDOW(flow.window->nativeWindow()));
    ASSERT_TRUE(spinUntil([&] { return flow.told(); }));
    EXPECT_EQ(flow.cancelled, 1u);
    EXPECT_TRUE(flow.completed.empty());
    EXPECT_FALSE(flow.openWhenTold) << "the delegate was told before the dismissal";
    EXPECT_EQ(flow.window->nativeWindow(), nullptr);  // the window is gone for good
  }
}

TEST_F(PaymentWindowTest, SandboxCertificateIsTrustedOnlyForItsHostAndOnlyWhenAsked) {
  // A gateway whose certificate no window of this process has accepted yet (WebKit keeps an
  // accepted certificate for the whole process).
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
    Flow flow(*other, false, "", finalPageUnder(other->baseURL(), kUnusedBaseURL),
              [&](PaymentWindowOptions& options) {
                options.trustedCAFile = caFile;
                options.trustedHost = host;
              });
    ASSERT_TRUE(spinUntil([&] { return flow.saw(PageLoadEvent::Failed, form); }));
    while (g_main_context_pending(nullptr)) g_main_context_iteration(nullptr, FALSE);
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
  Flow flow(*doomed, false, "", finalPageUnder(doomed->baseURL(), kUnusedBaseURL));
  std::vector<GtkWidget*> lines;
  graphene_rect_t line{};
  ASSERT_TRUE(spinUntil([&] {
    lines.clear();
    findLines(GTK_WIDGET(flow.window->nativeWindow()), lines);
    return doomed->heldRequests() == 1 && lines.size() == 1 && gtk_widget_get_mapped(lines[0]) &&
           gtk_widget_compute_bounds(lines[0], gtk_widget_get_parent(lines[0]), &line) &&
           line.size.width > 0;
  })) << "the line did not show";
  // In the bar's own coordinates and size (its content box, above its bottom border).
  GtkWidget* bar = gtk_widget_get_parent(lines[0]);
  EXPECT_EQ(line.origin.x, 0.0f);
  EXPECT_EQ(line.origin.y, gtk_widget_get_height(bar) - 2.0f);
  EXPECT_EQ(line.size.width, static_cast<float>(gtk_widget_get_width(bar)));
  EXPECT_EQ(line.size.height, 2.0f);

  doomed->clearFaults();
  const std::string form = doomed->baseURL() + "doMEPayRequest";
  ASSERT_TRUE(spinUntil([&] { return flow.saw(PageLoadEvent::Finished, form); }));
  EXPECT_FALSE(gtk_widget_get_visible(lines[0]));

  // The gateway goes away; the card form's post fails.
  flow.loads.clear();
  doomed->stop();
  flow.run(fillCardForm("4111111111111111"));
  ASSERT_TRUE(spinUntil([&] { return flow.saw(PageLoadEvent::Failed); })) << "no failure";
  while (g_main_context_pending(nullptr)) g_main_context_iteration(nullptr, FALSE);
  EXPECT_TRUE(flow.window->isOpen());
  EXPECT_FALSE(flow.told());
  EXPECT_FALSE(gtk_widget_get_visible(lines[0]));
  // The card form is still there for the customer, who can still cancel.
  EXPECT_EQ(flow.run("document.getElementById('cardNumber') ? 'form' : 'gone'"), Text("form"));
  flow.window->pressCancel();
  ASSERT_TRUE(spinUntil([&] { return flow.told(); }));
  EXPECT_EQ(flow.cancelled, 1u);
}

}  // namespace
}  // namespace qipg
