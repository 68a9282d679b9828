#include "qipg/PaymentView.h"

#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <string_view>
#include <utility>
#include <vector>

#include "common/Ascii.h"
#include "common/Url.h"
#include "ui/AutoPostForm.h"
#include "ui/gtk/MainLoop.h"
#include "ui/gtk/PaymentViewImpl.h"
#include "ui/gtk/ProgressLine.h"
#include "ui/gtk/Screenshot.h"
#include "ui/gtk/WeakPointer.h"
#include "ui/window/TlsTrust.h"

namespace qipg {

using internal::ProgressLine;
using internal::unwatch;
using internal::watch;

namespace {

constexpr int kBarHeight = 48;
constexpr int kLargeBarHeight = 64;  // with large text: room for a 48-pixel touch target

constexpr char kStyle[] = R"css(
.qipg-bar {
  background-color: #f9f9f9;
  border-bottom: 1px solid rgba(0, 0, 0, 0.14);
  min-height: 48px;
}
.qipg-bar button.qipg-cancel {
  color: #007aff;
  background: none;
  border: none;
  box-shadow: none;
  font-size: 16px;
  padding: 4px 14px;
  margin: 0 4px;
}
.qipg-bar button.qipg-cancel:hover { background-color: rgba(0, 122, 255, 0.08); }
.qipg-bar button.qipg-cancel:active { background-color: rgba(0, 122, 255, 0.16); }
.qipg-title { font-weight: bold; font-size: 16px; color: #111; }
.qipg-address { font-size: 13px; color: #555; }
.qipg-lock { color: #555; }
.qipg-large .qipg-bar { min-height: 64px; }
.qipg-large .qipg-bar button.qipg-cancel { font-size: 22px; min-height: 48px; min-width: 96px; }
.qipg-large .qipg-title { font-size: 22px; }
.qipg-large .qipg-address { font-size: 17px; }
)css";

std::string toText(const char* text) { return text != nullptr ? text : ""; }

void prepareEnvironment() {
  static bool done = false;
  if (done) return;
  done = true;
  // Root cannot use WebKit's bubblewrap sandbox (no user namespaces in CI containers).
  if (internal::runningAsRoot()) {
    internal::setEnvironmentDefault("WEBKIT_DISABLE_SANDBOX_THIS_IS_DANGEROUS", "1");
  }
  GtkCssProvider* provider = gtk_css_provider_new();
  gtk_css_provider_load_from_data(provider, kStyle, -1);
  gtk_style_context_add_provider_for_display(gdk_display_get_default(),
                                             GTK_STYLE_PROVIDER(provider),
                                             GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  g_object_unref(provider);
}

NavigationType navigationTypeOf(WebKitNavigationType type) {
  switch (type) {
    case WEBKIT_NAVIGATION_TYPE_LINK_CLICKED:
      return NavigationType::LinkClicked;
    case WEBKIT_NAVIGATION_TYPE_FORM_SUBMITTED:
      return NavigationType::FormSubmitted;
    case WEBKIT_NAVIGATION_TYPE_BACK_FORWARD:
      return NavigationType::BackForward;
    case WEBKIT_NAVIGATION_TYPE_RELOAD:
      return NavigationType::Reload;
    case WEBKIT_NAVIGATION_TYPE_FORM_RESUBMITTED:
      return NavigationType::FormResubmitted;
    default:
      return NavigationType::Other;
  }
}

// The certificate and the issuers it carries, DER-encoded, the server's first.
std::vector<std::string> derChain(GTlsCertificate* certificate) {
  std::vector<std::string> chain;
  for (GTlsCertificate* c = certificate; c != nullptr && chain.size() < 16;
       c = g_tls_certificate_get_issuer(c)) {
    GByteArray* der = nullptr;
    g_object_get(c, "certificate", &der, nullptr);
    if (der == nullptr) break;
    chain.emplace_back(reinterpret_cast<const char*>(der->data), der->len);
    g_byte_array_unref(der);
  }
  return chain;
}

// What PaymentView::prewarm() started, until the first payment takes it over.
GtkWidget* warmWindow = nullptr;
GtkWidget* warmWebView = nullptr;  // one reference of ours

// The prewarmed web view with its network session (a new reference each), or nullptr.
GtkWidget* takeWarmWebView(WebKitNetworkSession** session) {
  GtkWidget* view = std::exchange(warmWebView, nullptr);
  if (view == nullptr) return nullptr;
  gtk_window_set_child(GTK_WINDOW(warmWindow), nullptr);
  gtk_window_destroy(GTK_WINDOW(std::exchange(warmWindow, nullptr)));
  *session = WEBKIT_NETWORK_SESSION(
      g_object_ref(webkit_web_view_get_network_session(WEBKIT_WEB_VIEW(view))));
  return view;
}

}  // namespace

// ---------------------------------------------------------------- the view

PaymentView::Impl::~Impl() {
  endPayment();
  unwatch(bar_);
  unwatch(title_);
  unwatch(address_);
  unwatch(lock_);
  unwatch(cancelButton_);
  if (root_ != nullptr) {
    g_signal_handlers_disconnect_by_data(root_, this);
    g_object_unref(root_);
  }
}

void PaymentView::Impl::build() {
  prepareEnvironment();
  // A column: the bar above the payment's web view, which fills the rest.
  root_ = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  g_object_ref_sink(root_);
  gtk_widget_add_css_class(root_, "qipg-payment-view");
  gtk_widget_set_vexpand(root_, TRUE);
  gtk_widget_set_hexpand(root_, TRUE);

  // The bar: Cancel at the leading edge; in the middle the title label (empty, so hidden)
  // over the address of the page shown; progress lines laid over its bottom edge.
  GtkWidget* bar = gtk_overlay_new();
  watch(bar_, bar);
  gtk_widget_add_css_class(bar, "qipg-bar");
  gtk_widget_set_size_request(bar, -1, kBarHeight);
  g_signal_connect(bar, "get-child-position", G_CALLBACK(&ProgressLine::placeChild), nullptr);

  GtkWidget* row = gtk_center_box_new();
  GtkWidget* cancel = gtk_button_new();
  watch(cancelButton_, cancel);
  gtk_widget_add_css_class(cancel, "qipg-cancel");
  gtk_widget_set_valign(cancel, GTK_ALIGN_CENTER);
  gtk_center_box_set_start_widget(GTK_CENTER_BOX(row), cancel);

  GtkWidget* middle = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  gtk_widget_set_valign(middle, GTK_ALIGN_CENTER);
  GtkWidget* title = gtk_label_new("");
  watch(title_, title);
  gtk_widget_add_css_class(title, "qipg-title");
  gtk_label_set_ellipsize(title_, PANGO_ELLIPSIZE_END);
  gtk_box_append(GTK_BOX(middle), title);
  GtkWidget* addressRow = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 4);
  gtk_widget_set_halign(addressRow, GTK_ALIGN_CENTER);
  GtkWidget* lock = gtk_image_new_from_icon_name("channel-secure-symbolic");
  watch(lock_, lock);
  gtk_widget_add_css_class(lock, "qipg-lock");
  gtk_widget_set_visible(lock, FALSE);
  GtkWidget* address = gtk_label_new("");
  watch(address_, address);
  gtk_widget_add_css_class(address, "qipg-address");
  gtk_label_set_ellipsize(address_, PANGO_ELLIPSIZE_MIDDLE);
  gtk_box_append(GTK_BOX(addressRow), lock);
  gtk_box_append(GTK_BOX(addressRow), address);
  gtk_box_append(GTK_BOX(middle), addressRow);
  gtk_center_box_set_center_widget(GTK_CENTER_BOX(row), middle);
  gtk_overlay_set_child(bar_, row);

  gtk_widget_set_sensitive(cancel, FALSE);
  gtk_box_append(GTK_BOX(root_), bar);

  g_signal_connect(cancel, "clicked", G_CALLBACK(&Impl::onCancelClicked), this);
  g_signal_connect(root_, "map", G_CALLBACK(&Impl::onMap), this);
  // The customer's input anywhere in the view, the page's included, before the page sees it.
  GtkEventController* input = gtk_event_controller_legacy_new();
  gtk_event_controller_set_propagation_phase(input, GTK_PHASE_CAPTURE);
  g_signal_connect(input, "event", G_CALLBACK(&Impl::onInput), this);
  gtk_widget_add_controller(root_, input);
  speak(internal::chromeIn({}));
}

void PaymentView::Impl::speak(internal::ChromeText words) {
  words_ = std::move(words);
  gtk_accessible_update_property(GTK_ACCESSIBLE(root_), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                 words_.payment.c_str(), -1);
  if (cancelButton_ != nullptr) {
    gtk_button_set_label(GTK_BUTTON(cancelButton_), words_.cancel.c_str());
  }
  if (lock_ != nullptr) {
    gtk_accessible_update_property(GTK_ACCESSIBLE(lock_), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                   words_.secureConnection.c_str(), -1);
  }
  if (address_ != nullptr) {
    gtk_accessible_update_property(GTK_ACCESSIBLE(address_), GTK_ACCESSIBLE_PROPERTY_DESCRIPTION,
                                   words_.pageAddress.c_str(), -1);
  }
}

gboolean PaymentView::Impl::onInput(GtkEventControllerLegacy*, GdkEvent* event, gpointer data) {
  switch (gdk_event_get_event_type(event)) {
    case GDK_KEY_PRESS:
    case GDK_BUTTON_PRESS:
    case GDK_TOUCH_BEGIN:
    case GDK_TOUCH_UPDATE:
    case GDK_SCROLL:
    case GDK_MOTION_NOTIFY:
      static_cast<Impl*>(data)->touched();
      break;
    default:
      break;
  }
  return FALSE;
}

void PaymentView::Impl::beginPayment() {
  speak(internal::chromeIn(options().language));
  hiddenWhileAt_.clear();
  lastLoaded_.reset();
  currentLoadFailed_ = false;

  // The page below the bar, in a network session of its own.
  GtkWidget* webView = takeWarmWebView(&session_);
  if (webView == nullptr) {
    session_ = webkit_network_session_new_ephemeral();
    webView = GTK_WIDGET(g_object_new(WEBKIT_TYPE_WEB_VIEW, "network-session", session_, nullptr));
    g_object_ref_sink(webView);
  }
  watch(webView_, webView);
  gtk_accessible_update_property(GTK_ACCESSIBLE(webView), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                 words_.paymentPage.c_str(), -1);
  gtk_widget_set_vexpand(webView, TRUE);
  gtk_widget_set_hexpand(webView, TRUE);
  WebKitSettings* settings = webkit_web_view_get_settings(webView_);
  webkit_settings_set_enable_developer_extras(settings, FALSE);
  webkit_settings_set_javascript_can_open_windows_automatically(settings, FALSE);
  gtk_box_append(GTK_BOX(root_), webView);
  g_object_unref(webView);  // the column holds it

  g_signal_connect(webView, "load-changed", G_CALLBACK(&Impl::onLoadChanged), this);
  g_signal_connect(webView, "load-failed", G_CALLBACK(&Impl::onLoadFailed), this);
  g_signal_connect(webView, "load-failed-with-tls-errors",
                   G_CALLBACK(&Impl::onLoadFailedWithTlsErrors), this);
  g_signal_connect(webView, "decide-policy", G_CALLBACK(&Impl::onDecidePolicy), this);
  g_signal_connect(webView, "web-process-terminated", G_CALLBACK(&Impl::onWebProcessTerminated),
                   this);

  if (options().largeText) {
    gtk_widget_add_css_class(root_, "qipg-large");
  } else {
    gtk_widget_remove_css_class(root_, "qipg-large");
  }
  if (bar_ != nullptr) {
    gtk_widget_set_size_request(GTK_WIDGET(bar_), -1,
                                options().largeText ? kLargeBarHeight : kBarHeight);
  }
  if (cancelButton_ != nullptr) gtk_widget_set_sensitive(cancelButton_, TRUE);
}

bool PaymentView::Impl::onScreen() const { return gtk_widget_get_mapped(root_); }

void PaymentView::Impl::endPayment() {
  if (webView_ != nullptr) {
    g_signal_handlers_disconnect_by_data(webView_, this);
    GtkWidget* view = GTK_WIDGET(webView_);
    unwatch(webView_);
    if (GtkWidget* parent = gtk_widget_get_parent(view)) gtk_box_remove(GTK_BOX(parent), view);
  }
  if (session_ != nullptr) g_object_unref(std::exchange(session_, nullptr));
  // The payment's progress lines go with it.
  if (bar_ != nullptr) {
    std::vector<GtkWidget*> lines;
    for (GtkWidget* child = gtk_widget_get_first_child(GTK_WIDGET(bar_)); child != nullptr;
         child = gtk_widget_get_next_sibling(child)) {
      if (gtk_widget_has_css_class(child, "qipg-progress-line")) lines.push_back(child);
    }
    for (GtkWidget* line : lines) gtk_overlay_remove_overlay(bar_, line);
  }
  if (address_ != nullptr) gtk_label_set_text(address_, "");
  if (lock_ != nullptr) gtk_widget_set_visible(lock_, FALSE);
  if (cancelButton_ != nullptr) gtk_widget_set_sensitive(cancelButton_, FALSE);
}

Rect PaymentView::Impl::bounds() const {
  if (bar_ == nullptr) return {};
  return {0.0, 0.0, static_cast<double>(gtk_widget_get_width(GTK_WIDGET(bar_))),
          static_cast<double>(gtk_widget_get_height(GTK_WIDGET(bar_)))};
}

std::shared_ptr<ProgressBarPort> PaymentView::Impl::addProgressBar() {
  return bar_ != nullptr ? ProgressLine::addTo(bar_, words_.loading) : nullptr;
}

void PaymentView::Impl::setText(const Text& text) {
  if (title_ == nullptr) return;
  gtk_label_set_text(title_, text.value_or("").c_str());
  gtk_widget_set_visible(GTK_WIDGET(title_), text.has_value() && !text->empty());
}

void PaymentView::Impl::loadRequest(const URLRequest& request) {
  if (webView_ == nullptr || !request.url) return;
  lastLoaded_ = request;
  if (internal::equalsIgnoringAsciiCase(request.httpMethod, "POST")) {
    const std::string page = internal::autoPostPage(*request.url, request.bodyText());
    const std::string base = internal::originOf(*request.url);
    hiddenWhileAt_ = internal::canonicalURL(base);
    gtk_widget_set_opacity(GTK_WIDGET(webView_), 0.0);
    webkit_web_view_load_html(webView_, page.c_str(), base.empty() ? nullptr : base.c_str());
    return;
  }
  WebKitURIRequest* uriRequest = webkit_uri_request_new(request.url->c_str());
  if (SoupMessageHeaders* headers = webkit_uri_request_get_http_headers(uriRequest)) {
    for (const auto& [name, value] : request.allHTTPHeaderFields) {
      soup_message_headers_replace(headers, name.c_str(), value.c_str());
    }
  }
  webkit_web_view_load_request(webView_, uriRequest);
  g_object_unref(uriRequest);
}

namespace {

struct Evaluation {
  std::function<void(const Text&)> completion;
  bool alwaysAnswer = false;
  std::weak_ptr<PaymentView::Impl> view;
  WebKitWebView* webView = nullptr;  // the payment's, compared only
};

void onScriptEvaluated(GObject* source, GAsyncResult* result, gpointer data) {
  std::unique_ptr<Evaluation> evaluation(static_cast<Evaluation*>(data));
  GError* error = nullptr;
  JSCValue* value =
      webkit_web_view_evaluate_javascript_finish(WEBKIT_WEB_VIEW(source), result, &error);
  g_clear_error(&error);
  auto view = evaluation->view.lock();
  // Gone: the payment has ended, and perhaps another has started since.
  const bool gone = !view || !view->active() || view->webView_ != evaluation->webView;
  Text text;
  if (value != nullptr) {
    if (!jsc_value_is_undefined(value) && !jsc_value_is_null(value)) {
      char* string = jsc_value_to_string(value);
      if (string != nullptr) text = std::string(string);
      g_free(string);
    }
    g_object_unref(value);
  }
  if (gone && !evaluation->alwaysAnswer) return;
  if (evaluation->completion) evaluation->completion(gone ? std::nullopt : text);
}

}  // namespace

void PaymentView::Impl::evaluate(const std::string& script,
                                 std::function<void(const Text&)> completion, bool alwaysAnswer) {
  if (webView_ == nullptr || !active()) {
    if (alwaysAnswer && completion) completion(std::nullopt);
    return;
  }
  // WebKit answers every evaluation, with an error when the view has gone meanwhile.
  webkit_web_view_evaluate_javascript(
      webView_, script.c_str(), -1, nullptr, nullptr, nullptr, &onScriptEvaluated,
      new Evaluation{std::move(completion), alwaysAnswer, weakSelf(), webView_});
}

void PaymentView::Impl::showAddress() {
  if (address_ == nullptr || webView_ == nullptr) return;
  std::string host;
  if (const char* uri = webkit_web_view_get_uri(webView_)) {
    if (GUri* parsed = g_uri_parse(uri, G_URI_FLAGS_NONE, nullptr)) {
      host = toText(g_uri_get_host(parsed));
      g_uri_unref(parsed);
    }
  }
  GTlsCertificate* certificate = nullptr;
  GTlsCertificateFlags errors = G_TLS_CERTIFICATE_NO_FLAGS;
  const bool secure = webkit_web_view_get_tls_info(webView_, &certificate, &errors);
  gtk_label_set_text(address_, host.c_str());
  if (lock_ != nullptr) gtk_widget_set_visible(lock_, secure && !host.empty());
}

void PaymentView::Impl::onLoadChanged(WebKitWebView* webView, WebKitLoadEvent event,
                                        gpointer data) {
  auto self = static_cast<Impl*>(data)->self();
  const std::string uri = toText(webkit_web_view_get_uri(webView));
  switch (event) {
    case WEBKIT_LOAD_STARTED:
      self->currentLoadFailed_ = false;
      self->reportLoad(PageLoadEvent::Started, uri);
      self->controller()->webViewDidStartLoad();
      break;
    case WEBKIT_LOAD_COMMITTED:
      self->showAddress();
      if (!self->hiddenWhileAt_.empty() && internal::canonicalURL(uri) != self->hiddenWhileAt_) {
        self->reveal();
      }
      break;
    case WEBKIT_LOAD_FINISHED:
      // WebKit finishes a failed load too; the controller has heard of its failure already.
      if (self->currentLoadFailed_) break;
      self->reportLoad(PageLoadEvent::Finished, uri);
      self->controller()->webViewDidFinishLoad();
      break;
    default:
      break;
  }
}

gboolean PaymentView::Impl::onLoadFailed(WebKitWebView*, WebKitLoadEvent, gchar* uri,
                                           GError* error, gpointer data) {
  auto self = static_cast<Impl*>(data)->self();
  if (self->currentLoadFailed_) return TRUE;
  self->currentLoadFailed_ = true;
  self->reveal();
  self->reportLoad(PageLoadEvent::Failed, toText(uri));
  WebViewError failure;
  if (error != nullptr) {
    failure = {toText(g_quark_to_string(error->domain)), error->code, toText(error->message)};
  }
  self->controller()->webViewDidFailLoadWithError(failure);
  return TRUE;  // no error page: it would count as a finished load of the failed address
}

gboolean PaymentView::Impl::onLoadFailedWithTlsErrors(WebKitWebView*, const gchar* uri,
                                                        GTlsCertificate* certificate,
                                                        GTlsCertificateFlags errors,
                                                        gpointer data) {
  auto self = static_cast<Impl*>(data)->self();
  const PaymentWindowOptions& options = self->options();
  if (uri == nullptr) return FALSE;  // "load-failed" follows
  const std::string host = internal::hostOf(uri);
  if (self->tlsAllowedHosts_.count(host) != 0 ||
      !internal::certificateTrustedForHost(derChain(certificate), options.trustedCAFile,
                                           options.trustedHost, uri)) {
    return FALSE;
  }
  self->tlsAllowedHosts_.insert(host);
  webkit_network_session_allow_tls_certificate_for_host(self->session_, certificate, host.c_str());
  // This load has failed all the same; the retry is a new load.
  self->currentLoadFailed_ = true;
  self->reportLoad(PageLoadEvent::Failed, uri);
  self->controller()->webViewDidFailLoadWithError(
      {"GTlsCertificate", static_cast<int>(errors),
       "certificate verified against the trusted CA file; loading again"});
  self->retryAfterTlsAllowance(uri);
  return TRUE;
}

void PaymentView::Impl::retryAfterTlsAllowance(const std::string& failingURI) {
  internal::runWhenIdle([weak = weakSelf(), failingURI] {
    auto self = weak.lock();
    if (!self || !self->active() || self->webView_ == nullptr) return;
    // A failed POST is posted again; any other address is simply loaded.
    if (self->lastLoaded_ && self->lastLoaded_->url &&
        internal::canonicalURL(*self->lastLoaded_->url) == internal::canonicalURL(failingURI)) {
      self->loadRequest(*self->lastLoaded_);
    } else {
      webkit_web_view_load_uri(self->webView_, failingURI.c_str());
    }
  });
}

gboolean PaymentView::Impl::onDecidePolicy(WebKitWebView*, WebKitPolicyDecision* decision,
                                             WebKitPolicyDecisionType type, gpointer data) {
  if (type != WEBKIT_POLICY_DECISION_TYPE_NAVIGATION_ACTION) return FALSE;
  auto self = static_cast<Impl*>(data)->self();
  WebKitNavigationAction* action = webkit_navigation_policy_decision_get_navigation_action(
      WEBKIT_NAVIGATION_POLICY_DECISION(decision));
  WebKitURIRequest* uriRequest = webkit_navigation_action_get_request(action);
  URLRequest request;
  if (const char* uri = webkit_uri_request_get_uri(uriRequest)) request.url = uri;
  if (const char* method = webkit_uri_request_get_http_method(uriRequest)) {
    request.httpMethod = method;
  }
  if (!self->controller()->shouldStartLoadWithRequest(
          request, navigationTypeOf(webkit_navigation_action_get_navigation_type(action)))) {
    webkit_policy_decision_ignore(decision);
    return TRUE;
  }
  return FALSE;
}

void PaymentView::Impl::onWebProcessTerminated(WebKitWebView* webView,
                                                 WebKitWebProcessTerminationReason reason,
                                                 gpointer data) {
  auto self = static_cast<Impl*>(data)->self();
  self->currentLoadFailed_ = true;
  self->reportLoad(PageLoadEvent::Failed, toText(webkit_web_view_get_uri(webView)));
  self->controller()->webViewDidFailLoadWithError({"WebKitWebProcessTerminationReason",
                                                  static_cast<int>(reason),
                                                  "the page's web process ended"});
}

void PaymentView::Impl::onCancelClicked(GtkButton*, gpointer data) {
  auto self = static_cast<Impl*>(data)->self();
  self->cancel();
}

void PaymentView::Impl::onMap(GtkWidget*, gpointer data) {
  static_cast<Impl*>(data)->onScreenNow();
}

// ---------------------------------------------------------------- public surface

PaymentView::PaymentView(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

PaymentView::~PaymentView() = default;

std::shared_ptr<PaymentView> PaymentView::create(std::string* error) {
  if (!gtk_is_initialized() && !gtk_init_check()) {
    if (error != nullptr) {
      *error = "cannot open a display for the payment view (set DISPLAY or WAYLAND_DISPLAY)";
    }
    return nullptr;
  }
  auto impl = std::make_shared<Impl>();
  impl->build();
  return std::make_shared<PaymentView>(std::move(impl));
}

void* PaymentView::widget() const { return impl_->root_; }

bool PaymentView::start(const URLRequest& request,
                        std::shared_ptr<IPGPaymentControllerDelegate> delegate,
                        PaymentWindowOptions options, std::string* error) {
  return impl_->start(request, std::move(delegate), std::move(options), error);
}

bool PaymentView::isActive() const { return impl_->active(); }

std::shared_ptr<WebviewController> PaymentView::controller() const { return impl_->controller(); }

void PaymentView::runJavaScript(const std::string& script,
                                std::function<void(const Text&)> completion) {
  impl_->evaluate(script, std::move(completion), true);
}

void PaymentView::saveScreenshot(const std::string& pngPath, std::function<void(bool)> completion,
                                 WindowSnapshotArea area) {
  if (!impl_->active() || impl_->webView_ == nullptr) {
    if (completion) completion(false);
    return;
  }
  // The window the view is in: the host's, with whatever else it shows.
  GtkWidget* window = GTK_WIDGET(gtk_widget_get_root(impl_->root_));
  internal::saveScreenshot(window != nullptr ? window : impl_->root_, GTK_WIDGET(impl_->webView_),
                           pngPath, std::move(completion), area == WindowSnapshotArea::Window);
}

void PaymentView::pressCancel() {
  if (impl_->active()) impl_->cancel();
}

void* PaymentView::nativeWebView() const { return impl_->webView_; }

void PaymentView::prewarm() {
  if (warmWebView != nullptr || (!gtk_is_initialized() && !gtk_init_check())) return;
  prepareEnvironment();
  // A web view like a payment's, in a window realised but never shown: GTK's renderer and
  // WebKit's processes are up, and the first payment takes this web view over.
  warmWindow = gtk_window_new();
  WebKitNetworkSession* session = webkit_network_session_new_ephemeral();
  warmWebView = GTK_WIDGET(g_object_new(WEBKIT_TYPE_WEB_VIEW, "network-session", session, nullptr));
  g_object_unref(session);
  g_object_ref(warmWebView);
  gtk_window_set_child(GTK_WINDOW(warmWindow), warmWebView);
  gtk_widget_realize(warmWindow);
  webkit_web_view_load_html(WEBKIT_WEB_VIEW(warmWebView), "<!DOCTYPE html><title></title>",
                            "about:blank");
}

}  // namespace qipg
