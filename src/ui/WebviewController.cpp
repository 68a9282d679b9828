#include "qipg/WebviewController.h"

#include <utility>

#include "common/Ascii.h"
#include "common/Url.h"

namespace qipg {
namespace {

constexpr double kProgressTimerInterval = 0.1;  // seconds
constexpr double kProgressStep = 0.05;
constexpr double kProgressCeiling = 0.9;  // a step is taken only from here or below
constexpr double kProgressLineHeight = 2.0;

constexpr char kBodyHTMLScript[] = "document.body.innerHTML";
constexpr std::string_view kResponseMarker = "<div id=\"responseString\"";
constexpr std::string_view kResponseEnd = "</div>";
constexpr std::string_view kHiddenStyle = "style=\"display: none;\">";

// A progress bar that belongs to no view: what the controller keeps when there is no bar view
// to add one to, so the progress arithmetic behaves the same with or without a screen.
class DetachedProgressBar final : public ProgressBarPort {
 public:
  void setProgress(float progress) override { progress_ = progress; }
  float progress() const override { return progress_; }
  void setHidden(bool hidden) override { hidden_ = hidden; }
  bool isHidden() const override { return hidden_; }
  void setProgressViewStyle(ProgressViewStyle) override {}
  void setTintColor(const Color&) override {}
  void setAutoresizingMask(unsigned) override {}
  void setFrame(const Rect&) override {}

 private:
  float progress_ = 0.0f;
  bool hidden_ = false;
};

}  // namespace

std::shared_ptr<WebviewController> WebviewController::create(GatewayConfig config) {
  return std::shared_ptr<WebviewController>(new WebviewController(std::move(config)));
}

WebviewController::WebviewController(GatewayConfig config)
    : config_(std::move(config)),
      testFinalPageURL_(internal::returnURL(config_.testBaseURL)),
      productionFinalPageURL_(internal::returnURL(config_.productionBaseURL)) {}

WebviewController::~WebviewController() = default;

void WebviewController::viewDidLoad() {
  commonUtilities_ = std::make_unique<CommonUtilities>();
  // The adapter routes the web view's events to this controller; the bar shows no title.
  if (auto label = lblNavBarTitle()) label->setText(std::string());
}

void WebviewController::viewDidAppear(bool /*animated*/) {
  setupProgressBar();
  if (request_ && request_->url) {
    if (auto webView = ipgWebView()) webView->loadRequest(*request_);
  }
}

bool WebviewController::shouldStartLoadWithRequest(const URLRequest& /*request*/,
                                                   NavigationType /*navigationType*/) {
  return true;
}

void WebviewController::webViewDidStartLoad() { startProgressViewLoad(); }

void WebviewController::webViewDidFailLoadWithError(const WebViewError& /*error*/) {
  stopProgressViewLoad();
}

void WebviewController::setupProgressBar() {
  auto barView = navBarView();
  // An earlier line is released here but stays in the bar view.
  progressView_ = barView ? barView->addProgressBar() : nullptr;
  if (!progressView_) progressView_ = std::make_shared<DetachedProgressBar>();
  progressView_->setProgressViewStyle(ProgressViewStyle::Default);
  progressView_->setAutoresizingMask(AutoresizingFlexibleWidth | AutoresizingFlexibleTopMargin);
  progressView_->setTintColor(Color::systemBlue());
  const Rect bounds = barView ? barView->bounds() : Rect{};
  progressView_->setFrame(
      {0.0, bounds.height - kProgressLineHeight, bounds.width, kProgressLineHeight});
}

void WebviewController::startProgressViewLoad() {
  if (progressView_) {
    progressView_->setHidden(false);
    progressView_->setProgress(0.0f);
  }
  // A timer already running is not stopped: it keeps ticking (and keeps this controller
  // alive); only the newest one is ever invalidated.
  auto scheduler = timerScheduler_.lock();
  if (!scheduler) return;
  timer_ = scheduler->scheduleRepeating(kProgressTimerInterval,
                                        [self = shared_from_this()] { self->progressTick(); });
}

void WebviewController::progressTick() {
  if (!progressView_) return;
  const double progress = progressView_->progress();
  if (progress <= kProgressCeiling) {
    progressView_->setProgress(static_cast<float>(progress + kProgressStep));
  }
}

void WebviewController::stopProgressViewLoad() {
  if (progressView_) {
    progressView_->setProgress(1.0f);
    progressView_->setHidden(true);
  }
  if (timer_) timer_->invalidate();  // the field keeps the stopped timer
}

bool WebviewController::isFinalPage(const Text& address) const {
  // The address as the web view reports it, never rewritten: "…paymentInvoice?" is not final.
  if (!address) return false;
  return *address == testFinalPageURL_ || *address == productionFinalPageURL_;
}

void WebviewController::webViewDidFinishLoad() {
  stopProgressViewLoad();
  auto webView = ipgWebView();
  if (!webView || !isFinalPage(webView->currentURL())) return;
  webView->evaluateJavaScript(kBodyHTMLScript, [self = shared_from_this()](const Text& html) {
    self->readResultFromBodyHTML(html);
  });
}

void WebviewController::readResultFromBodyHTML(const Text& html) {
  if (!commonUtilities_) commonUtilities_ = std::make_unique<CommonUtilities>();
  PaymentResponse response =
      commonUtilities_->getPaymentResponseFromString(extractResponseFromHtmlString(html));
  dismissThen([self = shared_from_this(), response = std::move(response)] {
    if (auto delegate = self->delegate()) delegate->didTransactionComplete(response);
  });
}

void WebviewController::cancelButtonPressed() {
  if (auto webView = ipgWebView()) webView->stopLoading();
  dismissThen([self = shared_from_this()] {
    if (auto delegate = self->delegate()) delegate->didTransactionCancelledByUser();
  });
}

void WebviewController::dismissThen(std::function<void()> completion) {
  if (auto presenter = presenter_.lock()) {
    presenter->dismiss(true, std::move(completion));
  } else {
    completion();  // nothing on screen to take away
  }
}

Text WebviewController::extractResponseFromHtmlString(const Text& html) {
  if (!html) return std::nullopt;
  const std::string_view page = *html;
  const std::size_t marker = internal::findIgnoringAsciiCase(page, kResponseMarker);
  if (marker == std::string_view::npos) return std::nullopt;
  const std::size_t start = marker + kResponseMarker.size();
  const std::size_t end = internal::findIgnoringAsciiCase(page, kResponseEnd, start);
  if (end == std::string_view::npos) return std::nullopt;
  return internal::replaceAll(page.substr(start, end - start), kHiddenStyle, "");
}

// ---------------------------------------------------------------- delegate from callables

namespace {

class CallbackPaymentControllerDelegate final : public IPGPaymentControllerDelegate {
 public:
  CallbackPaymentControllerDelegate(std::function<void(const PaymentResponse&)> complete,
                                    std::function<void()> cancelled)
      : complete_(std::move(complete)), cancelled_(std::move(cancelled)) {}

  void didTransactionComplete(const PaymentResponse& response) override {
    if (complete_) complete_(response);
  }
  void didTransactionCancelledByUser() override {
    if (cancelled_) cancelled_();
  }

 private:
  std::function<void(const PaymentResponse&)> complete_;
  std::function<void()> cancelled_;
};

}  // namespace

std::shared_ptr<IPGPaymentControllerDelegate> makePaymentControllerDelegate(
    std::function<void(const PaymentResponse&)> didTransactionComplete,
    std::function<void()> didTransactionCancelledByUser) {
  return std::make_shared<CallbackPaymentControllerDelegate>(
      std::move(didTransactionComplete), std::move(didTransactionCancelledByUser));
}

}  // namespace qipg
