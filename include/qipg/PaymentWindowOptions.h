/// @file
/// What the two payment windows share: their options, the load events of their host hook,
/// the reconciliation of an unclear outcome and the outcome of a window run to its end.
///
/// `qipg::PaymentWindow` (<qipg/PaymentWindow.h>, libqipg-gtk) and `qipg::QtPaymentWindow`
/// (<qipg/QtPaymentWindow.h>, libqipg-qt) take the same options and behave the same way. This
/// header needs no toolkit headers. Plain values: copy them freely; they are not thread-safe
/// objects, use them on the thread that presents the window.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "qipg/Export.h"
#include "qipg/GatewayConfig.h"
#include "qipg/PaymentResponse.h"
#include "qipg/QuandrelIPG.h"
#include "qipg/Types.h"

namespace qipg {

class Client;

/// A main-frame load as the host hook sees it, with an address.
enum class PageLoadEvent {
  Started,   ///< the web view's address at that moment (often still the previous page's)
  Finished,  ///< the address of the page now shown
  Failed,    ///< the address that failed
};

/// What a window pictures in a screenshot.
enum class WindowSnapshotArea {
  WebView,  ///< the visible part of the page
  Window,   ///< the whole window: bar, progress line and page
};

/// Asking the gateway how a payment really ended when the window cannot tell.
///
/// When the customer cancels, or the final page yields an unreadable record (status "F" and
/// neither order, reference nor description), money may still have moved: the customer may
/// have paid and then closed the window, or the gateway's final page may have been spoilt
/// on its way. With this option the window then asks the gateway for the order's status
/// through the client (`PaymentWindowOptions::client` or `cppClient`) and hands that record to
/// `onStatus`, on the window's thread, after the delegate has heard the window's own message
/// (which is unchanged). A status call that cannot be made or answered gives a record with status "F"
/// and the reason as its description. A merchant confirms every such payment this way before
/// shipping or refusing an order.
struct QIPG_EXPORT PaymentReconciliation {
  std::string orderID;  ///< the order the payment request was built for
  /// The credentials the payment request was built with (absent: the client's property list).
  /// Kept in memory only, never written anywhere.
  Text merchantID;
  Text encryptionKey;  ///< The merchant key, as above; a secret kept in memory only.
  /// The gateway's status record of the order; called at most once per window.
  std::function<void(const PaymentResponse& status)> onStatus;
};

/// A payment as the outcome journal records it (see qipg::Journal): written, durably, before
/// the window loads the payment page, with how it ended once the window knows (the final
/// page's record, a cancel, and the gateway's status when `reconcile` asked for it). A journal
/// that cannot take it keeps the page from loading: the delegate hears a record with status
/// "F" and the reason. None of these is a secret; the journal never holds card data or keys.
struct QIPG_EXPORT PaymentJournal {
  std::string path{};             ///< the journal's file
  std::string orderID{};          ///< the order the request was built for
  std::string amount{};           ///< as given to the request
  std::string currency{};         ///< ISO 4217 code
  std::string transactionType{};  ///< "S" (sale) or "P" (pre-authorisation)
};

/// How a payment window is set up. Both toolkits take these options.
struct QIPG_EXPORT PaymentWindowOptions {
  /// The client that built the request. When set, the final page is looked for under the
  /// client's own base URLs (`client->config()`) and `gateway` is not used; reconciliation
  /// asks the gateway through it.
  std::shared_ptr<QuandrelIPG> client;

  /// The same for a host on qipg::Client (<qipg/Client.h>), instead of `client`: the final
  /// page is looked for under its base URLs, its event hook hears the window's events, and
  /// reconciliation asks Client::status with the client's own credentials (the `reconcile`
  /// credentials are then not used); an error of that call gives a record with status "F" and
  /// the error's message as its description.
  std::shared_ptr<Client> cppClient;

  /// Without a client: where the final page is (the two base URLs + "paymentInvoice").
  /// Each base URL is taken in canonical form (scheme and host in lower case, default port
  /// dropped), as the client takes it, so "HTTPS://Host:443/ipg/" finds the page the web view
  /// reports as "https://host/ipg/paymentInvoice" (and not ".../paymentInvoice?").
  GatewayConfig gateway = GatewayConfig::fromEnvironment();

  /// A PEM file of certificate authorities trusted for `trustedHost` only (a host name or an
  /// IP address, without port). With `trustedHost` empty, it is trusted for the host of the
  /// request's own URL. Both empty: the system's trust store alone.
  std::string trustedCAFile;
  std::string trustedHost;  ///< The one host `trustedCAFile` is trusted for.

  /// The window's title (the bar itself shows no title); empty: "Payment" in the chrome's
  /// language.
  std::string title;
  int width = 480;   ///< the window's initial size, in pixels
  int height = 760;  ///< the window's initial height, in pixels

  /// The language of our own words around the gateway's page (Cancel, the names assistive
  /// technology reads, the default title), as a locale name: "hi_IN" for Hindi, "en_GB" for
  /// English. Empty: from the process's locale (LANGUAGE, LC_ALL, LC_MESSAGES, LANG). English
  /// and Hindi are shipped; any other language shows English. The gateway's page, the messages
  /// and the records are never translated.
  ///
  /// GTK reads its catalogue through gettext in that locale, so the machine must have it
  /// (`locale -a`; Debian: `localedef -i hi_IN -f UTF-8 hi_IN.UTF-8`), else the chrome is
  /// English; as gettext does everywhere, a LANGUAGE variable in the environment takes
  /// precedence. Qt needs no installed locale.
  std::string language;

  /// The toolkit's window to stay on top of, modally (a GtkWindow* for the GTK window, a
  /// QWidget* for the Qt one); nullptr: a window of its own.
  void* transientFor = nullptr;

  /// Kiosk: the window fills the screen (a view fills what its host gives it).
  bool fullScreen = false;
  /// Kiosk: false leaves the window without a close button; the payment ends by its own
  /// Cancel, its end or the idle limit (the host decides about its own window).
  bool closeButton = true;
  /// Kiosk: an unfinished payment is cancelled after this many seconds without the customer's
  /// input (keys, pointer, touch) in the window or view while a page is shown (not while one
  /// loads), as if Cancel were pressed; with `reconcile`, it is then reconciled.
  /// 0: never.
  unsigned idleCancelSeconds = 0;
  /// Readable at arm's length on a touch screen: larger text in the bar and touch-sized targets
  /// (a Cancel button at least 48 pixels high, a taller bar).
  bool largeText = false;

  /// Host hook: called on every start, finish and failure of a main-frame load, just before
  /// the controller hears of it. Keep it quick; it must not close the window.
  std::function<void(PageLoadEvent event, const std::string& uri)> onPageLoad;

  /// Opt-in: reconcile a cancelled or unreadable payment with the gateway (needs `client` or
  /// `cppClient`).
  std::optional<PaymentReconciliation> reconcile;

  /// Opt-in: record the payment in the outcome journal.
  std::optional<PaymentJournal> journal;
};

/// What a payment window ended with.
struct QIPG_EXPORT PaymentOutcome {
  bool cancelled = false;    ///< the customer cancelled
  PaymentResponse response;  ///< the final page's record when not cancelled
  /// The gateway's status record when reconciliation was asked for and took place.
  std::optional<PaymentResponse> reconciled;
};

}  // namespace qipg
