// The Qt window for the shared window tests (and the window benchmark).
#pragma once

#include <unistd.h>

#include <QApplication>
#include <QWebEngineCertificateError>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineView>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "qipg/QtPaymentWindow.h"

namespace toolkit {

constexpr char kName[] = "qt";
using Window = qipg::QtPaymentWindow;

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

inline std::shared_ptr<Window> present(const qipg::URLRequest& request,
                                       std::shared_ptr<qipg::IPGPaymentControllerDelegate> delegate,
                                       qipg::PaymentWindowOptions options, std::string* error) {
  return qipg::presentQtPaymentWindow(request, std::move(delegate), std::move(options), error);
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

// The engine alone, for the window benchmark: a plain web view in a plain window, no library
// code, with the environment the library gives its own engine, loading `url` (its certificate
// accepted: a loopback bench server). The view stays open; false when the page did not load in
// time.
inline bool openBareView(const std::string& url) {
  const bool gpu = access("/dev/dri/renderD128", R_OK | W_OK) == 0;
  if (geteuid() == 0) setenv("QTWEBENGINE_DISABLE_SANDBOX", "1", 0);
  setenv("QTWEBENGINE_CHROMIUM_FLAGS", gpu ? "--log-level=3" : "--log-level=3 --disable-gpu", 0);
  if (!gpu) setenv("QT_QUICK_BACKEND", "software", 0);
  static bool loaded = false;
  auto* view = new QWebEngineView();  // lives until the process ends
  auto* profile = new QWebEngineProfile(view);
  auto* page = new QWebEnginePage(profile, view);
  QObject::connect(page, &QWebEnginePage::certificateError,
                   [](QWebEngineCertificateError error) { error.acceptCertificate(); });
  QObject::connect(page, &QWebEnginePage::loadFinished, [](bool ok) { loaded = loaded || ok; });
  view->setPage(page);
  view->resize(480, 760);
  view->show();
  view->load(QUrl(QString::fromStdString(url)));
  return spinUntil([] { return loaded; }, 60);
}

}  // namespace toolkit
