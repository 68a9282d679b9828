// The Qt payment view's state, shared by the view and the window around it: the widgets, and
// the payment under way with the ports its controller drives.
#pragma once

#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSpacerItem>
#include <QVBoxLayout>
#include <QWebEngineCertificateError>
#include <QWebEngineLoadingInfo>
#include <QWebEngineView>
#include <QWidget>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "qipg/QtPaymentView.h"
#include "ui/qt/EventLoop.h"
#include "ui/window/Chrome.h"
#include "ui/window/ViewPayment.h"

namespace qipg {

struct QtPaymentView::Impl final : internal::ViewPayment {
  Impl() : ViewPayment(&internal::postToGuiThread, internal::qtTimerScheduler()) {}
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
    if (webView_ != nullptr) webView_->stop();
  }
  // The address as the engine reports it, fully encoded and otherwise untouched: an empty
  // "?" or "#" stays, so such a page is never taken for the final one.
  Text currentURL() const override;
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

  QPointer<QWidget> root_;
  QPointer<QVBoxLayout> column_;  // the bar, the payment's place, and the room below
  QPointer<QWidget> bar_;
  QPointer<QLabel> title_;
  QPointer<QLabel> address_;
  QPointer<QLabel> lock_;
  QPointer<QPushButton> cancelButton_;
  QSpacerItem* cancelMirror_ = nullptr;  // the bar's layout owns it
  internal::ChromeText words_;
  // The payment under way: its web view, and the widget around it that also owns its profile.
  QPointer<QWebEngineView> webView_;
  QPointer<QWidget> paymentArea_;
  // The context of every connection to the payment's page: deleting it cuts them all.
  std::unique_ptr<QObject> connections_;

  std::map<int, std::pair<std::function<void(const Text&)>, bool>> pending_;
  int nextEvaluation_ = 0;
  bool loading_ = false;

 private:
  std::optional<std::string> unavailable() const override;
  void beginPayment() override;
  void endPayment() override;
  bool onScreen() const override;
  void answerPending();
  void onLoading(const QWebEngineLoadingInfo& info);
  void onCertificateError(const QWebEngineCertificateError& error);
  void showAddress(const QUrl& url);
};

namespace internal {

// Saves a PNG of `whole` (or with `wholeArea` false, of `page` only) to `path`, owner-only;
// `completion` hears whether it was saved, from the event loop.
void saveQtScreenshot(QWidget* whole, QWebEngineView* page, const std::string& path,
                      std::function<void(bool)> completion, bool wholeArea);

}  // namespace internal
}  // namespace qipg
