#include "qipg/QtPaymentWindow.h"

#include <QApplication>
#include <QBuffer>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QPushButton>
#include <QSslCertificate>
#include <QTimer>
#include <QVBoxLayout>
#include <QWebEngineCertificateError>
#include <QWebEngineHttpRequest>
#include <QWebEngineLoadingInfo>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineSettings>
#include <QWebEngineView>
#include <map>
#include <utility>
#include <vector>

#include "ui/qt/EventLoop.h"
#include "ui/qt/ProgressLine.h"
#include "ui/window/Files.h"
#include "ui/window/Session.h"
#include "ui/window/TlsTrust.h"

namespace qipg {

using internal::ProgressLine;

namespace {

constexpr int kBarHeight = 48;

constexpr char kStyle[] = R"css(
#qipg-bar { background-color: #f9f9f9; border-bottom: 1px solid rgba(0, 0, 0, 36); }
#qipg-cancel {
  color: #007aff; background: none; border: none; font-size: 16px;
  padding: 4px 14px; margin: 0 4px;
}
#qipg-cancel:hover { background-color: rgba(0, 122, 255, 20); }
#qipg-cancel:pressed { background-color: rgba(0, 122, 255, 41); }
#qipg-title { font-weight: bold; font-size: 16px; color: #111; }
#qipg-address { font-size: 13px; color: #555; }
)css";

std::string toStd(const QString& text) { return text.toUtf8().toStdString(); }

std::string urlText(const QUrl& url) {
  return url.isEmpty() ? std::string() : url.toEncoded().toStdString();
}

// A small padlock, drawn (icon themes differ from desktop to desktop).
QPixmap lockPixmap() {
  QPixmap pixmap(12, 14);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(QColor(0x55, 0x55, 0x55), 1.6));
  painter.drawArc(QRectF(2.5, 1, 7, 8), 0, 180 * 16);
  painter.drawLine(QPointF(2.5, 5), QPointF(2.5, 7));
  painter.drawLine(QPointF(9.5, 5), QPointF(9.5, 7));
  painter.fillRect(QRectF(1, 6.5, 10, 7), QColor(0x55, 0x55, 0x55));
  return pixmap;
}

NavigationType navigationTypeOf(QWebEnginePage::NavigationType type) {
  switch (type) {
    case QWebEnginePage::NavigationTypeLinkClicked:
      return NavigationType::LinkClicked;
    case QWebEnginePage::NavigationTypeFormSubmitted:
      return NavigationType::FormSubmitted;
    case QWebEnginePage::NavigationTypeBackForward:
      return NavigationType::BackForward;
    case QWebEnginePage::NavigationTypeReload:
      return NavigationType::Reload;
    default:
      return NavigationType::Other;
  }
}

Text textOf(const QVariant& value) {
  if (!value.isValid() || value.isNull()) return std::nullopt;
  return toStd(value.toString());
}

bool savePng(const QImage& image, const std::string& path) {
  QByteArray png;
  QBuffer buffer(&png);
  if (image.isNull() || !buffer.open(QIODevice::WriteOnly) || !image.save(&buffer, "PNG")) {
    return false;
  }
  return internal::writeOwnerOnly(path, png.constData(), static_cast<std::size_t>(png.size()));
}

}  // namespace

// ---------------------------------------------------------------- the window

// The window and the ports it gives its controller: the web view, the bar that hosts the
// progress lines, the title label and the presenter.
struct QtPaymentWindow::Impl final : internal::WindowPorts,
                                     std::enable_shared_from_this<QtPaymentWindow::Impl> {
  Impl(URLRequest request, PaymentWindowOptions options)
      : request_(std::move(request)), options_(std::move(options)) {}

  ~Impl() override {
    cutConnections();
    answerPending();
    // The view (and its page) go before the profile: the profile is the window's last child.
    if (window_ != nullptr) delete window_.data();
  }

  void build(std::shared_ptr<IPGPaymentControllerDelegate> delegate);

  // ---- WebViewPort
  void loadRequest(const URLRequest& request) override;
  void stopLoading() override {
    if (view_ != nullptr) view_->stop();
  }
  // The address as the engine reports it, fully encoded and otherwise untouched: an empty
  // "?" or "#" stays, so such a page is never taken for the final one.
  Text currentURL() const override {
    if (view_ == nullptr || view_->url().isEmpty()) return std::nullopt;
    return urlText(view_->url());
  }
  void evaluateJavaScript(const std::string& script,
                          std::function<void(const Text&)> completion) override {
    evaluate(script, std::move(completion), false);
  }

  // ---- BarViewPort
  Rect bounds() const override {
    if (bar_ == nullptr) return {};
    // Above the bar's 1-pixel bottom border.
    return {0.0, 0.0, static_cast<double>(bar_->width()), static_cast<double>(bar_->height() - 1)};
  }
  std::shared_ptr<ProgressBarPort> addProgressBar() override {
    return bar_ != nullptr ? ProgressLine::addTo(bar_) : nullptr;
  }

  // ---- LabelPort
  void setText(const Text& text) override {
    if (title_ == nullptr) return;
    title_->setText(QString::fromStdString(text.value_or("")));
    title_->setVisible(text.has_value() && !text->empty());
  }

  // ---- PresenterPort
  void dismiss(bool /*animated*/, std::function<void()> completion) override {
    close();
    internal::postToGuiThread(std::move(completion));
    // Let go of the window's hold on itself after this call (the caller may be its last user).
    if (keepAlive_) internal::postToGuiThread([held = std::move(keepAlive_)] {});
  }

  // Takes the window away for good: no more events reach the controller.
  void close() {
    dismissed_ = true;
    cutConnections();
    answerPending();
    if (window_ != nullptr) {
      window_->hide();
      window_->deleteLater();
    }
  }

  // No more signals reach the controller (safe inside one of those signals).
  void cutConnections() {
    QObject* context = connections_.release();
    if (context == nullptr) return;
    for (QObject* sender :
         {static_cast<QObject*>(view_ ? view_->page() : nullptr),
          static_cast<QObject*>(cancelButton_.data()), static_cast<QObject*>(window_.data())}) {
      if (sender != nullptr) QObject::disconnect(sender, nullptr, context, nullptr);
    }
    context->deleteLater();
  }

  // Evaluates `script`; `alwaysAnswer`: also call `completion` (with absent) when the web view
  // is gone, else drop it.
  void evaluate(const std::string& script, std::function<void(const Text&)> completion,
                bool alwaysAnswer);
  void answerPending() {
    auto pending = std::move(pending_);
    pending_.clear();
    for (auto& [id, evaluation] : pending) {
      if (evaluation.second && evaluation.first) evaluation.first(std::nullopt);
    }
  }

  void reportLoad(PageLoadEvent event, const std::string& uri) {
    if (options_.onPageLoad) options_.onPageLoad(event, uri);
  }
  void onLoading(const QWebEngineLoadingInfo& info);
  void onCertificateError(const QWebEngineCertificateError& error);
  void showAddress(const QUrl& url);

  QPointer<QWidget> window_;
  QPointer<QWebEngineView> view_;
  QPointer<QWidget> bar_;
  QPointer<QLabel> title_;
  QPointer<QLabel> address_;
  QPointer<QLabel> lock_;
  QPointer<QPushButton> cancelButton_;
  // The context of every connection to the widgets: deleting it cuts them all.
  std::unique_ptr<QObject> connections_;

  URLRequest request_;
  PaymentWindowOptions options_;
  std::shared_ptr<WebviewController> controller_;
  std::shared_ptr<IPGPaymentControllerDelegate> delegate_;  // the host's, or reconciling
  std::shared_ptr<Impl> keepAlive_;                         // while the window is up
  std::map<int, std::pair<std::function<void(const Text&)>, bool>> pending_;
  int nextEvaluation_ = 0;
  bool loading_ = false;
  bool appeared_ = false;
  bool dismissed_ = false;
};

namespace {

// The page: every main-frame navigation is put to the controller first.
class Page final : public QWebEnginePage {
 public:
  Page(QWebEngineProfile* profile, QObject* parent,
       std::function<bool(const QUrl&, qipg::NavigationType)> decide)
      : QWebEnginePage(profile, parent), decide_(std::move(decide)) {}

 protected:
  bool acceptNavigationRequest(const QUrl& url, QWebEnginePage::NavigationType type,
                               bool isMainFrame) override {
    return !isMainFrame || !decide_ || decide_(url, navigationTypeOf(type));
  }

 private:
  std::function<bool(const QUrl&, qipg::NavigationType)> decide_;
};

// The window: its close button counts as Cancel; the first show loads the request; a resized
// bar places its progress lines again.
class Window final : public QWidget {
 public:
  std::function<void()> onClose, onFirstShow;

 protected:
  void closeEvent(QCloseEvent* event) override {
    event->ignore();  // the dismissal closes the window
    if (onClose) onClose();
  }
  void showEvent(QShowEvent* event) override {
    QWidget::showEvent(event);
    if (auto first = std::exchange(onFirstShow, nullptr)) QTimer::singleShot(0, this, first);
  }
};

class Bar final : public QWidget {
 public:
  using QWidget::QWidget;

 protected:
  void resizeEvent(QResizeEvent* event) override {
    QWidget::resizeEvent(event);
    ProgressLine::placeAll(this);
  }
};

}  // namespace

void QtPaymentWindow::Impl::build(std::shared_ptr<IPGPaymentControllerDelegate> delegate) {
  auto* window = new Window();
  window_ = window;
  window->setWindowTitle(QString::fromStdString(options_.title));
  window->resize(options_.width, options_.height);
  window->setStyleSheet(kStyle);
  if (options_.transientFor != nullptr) {
    window->setParent(static_cast<QWidget*>(options_.transientFor), Qt::Window);
    window->setWindowModality(Qt::WindowModal);
  }

  // The bar: Cancel at the leading edge; in the middle the title label (empty, so hidden)
  // over the address of the page shown; progress lines laid over its bottom edge.
  auto* bar = new Bar(window);
  bar_ = bar;
  bar->setObjectName("qipg-bar");
  bar->setAttribute(Qt::WA_StyledBackground);
  bar->setFixedHeight(kBarHeight);
  auto* cancel = new QPushButton("Cancel", bar);
  cancelButton_ = cancel;
  cancel->setObjectName("qipg-cancel");
  cancel->setFlat(true);
  cancel->setCursor(Qt::PointingHandCursor);
  auto* title = new QLabel(bar);
  title_ = title;
  title->setObjectName("qipg-title");
  title->setAlignment(Qt::AlignCenter);
  title->hide();
  auto* lock = new QLabel(bar);
  lock_ = lock;
  lock->setPixmap(lockPixmap());
  lock->hide();
  auto* address = new QLabel(bar);
  address_ = address;
  address->setObjectName("qipg-address");

  auto* addressRow = new QHBoxLayout();
  addressRow->setSpacing(4);
  addressRow->addStretch();
  addressRow->addWidget(lock);
  addressRow->addWidget(address);
  addressRow->addStretch();
  auto* middle = new QVBoxLayout();
  middle->setSpacing(0);
  middle->addStretch();
  middle->addWidget(title);
  middle->addLayout(addressRow);
  middle->addStretch();
  auto* row = new QHBoxLayout(bar);
  row->setContentsMargins(0, 0, 0, 1);
  row->addWidget(cancel);
  row->addLayout(middle, 1);
  row->addSpacing(cancel->sizeHint().width() + 8);  // keeps the middle centred

  // The page below the bar, filling the window, in a profile of its own that keeps nothing.
  auto* view = new QWebEngineView(window);
  view_ = view;
  auto* profile = new QWebEngineProfile(window);  // off the record; the window's last child
  auto* page = new Page(profile, view, [this](const QUrl& url, NavigationType type) {
    URLRequest request;
    request.url = urlText(url);
    return dismissed_ || controller_->shouldStartLoadWithRequest(request, type);
  });
  page->settings()->setAttribute(QWebEngineSettings::ErrorPageEnabled, false);
  page->settings()->setAttribute(QWebEngineSettings::JavascriptCanOpenWindows, false);
  view->setPage(page);
  view->setContextMenuPolicy(Qt::NoContextMenu);

  auto* column = new QVBoxLayout(window);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);
  column->addWidget(bar);
  column->addWidget(view, 1);

  connections_ = std::make_unique<QObject>();
  QObject* context = connections_.get();
  QObject::connect(page, &QWebEnginePage::loadingChanged, context,
                   [this](const QWebEngineLoadingInfo& info) { onLoading(info); });
  QObject::connect(page, &QWebEnginePage::certificateError, context,
                   [this](const QWebEngineCertificateError& error) { onCertificateError(error); });
  QObject::connect(page, &QWebEnginePage::urlChanged, context,
                   [this](const QUrl& url) { showAddress(url); });
  QObject::connect(page, &QWebEnginePage::renderProcessTerminated, context,
                   [this](QWebEnginePage::RenderProcessTerminationStatus status, int) {
                     auto self = shared_from_this();
                     loading_ = false;
                     reportLoad(PageLoadEvent::Failed, urlText(view_->url()));
                     controller_->webViewDidFailLoadWithError({"RenderProcessTerminationStatus",
                                                               static_cast<int>(status),
                                                               "the page's render process ended"});
                   });
  QObject::connect(cancel, &QPushButton::clicked, context, [this] {
    auto self = shared_from_this();
    controller_->cancelButtonPressed();
  });
  QObject::connect(window, &QObject::destroyed, context, [this] {
    dismissed_ = true;
    // Let go of the window's hold on itself once this signal is over.
    if (keepAlive_) internal::postToGuiThread([held = std::move(keepAlive_)] {});
  });
  window->onClose = [weak = weak_from_this()] {
    if (auto self = weak.lock(); self && !self->dismissed_)
      self->controller_->cancelButtonPressed();
  };
  window->onFirstShow = [weak = weak_from_this()] {
    // On screen: the controller sets up its progress line and loads, once the bar is laid out.
    if (auto self = weak.lock(); self && !self->dismissed_ && self->window_ != nullptr) {
      self->controller_->viewDidAppear(true);
    }
  };

  auto self = shared_from_this();
  internal::WindowController started =
      internal::startController(options_, request_, std::move(delegate), &internal::postToGuiThread,
                                self, internal::qtTimerScheduler());
  controller_ = std::move(started.controller);
  delegate_ = std::move(started.delegate);
  options_.onPageLoad = std::move(started.onPageLoad);
  keepAlive_ = self;
}

void QtPaymentWindow::Impl::loadRequest(const URLRequest& request) {
  if (view_ == nullptr || !request.url) return;
  QWebEngineHttpRequest http(QUrl::fromEncoded(QByteArray::fromStdString(*request.url)));
  const bool post =
      QString::fromStdString(request.httpMethod).compare("POST", Qt::CaseInsensitive) == 0;
  if (post) {
    http.setMethod(QWebEngineHttpRequest::Post);
    http.setPostData(QByteArray(reinterpret_cast<const char*>(request.httpBody.data()),
                                static_cast<qsizetype>(request.httpBody.size())));
  }
  bool hasContentType = false;
  for (const auto& [name, value] : request.allHTTPHeaderFields) {
    const QByteArray header = QByteArray::fromStdString(name);
    // The engine writes the body's length itself and refuses to be told.
    if (header.compare("Content-Length", Qt::CaseInsensitive) == 0) continue;
    hasContentType |= header.compare("Content-Type", Qt::CaseInsensitive) == 0;
    http.setHeader(header, QByteArray::fromStdString(value));
  }
  if (post && !hasContentType) http.setHeader("Content-Type", "application/x-www-form-urlencoded");
  view_->load(http);
}

void QtPaymentWindow::Impl::evaluate(const std::string& script,
                                     std::function<void(const Text&)> completion,
                                     bool alwaysAnswer) {
  if (view_ == nullptr || dismissed_) {
    if (alwaysAnswer && completion) completion(std::nullopt);
    return;
  }
  const int id = nextEvaluation_++;
  pending_[id] = {std::move(completion), alwaysAnswer};
  view_->page()->runJavaScript(QString::fromStdString(script),
                               [weak = weak_from_this(), id](const QVariant& value) {
                                 auto self = weak.lock();
                                 if (!self) return;
                                 auto found = self->pending_.find(id);
                                 if (found == self->pending_.end()) return;
                                 auto completion = std::move(found->second.first);
                                 self->pending_.erase(found);
                                 if (completion) completion(textOf(value));
                               });
}

void QtPaymentWindow::Impl::onLoading(const QWebEngineLoadingInfo& info) {
  auto self = shared_from_this();
  const std::string uri = urlText(info.url());
  switch (info.status()) {
    case QWebEngineLoadingInfo::LoadStartedStatus:
      if (loading_) {  // a new load cut the last one short
        reportLoad(PageLoadEvent::Failed, uri);
        controller_->webViewDidFailLoadWithError({"QWebEngineLoadingInfo", 0, "superseded"});
      }
      loading_ = true;
      reportLoad(PageLoadEvent::Started, urlText(view_->url()));
      controller_->webViewDidStartLoad();
      break;
    case QWebEngineLoadingInfo::LoadSucceededStatus:
      if (!std::exchange(loading_, false)) break;
      reportLoad(PageLoadEvent::Finished, uri);
      controller_->webViewDidFinishLoad();
      break;
    default:  // failed or stopped
      if (!std::exchange(loading_, false)) break;
      reportLoad(PageLoadEvent::Failed, uri);
      controller_->webViewDidFailLoadWithError(
          {"QWebEngineLoadingInfo", info.errorCode(), toStd(info.errorString())});
      break;
  }
}

void QtPaymentWindow::Impl::onCertificateError(const QWebEngineCertificateError& error) {
  std::vector<std::string> chain;
  for (const QSslCertificate& certificate : error.certificateChain()) {
    chain.push_back(certificate.toDer().toStdString());
  }
  QWebEngineCertificateError answer = error;
  if (internal::certificateTrustedForHost(chain, options_.trustedCAFile, options_.trustedHost,
                                          urlText(error.url()))) {
    answer.acceptCertificate();
  } else {
    answer.rejectCertificate();
  }
}

void QtPaymentWindow::Impl::showAddress(const QUrl& url) {
  if (address_ == nullptr) return;
  address_->setText(url.host());
  if (lock_ != nullptr) {
    lock_->setVisible(url.scheme() == QLatin1String("https") && !url.host().isEmpty());
  }
}

// ---------------------------------------------------------------- public surface

QtPaymentWindow::QtPaymentWindow(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

QtPaymentWindow::~QtPaymentWindow() = default;

std::shared_ptr<WebviewController> QtPaymentWindow::controller() const {
  return impl_->controller_;
}

bool QtPaymentWindow::isOpen() const { return impl_->window_ != nullptr && !impl_->dismissed_; }

void QtPaymentWindow::runJavaScript(const std::string& script,
                                    std::function<void(const Text&)> completion) {
  impl_->evaluate(script, std::move(completion), true);
}

void QtPaymentWindow::saveScreenshot(const std::string& pngPath,
                                     std::function<void(bool)> completion, SnapshotArea area) {
  bool saved = false;
  if (isOpen() && impl_->view_ != nullptr) {
    // The page is pictured by itself and laid over its place in the window's picture: the
    // engine's surface does not always show in a picture of its parent.
    const QPixmap page = impl_->view_->grab();
    if (area == SnapshotArea::WebView) {
      saved = savePng(page.toImage(), pngPath);
    } else {
      QPixmap whole = impl_->window_->grab();
      QPainter painter(&whole);
      painter.drawPixmap(impl_->view_->mapTo(impl_->window_.data(), QPoint(0, 0)), page);
      painter.end();
      saved = savePng(whole.toImage(), pngPath);
    }
  }
  if (completion)
    internal::postToGuiThread([completion = std::move(completion), saved] { completion(saved); });
}

void QtPaymentWindow::pressCancel() {
  if (isOpen()) impl_->controller_->cancelButtonPressed();
}

void QtPaymentWindow::prewarm() {
  static QWebEnginePage* warm = nullptr;
  if (warm != nullptr || !internal::ensureQtApplication(nullptr)) return;
  internal::prepareQtWebEngineEnvironment();
  warm = new QWebEnginePage(new QWebEngineProfile(qApp), qApp);
  warm->setHtml("<!DOCTYPE html><title></title>");
}

void* QtPaymentWindow::nativeWindow() const { return impl_->window_.data(); }

void* QtPaymentWindow::nativeWebView() const { return impl_->view_.data(); }

std::shared_ptr<QtPaymentWindow> presentQtPaymentWindow(
    const URLRequest& request, std::shared_ptr<IPGPaymentControllerDelegate> delegate,
    PaymentWindowOptions options, std::string* error) {
  if (auto problem = internal::optionsProblem(options)) {
    if (error != nullptr) *error = *problem;
    return nullptr;
  }
  if (!internal::ensureQtApplication(error)) return nullptr;
  internal::prepareQtWebEngineEnvironment();
  internal::completeOptions(options, request);
  auto impl = std::make_shared<QtPaymentWindow::Impl>(request, std::move(options));
  impl->build(std::move(delegate));
  impl->window_->show();
  return std::make_shared<QtPaymentWindow>(std::move(impl));
}

bool runQtMainLoopUntil(const std::function<bool()>& done, unsigned seconds) {
  bool timedOut = false;
  QTimer deadline;
  deadline.setSingleShot(true);
  QObject::connect(&deadline, &QTimer::timeout, [&timedOut] { timedOut = true; });
  deadline.start(static_cast<int>(std::min(seconds, 2000000u) * 1000u));
  while (!done() && !timedOut) {
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    // Outside exec() deleteLater() waits for this.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }
  return !timedOut;
}

std::optional<PaymentOutcome> runQtPaymentWindow(const URLRequest& request,
                                                 PaymentWindowOptions options, std::string* error) {
  internal::OutcomeRecorder recorder(options);
  auto window = presentQtPaymentWindow(request, recorder.delegate(), std::move(options), error);
  if (!window) return std::nullopt;
  constexpr unsigned kDay = 24 * 3600;
  return internal::runToEnd(
      recorder, [&] { return window->isOpen(); },
      [](const std::function<bool()>& done) { runQtMainLoopUntil(done, kDay); },
      [](const std::function<bool()>&) { QCoreApplication::processEvents(); }, error);
}

}  // namespace qipg
