// The payment page controller driven through fake ports and a manual clock: the progress
// line's arithmetic, the final-page test, the read-out of the hidden result, and the order of
// dismissal and delegate messages.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "qipg/WebviewController.h"
#include "unit/ui/PaymentPageFakes.h"

namespace qipg {
namespace {

using namespace qipg::testing;

constexpr char kTestBase[] = "https://127.0.0.1:8443/ipg/";
constexpr char kProductionBase[] = "https://gateway.example.test/";
const std::string kTestFinal = std::string(kTestBase) + "paymentInvoice";
const std::string kProductionFinal = std::string(kProductionBase) + "paymentInvoice";

// A 22-field payment result as the gateway writes it into its final page.
constexpr char kResult[] =
    "\"ORD 42\"|TXN9|RRN1|S|Transaction Successful|100.00|2024-01-02 10:11:12|AN|AZ|C|-|-|"
    "a1|a2|a3|a4|a5|a6|a7|a8|a9|a10";

std::string finalPageBody(const std::string& result) {
  return "<h1>Thank you</h1>\n<div id=\"responseString\" style=\"display: none;\">" + result +
         "</div><p>You may close this window.</p>";
}

class WebviewControllerTest : public ::testing::Test {
 protected:
  WebviewControllerTest() {
    GatewayConfig config;
    config.testBaseURL = kTestBase;
    config.productionBaseURL = kProductionBase;
    controller = WebviewController::create(config);
    controller->setIpgWebView(webView);
    controller->setNavBarView(barView);
    controller->setLblNavBarTitle(label);
    controller->setDelegate(delegate);
    controller->setTimerScheduler(clock);
    controller->setPresenter(presenter);
    URLRequest request;
    request.url = std::string(kTestBase) + "doMEPayRequest";
    controller->setRequest(request);
  }

  // Presented: loaded, on screen, first load started.
  void present() {
    controller->viewDidLoad();
    controller->viewDidAppear(true);
    controller->webViewDidStartLoad();
  }

  void finishLoadAt(const Text& address) {
    webView->address = address;
    controller->webViewDidFinishLoad();
  }

  std::shared_ptr<EventLog> log = std::make_shared<EventLog>();
  std::shared_ptr<FakeWebView> webView = std::make_shared<FakeWebView>(log);
  std::shared_ptr<FakeBarView> barView = std::make_shared<FakeBarView>();
  std::shared_ptr<FakeLabel> label = std::make_shared<FakeLabel>();
  std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
  std::shared_ptr<FakePresenter> presenter = std::make_shared<FakePresenter>(log);
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>(log);
  std::shared_ptr<WebviewController> controller;
};

TEST_F(WebviewControllerTest, EachAppearanceAddsALineAlongTheBarsBottomEdgeAndLoads) {
  controller->viewDidLoad();
  EXPECT_EQ(label->text, Text(""));
  controller->viewDidAppear(false);
  ASSERT_EQ(barView->bars.size(), 1u);
  EXPECT_EQ(barView->newest().frame, (Rect{0, 42, 390, 2}));
  ASSERT_EQ(webView->loaded.size(), 1u);
  EXPECT_EQ(webView->loaded[0].url, controller->request()->url);

  // Earlier lines stay; the progress display works on the newest only.
  controller->viewDidAppear(true);
  ASSERT_EQ(barView->bars.size(), 2u);
  EXPECT_EQ(webView->loaded.size(), 2u);
  controller->webViewDidStartLoad();
  clock->advance(3);
  EXPECT_FLOAT_EQ(barView->bars[1]->progressValue, 0.15f);
  EXPECT_EQ(barView->bars[0]->progressValue, 0.0f);

  // A request without a URL is not loaded; the line is still added.
  controller->setRequest(URLRequest{});
  controller->viewDidAppear(true);
  EXPECT_EQ(webView->loaded.size(), 2u);
  EXPECT_EQ(barView->bars.size(), 3u);
}

TEST_F(WebviewControllerTest, ProgressClimbsByFiveHundredthsForEighteenTicksAndNoFurther) {
  present();
  auto& bar = barView->newest();
  EXPECT_FALSE(bar.hidden);
  ASSERT_EQ(clock->intervals, std::vector<double>{0.1});
  for (int tick = 1; tick <= 18; ++tick) {
    clock->advance(1);
    EXPECT_NEAR(bar.progressValue, 0.05 * tick, 1e-5) << "tick " << tick;
  }
  // Stored as float, the steps land just above 0.9 after 18 ticks; nothing moves after that.
  const float top = bar.progressValue;
  EXPECT_GT(static_cast<double>(top), 0.9);
  clock->advance(100);
  EXPECT_EQ(bar.progressValue, top);
  EXPECT_EQ(clock->running(), 1);

  controller->webViewDidFinishLoad();
  EXPECT_EQ(bar.progressValue, 1.0f);
  EXPECT_TRUE(bar.hidden);
  EXPECT_EQ(clock->running(), 0);
}

TEST_F(WebviewControllerTest, OverlappingLoadsLeaveOlderTimersRunningAndTheLineClimbsFaster) {
  present();
  controller->webViewDidStartLoad();  // a redirect: a second timer, the first runs on
  auto& bar = barView->newest();
  clock->advance(1);
  EXPECT_NEAR(bar.progressValue, 0.10, 1e-6);

  controller->webViewDidFinishLoad();  // only the newest timer is stopped
  EXPECT_TRUE(clock->timers[0]->isValid());
  EXPECT_FALSE(clock->timers[1]->isValid());
  clock->advance(5);
  EXPECT_EQ(bar.progressValue, 1.0f);  // no effect above 0.9
  EXPECT_TRUE(bar.hidden);

  controller->webViewDidStartLoad();
  EXPECT_EQ(bar.progressValue, 0.0f);
  clock->advance(4);
  EXPECT_NEAR(bar.progressValue, 0.40, 1e-5);
  clock->advance(50);  // a step is taken only from 0.9 or below: never above 0.95
  EXPECT_LE(bar.progressValue, 0.95f);
  EXPECT_GT(bar.progressValue, 0.9f);
}

TEST_F(WebviewControllerTest, FinalPageIsRecognisedByWholeAddressOnly) {
  const struct {
    Text address;
    bool final;
  } cases[] = {
      {kTestFinal, true},
      {kProductionFinal, true},  // whichever environment the client was made for
      {kTestFinal + "?order=42", false},
      {kTestFinal + "/", false},
      {kTestFinal + "#top", false},
      {"https://127.0.0.1:8443/IPG/paymentInvoice", false},
      {"https://127.0.0.1:8443/ipg/paymentinvoice", false},
      {std::nullopt, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.address.value_or("(absent)"));
    webView->scripts.clear();
    present();
    finishLoadAt(c.address);
    EXPECT_TRUE(barView->newest().hidden);
    EXPECT_EQ(webView->scripts, c.final ? std::vector<std::string>{"document.body.innerHTML"}
                                        : std::vector<std::string>{});
  }
  EXPECT_TRUE(log->empty());  // the read-out waits for the script's answer
}

TEST_F(WebviewControllerTest, ExtractsTheHiddenResponseText) {
  const struct {
    const char* name;
    Text html;
    Text expected;
  } cases[] = {
      {"gateway's page", "<p>x</p><div id=\"responseString\" style=\"display: none;\">a|b</div>",
       " a|b"},
      {"upper-case tags", "<DIV ID=\"RESPONSESTRING\" style=\"display: none;\">a|b</DIV>", " a|b"},
      {"style kept unless exact", "<div id=\"responseString\" STYLE=\"display:none;\">a</div>",
       " STYLE=\"display:none;\">a"},
      {"style removed everywhere",
       "<div id=\"responseString\" style=\"display: none;\">a style=\"display: none;\">b</div>",
       " a b"},
      {"first of two elements",
       "<div id=\"responseString\">first</div><div id=\"responseString\">second</div>", ">first"},
      {"inner closing div ends it",
       "<div id=\"responseString\" style=\"display: none;\">a<div>b</div>c</div>", " a<div>b"},
      {"untrimmed, bare bracket", "<div id=\"responseString\">\n x \n</div>", ">\n x \n"},
      {"empty element", "<div id=\"responseString\"</div>", ""},
      {"no marker", "<div id=\"response\">a|b</div>", std::nullopt},
      {"marker spelt otherwise", "<div  id=\"responseString\">a</div>", std::nullopt},
      {"no closing div after it", "</div><div id=\"responseString\">a|b", std::nullopt},
      {"absent page", std::nullopt, std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(WebviewController::extractResponseFromHtmlString(c.html), c.expected) << c.name;
  }
}

TEST_F(WebviewControllerTest, FinalPageIsReadDismissedThenReportedOnce) {
  PaymentResponse failed;
  failed.setStatusCode("F");
  const std::pair<Text, Text> cases[] = {  // page body, order id of the record
      {finalPageBody(kResult), "ORD42"},     // the read-out's leading blank goes with the id's
      {"<p>Something went wrong</p>", std::nullopt},
      {finalPageBody("a|b"), std::nullopt},
      {std::nullopt, std::nullopt},
  };
  for (const auto& [body, orderID] : cases) {
    SCOPED_TRACE(body.value_or("(absent)"));
    log->clear();
    delegate->responses.clear();
    present();
    finishLoadAt(kProductionFinal);
    webView->answer(body);
    EXPECT_EQ(*log, (EventLog{"dismiss(animated)"}));  // the delegate waits for the dismissal
    presenter->finishDismissals();
    EXPECT_EQ(*log, (EventLog{"dismiss(animated)", "complete"}));
    ASSERT_EQ(delegate->responses.size(), 1u);
    const PaymentResponse& record = delegate->responses[0];
    if (!orderID) {
      EXPECT_EQ(record, failed);
      continue;
    }
    EXPECT_EQ(record.orderID(), orderID);
    EXPECT_EQ(record.transactionReferenceNo(), Text("TXN9"));
    EXPECT_EQ(record.statusCode(), Text("S"));
    EXPECT_EQ(record.addtionalField10(), Text("a10"));
  }
}

TEST_F(WebviewControllerTest, CancelStopsLoadingDismissesThenReports) {
  present();
  controller->cancelButtonPressed();
  EXPECT_EQ(*log, (EventLog{"stopLoading", "dismiss(animated)"}));
  EXPECT_FALSE(barView->newest().hidden);  // cancelling leaves the progress display alone
  EXPECT_EQ(clock->running(), 1);
  presenter->finishDismissals();
  EXPECT_EQ(*log, (EventLog{"stopLoading", "dismiss(animated)", "cancelled"}));
}

TEST_F(WebviewControllerTest, ReleasedDelegateIsNotToldButTheDismissalsHappen) {
  present();
  delegate.reset();
  controller->cancelButtonPressed();
  finishLoadAt(kTestFinal);
  webView->answer(finalPageBody(kResult));
  presenter->finishDismissals();
  EXPECT_EQ(*log, (EventLog{"stopLoading", "dismiss(animated)", "dismiss(animated)"}));
}

TEST_F(WebviewControllerTest, PendingWorkKeepsTheControllerAliveWhileViewsAreWeak) {
  present();
  finishLoadAt(kTestFinal);
  controller->webViewDidStartLoad();  // a timer left running
  std::weak_ptr<WebviewController> weak = controller;
  controller.reset();
  barView.reset();
  label.reset();
  ASSERT_FALSE(weak.expired());  // held by the timer and the pending script

  webView->answer(finalPageBody(kResult));
  presenter->finishDismissals();
  EXPECT_EQ(*log, (EventLog{"dismiss(animated)", "complete"}));
  clock->invalidateAll();  // the run loop ends: nothing else holds the controller
  EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace qipg
