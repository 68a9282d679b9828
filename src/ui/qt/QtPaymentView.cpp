#include "qipg/QtPaymentView.h"

#include <QApplication>
#include <QBuffer>
#include <QHBoxLayout>
#include <QPainter>
#include <QPainterPath>
#include <QSslCertificate>
#include <QTimer>
#include <QVBoxLayout>
#include <QWebEngineHttpRequest>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineSettings>
#include <vector>

#include "ui/qt/EventLoop.h"
#include "ui/qt/ProgressLine.h"
#include "ui/qt/QtPaymentViewImpl.h"
#include "ui/window/Files.h"
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

// With large text: readable at arm's length, and a Cancel of touch size.
constexpr int kLargeBarHeight = 64;
constexpr char kLargeStyle[] = R"css(
#qipg-cancel { font-size: 22px; min-height: 48px; min-width: 96px; }
#qipg-title { font-size: 22px; }
#qipg-address { font-size: 17px; }
)css";

// Tells `touched` of the customer's input (keys, pointer, touch) anywhere in `root`, the page's
// own widgets included, before they see it.
class InputWatch final : public QObject {
 public:
  InputWatch(QWidget* root, std::function<void()> touched)
      : QObject(root), root_(root), touched_(std::move(touched)) {
    qApp->installEventFilter(this);
  }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    switch (event->type()) {
      case QEvent::KeyPress:
      case QEvent::MouseButtonPress:
      case QEvent::MouseMove:
      case QEvent::TouchBegin:
      case QEvent::TouchUpdate:
      case QEvent::Wheel:
        if (auto* widget = qobject_cast<QWidget*>(watched);
            widget != nullptr && root_ != nullptr && (widget == root_ || root_->isAncestorOf(widget))) {
          touched_();
        }
        break;
      default:
        break;
    }
    return false;
  }

 private:
  QPointer<QWidget> root_;
  std::function<void()> touched_;
};

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

class Bar final : public QWidget {
 public:
  using QWidget::QWidget;

 protected:
  void resizeEvent(QResizeEvent* event) override {
    QWidget::resizeEvent(event);
    ProgressLine::placeAll(this);
  }
};

// The view's own widget: each time it is shown, the payment under way may load.
class Root final : public QWidget {
 public:
  std::function<void()> onShown;

 protected:
  void showEvent(QShowEvent* event) override {
    QWidget::showEvent(event);
    if (onShown) QTimer::singleShot(0, this, onShown);
  }
};

}  // namespace

// ---------------------------------------------------------------- the view

QtPaymentView::Impl::~Impl() {
  endPayment();
  // A widget the host never placed is the view's own.
  if (root_ != nullptr && root_->parent() == nullptr) root_->deleteLater();
}

void QtPaymentView::Impl::build() {
  auto* root = new Root();
  root_ = root;
  root->setStyleSheet(kStyle);
  root->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);

  // The bar: Cancel at the leading edge; in the middle the title label (empty, so hidden)
  // over the address of the page shown; progress lines laid over its bottom edge.
  auto* bar = new Bar(root);
  bar_ = bar;
  bar->setObjectName("qipg-bar");
  bar->setAttribute(Qt::WA_StyledBackground);
  bar->setFixedHeight(kBarHeight);
  auto* cancel = new QPushButton(bar);
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
  // Keeps the middle centred: as wide as Cancel in the language it shows.
  cancelMirror_ = new QSpacerItem(0, 0);
  row->addItem(cancelMirror_);

  cancel->setEnabled(false);

  auto* column = new QVBoxLayout(root);
  column_ = column;
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);
  column->addWidget(bar);
  column->addStretch(1);  // the payment's web view takes this place

  QObject::connect(cancel, &QPushButton::clicked, root, [weak = weakSelf()] {
    if (auto self = weak.lock()) self->cancel();
  });
  QObject::connect(root, &QObject::destroyed, [weak = weakSelf()] {
    if (auto self = weak.lock()) self->abandon();
  });
  root->onShown = [weak = weakSelf()] {
    if (auto self = weak.lock()) self->onScreenNow();
  };
  new InputWatch(root, [weak = weakSelf()] {
    if (auto self = weak.lock()) self->touched();
  });
  speak(internal::chromeIn({}));
}

void QtPaymentView::Impl::speak(internal::ChromeText words) {
  words_ = std::move(words);
  if (root_ == nullptr) return;
  root_->setAccessibleName(QString::fromStdString(words_.payment));
  cancelButton_->setText(QString::fromStdString(words_.cancel));
  lock_->setAccessibleName(QString::fromStdString(words_.secureConnection));
  address_->setAccessibleDescription(QString::fromStdString(words_.pageAddress));
  if (webView_ != nullptr) webView_->setAccessibleName(QString::fromStdString(words_.paymentPage));
  cancelMirror_->changeSize(cancelButton_->sizeHint().width() + 8, 0);
  if (QLayout* row = bar_->layout()) row->invalidate();
}

std::optional<std::string> QtPaymentView::Impl::unavailable() const {
  if (root_ == nullptr) return "the view's widget has been deleted";
  return std::nullopt;
}

void QtPaymentView::Impl::beginPayment() {
  loading_ = false;

  // The page below the bar, in an off-the-record profile of its own, created after the web
  // view so that it is deleted after it.
  auto* area = new QWidget(root_);
  paymentArea_ = area;
  auto* areaColumn = new QVBoxLayout(area);
  areaColumn->setContentsMargins(0, 0, 0, 0);
  auto* webView = new QWebEngineView(area);
  webView_ = webView;
  auto* profile = new QWebEngineProfile(area);
  auto* page = new Page(profile, webView, [this](const QUrl& url, NavigationType type) {
    URLRequest navigation;
    navigation.url = urlText(url);
    return !active() || controller()->shouldStartLoadWithRequest(navigation, type);
  });
  page->settings()->setAttribute(QWebEngineSettings::ErrorPageEnabled, false);
  page->settings()->setAttribute(QWebEngineSettings::JavascriptCanOpenWindows, false);
  webView->setPage(page);
  webView->setContextMenuPolicy(Qt::NoContextMenu);
  areaColumn->addWidget(webView);
  column_->insertWidget(1, area, 1);
  column_->setStretch(column_->count() - 1, 0);  // the empty place below gives way to the page

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
                     auto held = self();  // alive through this handler
                     loading_ = false;
                     reportLoad(PageLoadEvent::Failed, urlText(webView_->url()));
                     controller()->webViewDidFailLoadWithError({"RenderProcessTerminationStatus",
                                                               static_cast<int>(status),
                                                               "the page's render process ended"});
                   });

  const bool large = options().largeText;
  root_->setStyleSheet(large ? QString(kStyle) + kLargeStyle : QString(kStyle));
  if (bar_ != nullptr) bar_->setFixedHeight(large ? kLargeBarHeight : kBarHeight);
  speak(internal::chromeIn(options().language));  // after the style: Cancel's size is known
  if (cancelButton_ != nullptr) cancelButton_->setEnabled(true);
}

bool QtPaymentView::Impl::onScreen() const { return root_ != nullptr && root_->isVisible(); }

void QtPaymentView::Impl::endPayment() {
  if (QObject* context = connections_.release()) {
    // Safe inside one of the page's own signals: nothing of it is deleted here and now.
    if (webView_ != nullptr) QObject::disconnect(webView_->page(), nullptr, context, nullptr);
    context->deleteLater();
  }
  answerPending();
  if (paymentArea_ != nullptr) {
    paymentArea_->hide();
    paymentArea_->deleteLater();  // the web view, then its profile
  }
  webView_ = nullptr;
  paymentArea_ = nullptr;
  if (column_ != nullptr) column_->setStretch(column_->count() - 1, 1);
  // The payment's progress lines go with it.
  if (bar_ != nullptr) {
    for (QWidget* line : bar_->findChildren<QWidget*>("qipg-progress-line")) line->deleteLater();
  }
  if (address_ != nullptr) address_->clear();
  if (lock_ != nullptr) lock_->hide();
  if (cancelButton_ != nullptr) cancelButton_->setEnabled(false);
}

Text QtPaymentView::Impl::currentURL() const {
  if (webView_ == nullptr || webView_->url().isEmpty()) return std::nullopt;
  return urlText(webView_->url());
}

Rect QtPaymentView::Impl::bounds() const {
  if (bar_ == nullptr) return {};
  // Above the bar's 1-pixel bottom border.
  return {0.0, 0.0, static_cast<double>(bar_->width()), static_cast<double>(bar_->height() - 1)};
}

std::shared_ptr<ProgressBarPort> QtPaymentView::Impl::addProgressBar() {
  return bar_ != nullptr ? ProgressLine::addTo(bar_, words_.loading) : nullptr;
}

void QtPaymentView::Impl::setText(const Text& text) {
  if (title_ == nullptr) return;
  title_->setText(QString::fromStdString(text.value_or("")));
  title_->setVisible(text.has_value() && !text->empty());
}

void QtPaymentView::Impl::answerPending() {
  auto pending = std::move(pending_);
  pending_.clear();
  for (auto& [id, evaluation] : pending) {
    if (evaluation.second && evaluation.first) evaluation.first(std::nullopt);
  }
}

void QtPaymentView::Impl::loadRequest(const URLRequest& request) {
  if (webView_ == nullptr || !request.url) return;
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
  webView_->load(http);
}

void QtPaymentView::Impl::evaluate(const std::string& script,
                                   std::function<void(const Text&)> completion,
                                   bool alwaysAnswer) {
  if (webView_ == nullptr || !active()) {
    if (alwaysAnswer && completion) completion(std::nullopt);
    return;
  }
  const int id = nextEvaluation_++;
  pending_[id] = {std::move(completion), alwaysAnswer};
  webView_->page()->runJavaScript(QString::fromStdString(script),
                                  [weak = weakSelf(), id](const QVariant& value) {
                                    auto self = weak.lock();
                                    if (!self) return;
                                    // Gone with its payment: answered (or dropped) then.
                                    auto found = self->pending_.find(id);
                                    if (found == self->pending_.end()) return;
                                    auto completion = std::move(found->second.first);
                                    self->pending_.erase(found);
                                    if (completion) completion(textOf(value));
                                  });
}

void QtPaymentView::Impl::onLoading(const QWebEngineLoadingInfo& info) {
  auto held = self();  // alive through this handler
  const std::string uri = urlText(info.url());
  switch (info.status()) {
    case QWebEngineLoadingInfo::LoadStartedStatus:
      if (loading_) {  // a new load cut the last one short
        reportLoad(PageLoadEvent::Failed, uri);
        controller()->webViewDidFailLoadWithError({"QWebEngineLoadingInfo", 0, "superseded"});
      }
      loading_ = true;
      reportLoad(PageLoadEvent::Started, urlText(webView_->url()));
      controller()->webViewDidStartLoad();
      break;
    case QWebEngineLoadingInfo::LoadSucceededStatus:
      if (!std::exchange(loading_, false)) break;
      reportLoad(PageLoadEvent::Finished, uri);
      controller()->webViewDidFinishLoad();
      break;
    default:  // failed or stopped
      if (!std::exchange(loading_, false)) break;
      reportLoad(PageLoadEvent::Failed, uri);
      controller()->webViewDidFailLoadWithError(
          {"QWebEngineLoadingInfo", info.errorCode(), toStd(info.errorString())});
      break;
  }
}

void QtPaymentView::Impl::onCertificateError(const QWebEngineCertificateError& error) {
  std::vector<std::string> chain;
  for (const QSslCertificate& certificate : error.certificateChain()) {
    chain.push_back(certificate.toDer().toStdString());
  }
  QWebEngineCertificateError answer = error;
  if (internal::certificateTrustedForHost(chain, options().trustedCAFile, options().trustedHost,
                                          urlText(error.url()))) {
    answer.acceptCertificate();
  } else {
    answer.rejectCertificate();
  }
}

void QtPaymentView::Impl::showAddress(const QUrl& url) {
  if (address_ == nullptr) return;
  address_->setText(url.host());
  if (lock_ != nullptr) {
    lock_->setVisible(url.scheme() == QLatin1String("https") && !url.host().isEmpty());
  }
}

// ---------------------------------------------------------------- public surface

QtPaymentView::QtPaymentView(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

QtPaymentView::~QtPaymentView() = default;

std::shared_ptr<QtPaymentView> QtPaymentView::create(std::string* error) {
  if (!internal::ensureQtApplication(error)) return nullptr;
  internal::prepareQtWebEngineEnvironment();
  auto impl = std::make_shared<Impl>();
  impl->build();
  return std::make_shared<QtPaymentView>(std::move(impl));
}

void* QtPaymentView::widget() const { return impl_->root_.data(); }

bool QtPaymentView::start(const URLRequest& request,
                          std::shared_ptr<IPGPaymentControllerDelegate> delegate,
                          PaymentWindowOptions options, std::string* error) {
  return impl_->start(request, std::move(delegate), std::move(options), error);
}

bool QtPaymentView::isActive() const { return impl_->active(); }

std::shared_ptr<WebviewController> QtPaymentView::controller() const { return impl_->controller(); }

void QtPaymentView::runJavaScript(const std::string& script,
                                  std::function<void(const Text&)> completion) {
  impl_->evaluate(script, std::move(completion), true);
}

namespace internal {

// A picture of `area` (the whole of `whole`, or only `page`) saved to `path`; the page is
// pictured by itself and laid over its place, as the engine's surface does not always show in
// a picture of its parent. `completion` hears the result from the event loop.
void saveQtScreenshot(QWidget* whole, QWebEngineView* page, const std::string& path,
                      std::function<void(bool)> completion, bool wholeArea) {
  bool saved = false;
  if (whole != nullptr && page != nullptr) {
    const QPixmap picture = page->grab();
    if (!wholeArea) {
      saved = savePng(picture.toImage(), path);
    } else {
      QPixmap all = whole->grab();
      QPainter painter(&all);
      painter.drawPixmap(page->mapTo(whole, QPoint(0, 0)), picture);
      painter.end();
      saved = savePng(all.toImage(), path);
    }
  }
  if (completion) postToGuiThread([completion = std::move(completion), saved] { completion(saved); });
}

}  // namespace internal

void QtPaymentView::saveScreenshot(const std::string& pngPath,
                                   std::function<void(bool)> completion, WindowSnapshotArea area) {
  // The window the view is in: the host's, with whatever else it shows.
  internal::saveQtScreenshot(impl_->active() && impl_->root_ ? impl_->root_->window() : nullptr,
                             impl_->webView_.data(), pngPath, std::move(completion),
                             area == WindowSnapshotArea::Window);
}

void QtPaymentView::pressCancel() {
  impl_->cancel();
}

void QtPaymentView::prewarm() {
  static QWebEnginePage* warm = nullptr;
  if (warm != nullptr || !internal::ensureQtApplication(nullptr)) return;
  internal::prepareQtWebEngineEnvironment();
  warm = new QWebEnginePage(new QWebEngineProfile(qApp), qApp);
  warm->setHtml("<!DOCTYPE html><title></title>");
}

void* QtPaymentView::nativeWebView() const { return impl_->webView_.data(); }

}  // namespace qipg
