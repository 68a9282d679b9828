/// @file
/// The payment page as a Qt window (libqipg-qt): a Qt 6 Widgets window with a bar at the top
/// (a "Cancel" button, the title label and the address of the page shown, with a lock on a
/// secure page, and the thin blue progress line along its bottom edge) and a Qt WebEngine web
/// view below, driven by a WebviewController. The twin of <qipg/PaymentWindow.h> (GTK): the
/// same options, the same shape, the same behaviour. One call presents it:
///
///     auto window = qipg::presentQtPaymentWindow(*request, delegate, options);
///
/// This header needs no Qt headers (Qt objects appear as opaque pointers) and is not part of
/// <qipg/qipg.h>; link QuandrelIPG::qipg-qt (pkg-config: qipg-qt) to use it.
///
/// The POST request is made natively: its address, method, headers and body byte for byte
/// (a form-encoded Content-Type is added when the request has none; the engine writes
/// Content-Length itself), with no intermediate page, so the first page the customer sees is
/// the gateway's. Each window browses in its own off-the-record profile: nothing of a payment
/// is written to disk or seen by another window. Every start, finish and failure of a
/// main-frame load is passed to the controller in order, one finish or failure per start; the
/// engine's own error pages are off, so a failed load keeps the page that was shown.
///
/// TLS. Verification stays on. Only when the host asks (`trustedCAFile` and `trustedHost`), a
/// certificate that fails the engine's verification is accepted for that one host, and only
/// after its chain has been verified against the CA file for that host's name (or address).
/// Every other certificate error is refused, as the engine does by default.
///
/// The engine's process sandbox stays on, except when the process runs as root (CI
/// containers): then QTWEBENGINE_DISABLE_SANDBOX=1 is set, and without a GPU render node
/// "--disable-gpu" is added through QTWEBENGINE_CHROMIUM_FLAGS, both before the engine starts
/// and only when the host has not set the variable itself.
///
/// Memory. Without a GPU render node, Qt Quick (which shows the web view) uses its software
/// renderer: QT_QUICK_BACKEND=software is set unless the host has set the variable, saving the
/// software OpenGL's code and buffers (about 38 MiB with the card form shown). A host that wants
/// OpenGL anyway sets QT_QUICK_BACKEND itself (e.g. to "opengl") before the first window.
///
/// Closing. The window's close button counts as the Cancel button. Dismissal hides the window,
/// deletes it from the event loop and then runs the controller's completion. A host that
/// deletes the window itself ends the payment page without a delegate message.
///
/// Thread-safety: none. Call everything on the Qt main (GUI) thread; every callback, hook,
/// reconciliation record and delegate message arrives there.
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

/// The presented Qt window. Shared-owned: while the window is on screen it keeps itself alive,
/// so the host may drop its handle; the handle stays usable after the window has gone (the
/// methods then do nothing or report failure).
class QIPG_EXPORT QtPaymentWindow {
 public:
  ~QtPaymentWindow();
  QtPaymentWindow(const QtPaymentWindow&) = delete;
  QtPaymentWindow& operator=(const QtPaymentWindow&) = delete;

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
  /// Saves a PNG of `area` to `pngPath` (created owner-only, 0600) and calls `completion` once,
  /// from the event loop, with whether it worked. The page may show what the customer typed:
  /// mind where it goes.
  void saveScreenshot(const std::string& pngPath, std::function<void(bool saved)> completion,
                      SnapshotArea area = SnapshotArea::Window);

  /// Does what the Cancel button does.
  void pressCancel();

  /// Starts the browser engine ahead of the first window (a hidden page in an off-the-record
  /// profile loading an empty document, kept for the life of the process), so the customer's
  /// first payment does not wait for it. Creates the QApplication if there is none; does
  /// nothing without a display. Call on the Qt main thread, e.g. when the checkout opens.
  static void prewarm();

  /// The window (QWidget*) and the web view (QWebEngineView*), borrowed; nullptr once the
  /// window is gone.
  void* nativeWindow() const;
  void* nativeWebView() const;  ///< See nativeWindow().

  /// The window's state; internal to the library.
  struct Impl;
  /// Made by the library only (present...PaymentWindow); hosts never call it.
  explicit QtPaymentWindow(std::shared_ptr<Impl> impl);

 private:
  std::shared_ptr<Impl> impl_;
};

/// Creates the QApplication if there is none (then it lives until the process ends), builds the
/// window around a new WebviewController (its request and delegate set, `delegate` held
/// weakly: keep it alive), and shows it; the request is loaded once the window is on screen.
/// Returns nullptr, with the reason in `*error` if given, when there is no display, the
/// running application is not a QApplication, or `reconcile` is set without a `client`. Call on
/// the Qt main thread; the host runs the event loop.
QIPG_EXPORT std::shared_ptr<QtPaymentWindow> presentQtPaymentWindow(
    const URLRequest& request, std::shared_ptr<IPGPaymentControllerDelegate> delegate,
    PaymentWindowOptions options = PaymentWindowOptions(), std::string* error = nullptr);

/// For hosts without an event loop of their own (command-line tools): presents the window and
/// runs Qt's event loop until the delegate has been told (and, with `reconcile` set, until the
/// gateway's status record is there). Absent, with the reason in `*error` if given, when no
/// window could be opened.
QIPG_EXPORT std::optional<PaymentOutcome> runQtPaymentWindow(
    const URLRequest& request, PaymentWindowOptions options = PaymentWindowOptions(),
    std::string* error = nullptr);

/// For hosts without an event loop of their own: processes Qt's events until `done()` is true
/// (checked after every batch) or `seconds` have passed. Returns false on the time-out. Call
/// on the Qt main thread.
QIPG_EXPORT bool runQtMainLoopUntil(const std::function<bool()>& done, unsigned seconds);

}  // namespace qipg
