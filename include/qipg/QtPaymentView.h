/// @file
/// The payment page as a QWidget that the host puts into its own layout (libqipg-qt): a till's
/// screen with the cart on one side and the payment on the other. The twin of
/// <qipg/PaymentView.h> (GTK): the bar (Cancel, the title, the address of the page shown, the
/// progress line) above a Qt WebEngine view, taking payments one after another, each with its
/// own options and delegate:
///
///   auto view = qipg::QtPaymentView::create();
///   layout->addWidget(static_cast<QWidget*>(view->widget()));
///   view->start(*request, delegate, options);   // when the customer presses Pay
///
/// A payment behaves exactly as in qipg::QtPaymentWindow (<qipg/QtPaymentWindow.h>), which is a
/// window around this view: the same options (the size, title and `transientFor` apply to
/// windows only), loads, final page, TLS trust, reconciliation, journal and events. Where the
/// window is dismissed, the view ends the payment instead: its web view and off-the-record
/// profile are deleted from the event loop (with their share of the engine's memory), the bar
/// stays with Cancel disabled, and then the delegate is told, after which isActive() is false
/// and the next payment may start.
///
/// The widget belongs to the host's layout once placed there. A host that deletes it (or its
/// window) while a payment is under way ends that payment without a delegate message.
///
/// This header needs no Qt headers and is not part of <qipg/qipg.h>; link QuandrelIPG::qipg-qt.
///
/// Thread-safety: none. Call everything on the Qt main (GUI) thread; every callback, hook and
/// delegate message arrives there.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "qipg/Export.h"
#include "qipg/IPGPaymentControllerDelegate.h"
#include "qipg/PaymentWindowOptions.h"
#include "qipg/Types.h"
#include "qipg/URLRequest.h"
#include "qipg/WebviewController.h"

namespace qipg {

/// An embeddable payment view. Shared-owned: while a payment is under way the view keeps
/// itself alive.
class QIPG_EXPORT QtPaymentView {
 public:
  /// Makes a QApplication if the host has none, and an idle view. nullptr, with the reason in
  /// `*error` if given, when no application can be made (no display).
  static std::shared_ptr<QtPaymentView> create(std::string* error = nullptr);

  ~QtPaymentView();
  QtPaymentView(const QtPaymentView&) = delete;
  QtPaymentView& operator=(const QtPaymentView&) = delete;

  /// The QWidget* to put into the host's layout; nullptr once the host has deleted it.
  void* widget() const;

  /// Starts a payment in the view, around a new WebviewController (its request and delegate
  /// set, `delegate` held weakly: keep it alive). The request is loaded once the view is shown
  /// (at once when it is). False, with the reason in `*error` if given, while another payment
  /// is under way, when the widget is gone, or when `reconcile` is set without a `client`.
  bool start(const URLRequest& request, std::shared_ptr<IPGPaymentControllerDelegate> delegate,
             PaymentWindowOptions options = PaymentWindowOptions(), std::string* error = nullptr);

  /// True from start() until the payment has ended (its delegate is told right after).
  bool isActive() const;

  /// The controller of the payment under way or last ended; nullptr before the first.
  std::shared_ptr<WebviewController> controller() const;

  /// Runs `script` in the page shown and calls `completion` (if any) once with the script's
  /// result as text, absent when it failed or no payment is under way.
  void runJavaScript(const std::string& script,
                     std::function<void(const Text& result)> completion = {});

  /// Saves a PNG of `area` (WebView: the page; Window: the whole window the view is in, the
  /// host's, with whatever else it shows) to `pngPath` (created owner-only, 0600) and calls
  /// `completion` once with whether it worked. The page may show what the customer typed:
  /// mind where it goes.
  void saveScreenshot(const std::string& pngPath, std::function<void(bool saved)> completion,
                      WindowSnapshotArea area = WindowSnapshotArea::Window);

  /// Does what the Cancel button does.
  void pressCancel();

  /// Starts the engine ahead of the first payment (see QtPaymentWindow::prewarm()).
  static void prewarm();

  /// The QWebEngineView* of the payment under way, borrowed; nullptr between payments.
  void* nativeWebView() const;

  /// The view's state; internal to the library.
  struct Impl;
  /// Made by the library only (create()); hosts never call it.
  explicit QtPaymentView(std::shared_ptr<Impl> impl);

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace qipg
