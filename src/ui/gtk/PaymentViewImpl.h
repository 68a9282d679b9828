// The GTK payment view's state, shared by the view and the window around it: the widgets, and
// the payment under way with the ports its controller drives.
#pragma once

#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "qipg/PaymentView.h"
#include "ui/gtk/MainLoop.h"
#include "ui/window/Chrome.h"
#include "ui/window/ViewPayment.h"

namespace qipg {

struct PaymentView::Impl final : internal::ViewPayment {
  Impl() : ViewPayment(&internal::runWhenIdle, internal::mainLoopTimerScheduler()) {}
  ~Impl() override;

  // The bar and the place of the web view; idle, its words in the process's language.
  void build();
  // Puts the chrome's words in place (a payment's options may choose another language).
  void speak(internal::ChromeText words);
  std::shared_ptr<Impl> self() { return std::static_pointer_cast<Impl>(shared_from_this()); }
  std::weak_ptr<Impl> weakSelf() { return self(); }

  // ---- WebViewPort
  void loadRequest(const URLRequest& request) override;
  void stopLoading() override {
    if (webView_ != nullptr) webkit_web_view_stop_loading(webView_);
  }
  Text currentURL() const override {
    const char* uri = webView_ != nullptr ? webkit_web_view_get_uri(webView_) : nullptr;
    return uri != nullptr ? Text(uri) : std::nullopt;
  }
  void evaluateJavaScript(const std::string& script,
                          std::function<void(const Text&)> completion) override {
    evaluate(script, std::move(completion), false);
  }

  // ---- BarViewPort
  Rect bounds() const override;
  std::shared_ptr<ProgressBarPort> addProgressBar() override;

  // ---- LabelPort
  void setText(const Text& text) override;

  // Evaluates `script`; `alwaysAnswer`: also call `completion` (with absent) when no payment
  // is under way, else drop it.
  void evaluate(const std::string& script, std::function<void(const Text&)> completion,
                bool alwaysAnswer);

  GtkWidget* root_ = nullptr;  // one reference of ours
  WebKitWebView* webView_ = nullptr;
  GtkOverlay* bar_ = nullptr;
  GtkLabel* title_ = nullptr;
  GtkLabel* address_ = nullptr;
  GtkWidget* lock_ = nullptr;
  GtkWidget* cancelButton_ = nullptr;
  internal::ChromeText words_;
  // The payment's own ephemeral network session: nothing reaches the disk or another payment.
  WebKitNetworkSession* session_ = nullptr;

  // The address of the self-posting page while it is shown: the web view stays hidden until
  // another page commits. Empty otherwise.
  std::string hiddenWhileAt_;
  std::optional<URLRequest> lastLoaded_;
  bool currentLoadFailed_ = false;
  std::set<std::string> tlsAllowedHosts_;

 private:
  void beginPayment() override;
  void endPayment() override;
  bool onScreen() const override;
  void showAddress();
  void reveal() {
    hiddenWhileAt_.clear();
    if (webView_ != nullptr) gtk_widget_set_opacity(GTK_WIDGET(webView_), 1.0);
  }
  void retryAfterTlsAllowance(const std::string& failingURI);

  static void onLoadChanged(WebKitWebView*, WebKitLoadEvent event, gpointer data);
  static gboolean onLoadFailed(WebKitWebView*, WebKitLoadEvent, gchar* uri, GError* error,
                               gpointer data);
  static gboolean onLoadFailedWithTlsErrors(WebKitWebView*, const gchar* uri,
                                            GTlsCertificate* certificate,
                                            GTlsCertificateFlags errors, gpointer data);
  static gboolean onDecidePolicy(WebKitWebView*, WebKitPolicyDecision* decision,
                                 WebKitPolicyDecisionType type, gpointer data);
  static void onWebProcessTerminated(WebKitWebView*, WebKitWebProcessTerminationReason,
                                     gpointer data);
  static void onCancelClicked(GtkButton*, gpointer data);
  static void onMap(GtkWidget*, gpointer data);
  static gboolean onInput(GtkEventControllerLegacy*, GdkEvent* event, gpointer data);
};

}  // namespace qipg
