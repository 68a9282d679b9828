// The payment window benchmark for the Qt window (see PaymentPageBench.h).
#include <unistd.h>

#include <QWebEngineCertificateError>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineView>

#include "Toolkit.h"

namespace toolkit {

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

#include "PaymentPageBench.h"

int main(int argc, char** argv) { return bench::run(argc, argv); }
