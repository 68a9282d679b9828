/// @class qipg::WebviewController
/// The payment page: the screen on which the customer completes a standard or card-capture
/// payment on the gateway's own pages.
///
/// The host obtains the payment page request from QuandrelIPG::getStandardPaymentRequest or
/// getCardCapturePaymentRequest, sets it as `request`, sets a delegate, attaches the views
/// (a web view, the bar view and its title label) and presents the controller. The controller
/// loads the request, shows a thin progress line along the bar's bottom edge while pages load,
/// watches every finished load for the gateway's final page, reads the result out of that
/// page's hidden element, dismisses itself and then tells the delegate didTransactionComplete.
/// The Cancel button dismisses and then tells the delegate didTransactionCancelledByUser.
///
/// The final page is the return address that the client writes into the payment message: the
/// test or production base URL in its canonical form + "paymentInvoice". The address the web
/// view reports is compared with it unaltered, as a whole text: an added "?", "#" or "/", or
/// another letter case, makes a page that is not final.
///
/// The controller holds no toolkit code: the views, the timer scheduler and the presenter come
/// in through the ports of <qipg/PaymentPagePorts.h>. On Linux, <qipg/PaymentWindow.h>
/// (libqipg-gtk) builds a GTK4/WebKitGTK window around it in one call.
///
/// Ownership: always shared-owned (create()). Held weakly: the web view, the bar view, the
/// title label, the delegate, the timer scheduler and the presenter. Held strongly: the
/// request, the newest timer, the newest progress bar and the parser. A running timer and a
/// pending dismissal keep the controller alive until they have run.
///
/// Thread-safety: none. Every method is called on the user-interface thread, and the
/// controller calls its delegate there.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "qipg/CommonUtilities.h"
#include "qipg/Export.h"
#include "qipg/GatewayConfig.h"
#include "qipg/IPGPaymentControllerDelegate.h"
#include "qipg/PaymentPagePorts.h"
#include "qipg/Types.h"
#include "qipg/URLRequest.h"

namespace qipg {

class QIPG_EXPORT WebviewController : public std::enable_shared_from_this<WebviewController> {
 public:
  /// A controller that recognises the final page under `config`'s two base URLs, each taken in
  /// its canonical form (GatewayConfig::canonicalBaseURL), as QuandrelIPG::create does.
  static std::shared_ptr<WebviewController> create(
      GatewayConfig config = GatewayConfig::fromEnvironment());

  ~WebviewController();
  WebviewController(const WebviewController&) = delete;
  WebviewController& operator=(const WebviewController&) = delete;

  /// @{
  /// The payment page request, held strongly; absent until the host sets it.
  const std::optional<URLRequest>& request() const { return request_; }
  void setRequest(std::optional<URLRequest> request) { request_ = std::move(request); }
  /// @}

  /// @{
  /// The web view, the bar view, its title label and the delegate. Held weakly: the getters
  /// return nullptr once the owner has released the object.
  std::shared_ptr<WebViewPort> ipgWebView() const { return ipgWebView_.lock(); }
  void setIpgWebView(const std::shared_ptr<WebViewPort>& webView) { ipgWebView_ = webView; }
  std::shared_ptr<BarViewPort> navBarView() const { return navBarView_.lock(); }
  void setNavBarView(const std::shared_ptr<BarViewPort>& barView) { navBarView_ = barView; }
  std::shared_ptr<LabelPort> lblNavBarTitle() const { return lblNavBarTitle_.lock(); }
  void setLblNavBarTitle(const std::shared_ptr<LabelPort>& label) { lblNavBarTitle_ = label; }
  std::shared_ptr<IPGPaymentControllerDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(const std::shared_ptr<IPGPaymentControllerDelegate>& delegate) {
    delegate_ = delegate;
  }
  /// @}

  /// @{
  /// The platform: the run loop that drives the progress timer and whoever presented the page.
  /// Both held weakly. Without a scheduler no progress timer runs; without a presenter a
  /// dismissal's completion runs at once.
  void setTimerScheduler(const std::shared_ptr<TimerSchedulerPort>& scheduler) {
    timerScheduler_ = scheduler;
  }
  void setPresenter(const std::shared_ptr<PresenterPort>& presenter) { presenter_ = presenter; }
  /// @}

  /// The configuration given to create(), whose base URLs locate the final page.
  const GatewayConfig& gatewayConfig() const { return config_; }

  /// @name Screen life cycle (called by the adapter)
  /// @{

  /// Makes a fresh parser and sets the title label's text to "".
  void viewDidLoad();
  /// Adds one more progress line to the bar, then loads `request` when it has a URL. Called
  /// each time the page comes on screen; `animated` is ignored.
  void viewDidAppear(bool animated);
  /// Does nothing: the page keeps nothing that could be released.
  void didReceiveMemoryWarning() {}
  /// @}

  /// @name Web view events (called by the adapter)
  /// @{

  /// Always true: every navigation is allowed.
  bool shouldStartLoadWithRequest(const URLRequest& request, NavigationType navigationType);
  /// Shows the progress line and starts its timer.
  void webViewDidStartLoad();
  /// Stops the progress line; on the gateway's final page, reads the result, dismisses the
  /// page and then tells the delegate didTransactionComplete.
  void webViewDidFinishLoad();
  /// Stops the progress line and nothing else: the page stays up, the delegate is not told.
  void webViewDidFailLoadWithError(const WebViewError& error);
  /// @}

  /// @name Own operations
  /// @{

  /// Creates a new progress line, 2 units high along the bar's bottom edge, in the standard
  /// blue. Earlier lines stay in the bar view.
  void setupProgressBar();
  /// Shows the line at 0.0 and schedules a new repeating 0.1 s timer that adds 0.05 while the
  /// progress is at most 0.9. An earlier timer is not stopped.
  void startProgressViewLoad();
  /// Sets the progress to 1.0, hides the line and invalidates the newest timer.
  void stopProgressViewLoad();

  /// The text of the gateway's hidden result element in `html`: what follows the first
  /// `<div id="responseString"` (any letter case) up to the next `</div>` (any letter case),
  /// with every exact `style="display: none;">` removed, untrimmed. Absent when either marker
  /// is missing or `html` is absent.
  static Text extractResponseFromHtmlString(const Text& html);

  /// Stops loading, dismisses the page and then tells the delegate
  /// didTransactionCancelledByUser. The progress line and its timer are left as they are.
  void cancelButtonPressed();

  /// @}

  /// @{
  /// The two final-page addresses tried at every finished load, in this order: each canonical
  /// base URL + "paymentInvoice", e.g. "https://test.example.com/ipg/paymentInvoice" for
  /// "HTTPS://Test.Example.COM:443/ipg/".
  const std::string& testFinalPageURL() const { return testFinalPageURL_; }
  const std::string& productionFinalPageURL() const { return productionFinalPageURL_; }
  /// @}

 private:
  explicit WebviewController(GatewayConfig config);

  bool isFinalPage(const Text& address) const;
  void progressTick();
  void readResultFromBodyHTML(const Text& html);
  void dismissThen(std::function<void()> completion);

  std::shared_ptr<ProgressBarPort> progressView_;
  std::shared_ptr<TimerPort> timer_;
  std::unique_ptr<CommonUtilities> commonUtilities_;
  std::optional<URLRequest> request_;
  std::weak_ptr<WebViewPort> ipgWebView_;
  std::weak_ptr<BarViewPort> navBarView_;
  std::weak_ptr<LabelPort> lblNavBarTitle_;
  std::weak_ptr<IPGPaymentControllerDelegate> delegate_;

  std::weak_ptr<TimerSchedulerPort> timerScheduler_;
  std::weak_ptr<PresenterPort> presenter_;
  GatewayConfig config_;
  std::string testFinalPageURL_;
  std::string productionFinalPageURL_;
};

}  // namespace qipg
