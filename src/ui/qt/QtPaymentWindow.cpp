#include "qipg/QtPaymentWindow.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QEventLoop>
#include <QPointer>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>
#include <algorithm>
#include <utility>

#include "qipg/QtPaymentView.h"
#include "ui/qt/EventLoop.h"
#include "ui/qt/QtPaymentViewImpl.h"

namespace qipg {

namespace {

// The window: its close button counts as Cancel.
class Window final : public QWidget {
 public:
  std::function<void()> onClose;

 protected:
  void closeEvent(QCloseEvent* event) override {
    event->ignore();  // the dismissal closes the window
    if (onClose) onClose();
  }
};

}  // namespace

// A window around a payment view: the view's payment ends by closing the window.
struct QtPaymentWindow::Impl final {
  ~Impl() {
    if (window_ != nullptr) delete window_.data();
  }

  QPointer<QWidget> window_;
  std::shared_ptr<QtPaymentView::Impl> view_;
  std::shared_ptr<Impl> keepAlive_;  // while the window is up
};

QtPaymentWindow::QtPaymentWindow(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

QtPaymentWindow::~QtPaymentWindow() = default;

std::shared_ptr<WebviewController> QtPaymentWindow::controller() const {
  return impl_->view_->controller();
}

bool QtPaymentWindow::isOpen() const { return impl_->window_ != nullptr && impl_->view_->active(); }

void QtPaymentWindow::runJavaScript(const std::string& script,
                                    std::function<void(const Text&)> completion) {
  impl_->view_->evaluate(script, std::move(completion), true);
}

void QtPaymentWindow::saveScreenshot(const std::string& pngPath,
                                     std::function<void(bool)> completion, SnapshotArea area) {
  internal::saveQtScreenshot(isOpen() ? impl_->window_.data() : nullptr,
                             impl_->view_->webView_.data(), pngPath, std::move(completion),
                             area == SnapshotArea::Window);
}

void QtPaymentWindow::pressCancel() {
  impl_->view_->cancel();
}

void QtPaymentWindow::prewarm() { QtPaymentView::prewarm(); }

void* QtPaymentWindow::nativeWindow() const { return impl_->window_.data(); }

void* QtPaymentWindow::nativeWebView() const { return impl_->view_->webView_.data(); }

std::shared_ptr<QtPaymentWindow> presentQtPaymentWindow(
    const URLRequest& request, std::shared_ptr<IPGPaymentControllerDelegate> delegate,
    PaymentWindowOptions options, std::string* error) {
  if (auto problem = internal::optionsProblem(options)) {
    if (error != nullptr) *error = *problem;
    return nullptr;
  }
  if (!internal::ensureQtApplication(error)) return nullptr;
  internal::prepareQtWebEngineEnvironment();
  auto impl = std::make_shared<QtPaymentWindow::Impl>();
  impl->view_ = std::make_shared<QtPaymentView::Impl>();
  QtPaymentView::Impl& view = *impl->view_;
  view.build();

  auto* window = new Window();
  impl->window_ = window;
  window->resize(options.width, options.height);
  if (options.transientFor != nullptr) {
    window->setParent(static_cast<QWidget*>(options.transientFor), Qt::Window);
    window->setWindowModality(Qt::WindowModal);
  }
  if (!options.closeButton) {
    window->setWindowFlags(window->windowFlags() | Qt::CustomizeWindowHint);
    window->setWindowFlag(Qt::WindowCloseButtonHint, false);
  }
  const bool fullScreen = options.fullScreen;
  auto* column = new QVBoxLayout(window);
  column->setContentsMargins(0, 0, 0, 0);
  column->addWidget(view.root_);
  const std::string title = options.title;
  if (!view.start(request, std::move(delegate), std::move(options), error)) {
    delete window;
    return nullptr;
  }
  // Set once the payment has chosen the chrome's language.
  window->setWindowTitle(QString::fromStdString(title.empty() ? view.words_.payment : title));
  window->onClose = [weak = std::weak_ptr<QtPaymentView::Impl>(impl->view_)] {
    if (auto shown = weak.lock()) shown->cancel();
  };
  view.onEnded = [weak = std::weak_ptr<QtPaymentWindow::Impl>(impl)] {
    // Dismissal hides the window and deletes it from the event loop.
    if (auto self = weak.lock(); self && self->window_ != nullptr) {
      self->window_->hide();
      self->window_->deleteLater();
      internal::postToGuiThread([held = std::move(self->keepAlive_)] {});
    }
  };
  QObject::connect(window, &QObject::destroyed, [weak = std::weak_ptr<QtPaymentWindow::Impl>(impl)] {
    // Deleted by the host: the view's widget went with it, and its payment ends unheard.
    if (auto self = weak.lock()) {
      internal::postToGuiThread([held = std::move(self->keepAlive_)] {});
    }
  });
  impl->keepAlive_ = impl;
  fullScreen ? window->showFullScreen() : window->show();
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
