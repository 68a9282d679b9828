// The Qt window and view for the shared window tests and the window benchmark.
#pragma once

#include <QAccessible>
#include <QApplication>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "../Shells.h"
#include "qipg/QtPaymentView.h"
#include "qipg/QtPaymentWindow.h"

namespace toolkit {

constexpr char kName[] = "qt";
using Window = Shell<qipg::QtPaymentWindow, qipg::QtPaymentView>;

// Qt WebEngine runs Chromium's browser side inside this process: it allocates too often for
// slow unwinding (the tests would crawl), and Chromium (libQt6WebEngineCore) deletes some of
// its own objects through a sized delete of another type, which is its business, not ours.
constexpr char kAsanOptions[] = "new_delete_type_mismatch=0";

// The host's own application, as a Qt program has it.
inline bool init(int* argc, char** argv) {
  QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
  new QApplication(*argc, argv);  // lives until the process ends
  return true;
}

// A till: the cart beside the payment. Its close button cancels the payment; it stays.
class Till final : public QWidget {
 public:
  std::function<void()> onClose;

 protected:
  void closeEvent(QCloseEvent* event) override {
    event->ignore();
    if (onClose) onClose();
  }
};

inline std::shared_ptr<Window> present(const qipg::URLRequest& request,
                                       std::shared_ptr<qipg::IPGPaymentControllerDelegate> delegate,
                                       qipg::PaymentWindowOptions options, std::string* error) {
  if (!embedded()) {
    auto window = qipg::presentQtPaymentWindow(request, std::move(delegate), options, error);
    return window ? std::make_shared<Window>(std::move(window)) : nullptr;
  }
  auto view = qipg::QtPaymentView::create(error);
  if (!view) return nullptr;
  auto* till = new Till();
  till->resize(800, options.height);
  auto* row = new QHBoxLayout(till);
  row->addWidget(new QLabel("Cart: 1 item"));
  row->addWidget(static_cast<QWidget*>(view->widget()), 1);
  till->onClose = [shown = view.get()] { shown->pressCancel(); };
  if (!view->start(request, std::move(delegate), std::move(options), error)) {
    delete till;
    return nullptr;
  }
  till->show();
  return std::make_shared<Window>(view, till, [till] { till->deleteLater(); });
}

inline std::optional<qipg::PaymentOutcome> run(const qipg::URLRequest& request,
                                               qipg::PaymentWindowOptions options,
                                               std::string* error) {
  return qipg::runQtPaymentWindow(request, std::move(options), error);
}

inline bool spinUntil(const std::function<bool()>& done, unsigned seconds = 120) {
  return qipg::runQtMainLoopUntil(done, seconds);
}

inline void drain() {
  QCoreApplication::processEvents();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

inline void closeWithWindowButton(Window& window) {
  static_cast<QWidget*>(window.nativeWindow())->close();
}

inline void later(std::function<void()> task) {
  QMetaObject::invokeMethod(qApp, std::move(task), Qt::QueuedConnection);
}

inline void closeTopWindows() {
  for (QWidget* window : QApplication::topLevelWidgets()) {
    if (window->isVisible()) window->close();
  }
}

inline bool webViewShown(Window& window) {
  auto* view = static_cast<QWidget*>(window.nativeWebView());
  return view != nullptr && view->isVisible();
}

struct Line {
  bool shown = false;
  double x = 0, y = 0, width = 0, height = 0, barWidth = 0, barHeight = 0;
};

inline std::optional<Line> progressLine(Window& window) {
  auto* root = static_cast<QWidget*>(window.nativeWindow());
  if (root == nullptr) return std::nullopt;
  const auto lines = root->findChildren<QWidget*>("qipg-progress-line");
  if (lines.isEmpty()) return std::nullopt;
  QWidget* line = lines.back();
  QWidget* bar = line->parentWidget();
  // The bar's content box ends above its 1-pixel bottom border.
  return Line{line->isVisible(),        double(line->x()),      double(line->y()),
              double(line->width()),    double(line->height()), double(bar->width()),
              double(bar->height() - 1)};
}

// Whether a widget of the window is named `name` for assistive technology in `role`; a progress
// bar must also give its value.
inline bool named(Window& window, Role role, const std::string& name) {
  const QAccessible::Role roles[] = {QAccessible::NoRole, QAccessible::Button, QAccessible::Graphic,
                                     QAccessible::ProgressBar};
  auto* root = static_cast<QWidget*>(window.nativeWindow());
  if (root == nullptr) return false;
  QList<QWidget*> widgets = root->findChildren<QWidget*>();
  widgets.prepend(root);
  for (QWidget* widget : widgets) {
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(widget);
    if (accessible != nullptr && accessible->text(QAccessible::Name).toStdString() == name &&
        (role == Role::Any || accessible->role() == roles[static_cast<int>(role)]) &&
        (role != Role::ProgressBar || accessible->valueInterface() != nullptr)) {
      return true;
    }
  }
  return false;
}

}  // namespace toolkit
