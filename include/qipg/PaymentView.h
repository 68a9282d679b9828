/// @file
/// The payment page as a GTK 4 widget that the host places in its own window (libqipg-gtk): a
/// till's screen with the cart on one side and the payment on the other. The view is the bar
/// (Cancel, the title, the address of the page shown, the progress line) above a WebKitGTK web
/// view; it takes payments one after another, each with its own options and delegate:
///
///   auto view = qipg::PaymentView::create();
///   gtk_box_append(GTK_BOX(rightPane), GTK_WIDGET(view->widget()));
///   view->start(*request, delegate, options);   // when the customer presses Pay
///
/// A payment behaves exactly as in qipg::PaymentWindow (<qipg/PaymentWindow.h>), which is a
/// window around this view: the same options (the size, title and `transientFor` apply to
/// windows only), the same loads, final page, TLS trust, reconciliation, journal and events.
/// Where the window is dismissed, the view ends the payment instead: its web view is taken out
/// and destroyed (with its network session and its share of the engine's memory), the bar stays
/// with Cancel insensitive, and the delegate is told from an idle callback, after which
/// isActive() is false and the next payment may start.
///
/// The view holds its widget: a host that takes it out of its layout, or destroys the window
/// it was in, while a payment is under way leaves that payment running in the widget (hidden),
/// to be placed again or ended with pressCancel().
///
/// This header needs no GTK headers and is not part of <qipg/qipg.h>; link QuandrelIPG::qipg-gtk.
///
/// Thread-safety: none. Call everything on the GTK main thread; every callback, hook and
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
/// itself alive; its widget lives as long as the view or the host's container, whichever is
/// longer.
class QIPG_EXPORT PaymentView {
 public:
  /// Initialises GTK if needed and makes an idle view. nullptr, with the reason in `*error` if
  /// given, when GTK cannot be initialised (no display).
  static std::shared_ptr<PaymentView> create(std::string* error = nullptr);

  ~PaymentView();
  PaymentView(const PaymentView&) = delete;
  PaymentView& operator=(const PaymentView&) = delete;

  /// The GtkWidget* to place in the host's layout (it expands in both directions).
  void* widget() const;

  /// Starts a payment in the view, around a new WebviewController (its request and delegate
  /// set, `delegate` held weakly: keep it alive). The request is loaded once the view is on
  /// screen (at once when it is). False, with the reason in `*error` if given, while another
  /// payment is under way or when `reconcile` is set without a `client`.
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

  /// Starts WebKit's web process ahead of the first payment (see PaymentWindow::prewarm()).
  static void prewarm();

  /// The WebKitWebView* of the payment under way, borrowed; nullptr between payments.
  void* nativeWebView() const;

  /// The view's state; internal to the library.
  struct Impl;
  /// Made by the library only (create()); hosts never call it.
  explicit PaymentView(std::shared_ptr<Impl> impl);

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace qipg
