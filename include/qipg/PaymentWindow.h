/// @file
/// The payment page as a real window on Linux (libqipg-gtk): a GTK4 window with a bar at the
/// top (a "Cancel" button, the title label and the address of the page shown) and a WebKitGTK
/// web view below, driven by a WebviewController. One call presents it:
///
///   auto window = qipg::presentPaymentWindow(*request, delegate, options);
///
/// This header needs no GTK headers (GTK objects appear as opaque pointers) and is not part of
/// <qipg/qipg.h>; link QuandrelIPG::qipg-gtk to use it.
///
/// How the POST request reaches the gateway. WebKitGTK 6.0 loads a request's address and
/// headers but cannot attach a body. A POST request is therefore loaded as a small page that
/// posts itself: each field of the form-encoded body becomes a hidden input holding the field's
/// decoded value (the envelope's "%2B" back to "+", its CR LF line breaks kept), and the page
/// submits the form from its load event. The browser encodes the values again, so the gateway
/// decodes exactly the text of the original body; it receives a "Content-Type:
/// application/x-www-form-urlencoded" POST. The page is loaded with the origin of the request's
/// address ("https://host:port/") as its base address, so the gateway sees a same-origin post,
/// and that address can never be the final page's address. The page's own load counts as one
/// page load for the progress line (start and finish), and the POST as the next. The web view
/// stays hidden (the bar and its progress line show) until the gateway's page has committed, so
/// the customer's first sight of it is the gateway's page, never that blank intermediate one.
/// Requests with another method are loaded as they are, with their headers.
///
/// Final page. The address the web view reports, unaltered, is compared as a whole text with
/// the return address built from the canonical base URLs (see PaymentWindowOptions::gateway),
/// the client's when the options name the client. With `reconcile` set, a cancelled or unreadable
/// payment is then confirmed with the gateway (see PaymentReconciliation).
///
/// Loads. Every start, finish and failure of a main-frame load is passed to the controller in
/// order, one finish or failure per start. A failed load keeps the page that was shown (WebKit's
/// own error page is suppressed, because it would count as a finished load of the failed
/// address). Each window loads its pages in its own ephemeral network session: no cookies,
/// cache or credentials of a payment are written to disk or seen by another window.
///
/// TLS. Verification stays on. Only when the host asks (`trustedCAFile` and `trustedHost`),
/// a certificate that fails the system's verification is accepted for that one host, and only
/// after its chain has been verified against the CA file for that host's name (or address).
/// The window then allows that one certificate for that host and loads the failed address
/// again (a failed POST is posted again). Nothing else is ever allowed. WebKit keeps such an
/// allowance for the rest of the process, in every network session: a later window to the
/// same host accepts that same certificate even if it did not ask.
///
/// WebKit's process sandbox stays on, except when the process runs as root (as in CI
/// containers, where user namespaces are not available): then
///   WEBKIT_DISABLE_SANDBOX_THIS_IS_DANGEROUS=1
/// is set in the environment by the first presentPaymentWindow call, before its web view is
/// created, unless the variable is already set. (Setting the environment is not safe while
/// other threads read it: a host that runs such threads sets the variable itself first.)
///
/// Closing. The window's close button counts as the Cancel button. Dismissal destroys the
/// window (there is no animation) and runs the controller's completion from an idle callback.
/// A host that destroys the window itself ends the payment page without a delegate message.
///
/// The Qt window (<qipg/QtPaymentWindow.h>) has the same shape and behaviour.
///
/// Thread-safety: none. Call everything on the thread that initialised GTK (the GTK main
/// thread); every callback, hook and delegate message arrives there.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "qipg/Export.h"
#include "qipg/IPGPaymentControllerDelegate.h"
#include "qipg/PaymentWindowOptions.h"
#include "qipg/Types.h"
#include "qipg/URLRequest.h"
#include "qipg/WebviewController.h"

namespace qipg {

/// The presented window. Shared-owned: while the window is on screen it keeps itself alive, so
/// the host may drop its handle; the handle stays usable after the window has gone (the
/// methods then do nothing or report failure).
class QIPG_EXPORT PaymentWindow {
 public:
  ~PaymentWindow();
  PaymentWindow(const PaymentWindow&) = delete;
  PaymentWindow& operator=(const PaymentWindow&) = delete;

  /// The controller behind the window (shared; it outlives the window while work is pending).
  std::shared_ptr<WebviewController> controller() const;

  /// True until the window has been dismissed or destroyed.
  bool isOpen() const;

  /// Host hook: runs `script` in the page shown and calls `completion` (if any) once with the
  /// script's result as text, absent when it failed or the window is gone.
  void runJavaScript(const std::string& script,
                     std::function<void(const Text& result)> completion = {});

  /// What saveScreenshot() pictures.
  using SnapshotArea = WindowSnapshotArea;
  /// Saves a PNG of `area` to `pngPath` (created owner-only, 0600) and calls `completion` once
  /// with whether it worked. The page may show what the customer typed: mind where it goes.
  void saveScreenshot(const std::string& pngPath, std::function<void(bool saved)> completion,
                      SnapshotArea area = SnapshotArea::Window);

  /// Does what the Cancel button does.
  void pressCancel();

  /// Starts WebKit's web process ahead of the first window (a hidden web view loading an empty
  /// page, kept for the life of the process), so the customer's first payment does not wait
  /// for it. Initialises GTK if needed; does nothing without a display. Call on the GTK main
  /// thread, e.g. when the checkout screen opens.
  static void prewarm();

  /// The GtkWindow* and the WebKitWebView*, borrowed; nullptr once the window is gone.
  void* nativeWindow() const;
  void* nativeWebView() const;  ///< See nativeWindow().

  /// The window's state; internal to the library.
  struct Impl;
  /// Made by the library only (present...PaymentWindow); hosts never call it.
  explicit PaymentWindow(std::shared_ptr<Impl> impl);

 private:
  std::shared_ptr<Impl> impl_;
};

/// Initialises GTK if needed, builds the window around a new WebviewController (its request and
/// delegate set, `delegate` held weakly: keep it alive), and presents it; the request is loaded
/// when the window comes on screen. Returns nullptr, with the reason in `*error` if given,
/// when GTK cannot be initialised (no display) or `reconcile` is set without a `client`. Call
/// on the GTK main thread; the host runs the main loop.
QIPG_EXPORT std::shared_ptr<PaymentWindow> presentPaymentWindow(
    const URLRequest& request, std::shared_ptr<IPGPaymentControllerDelegate> delegate,
    PaymentWindowOptions options = PaymentWindowOptions(), std::string* error = nullptr);

/// For hosts without a main loop of their own (command-line tools): presents the window and
/// iterates GLib's default main context until the delegate has been told (and, with
/// `reconcile` set, until the gateway's status record is there; `reconcile->onStatus` is still
/// called). Absent, with the reason in `*error` if given, when no window could be opened.
QIPG_EXPORT std::optional<PaymentOutcome> runPaymentWindow(
    const URLRequest& request, PaymentWindowOptions options = PaymentWindowOptions(),
    std::string* error = nullptr);

/// For hosts without a main loop of their own: iterates GLib's default main context until
/// `done()` is true (checked after every iteration) or `seconds` have passed. Returns false on
/// the time-out. Call on the GTK main thread.
QIPG_EXPORT bool runMainLoopUntil(const std::function<bool()>& done, unsigned seconds);

}  // namespace qipg
