// The Qt chrome's words through Qt's translation system, from catalogues built into the
// library; the process's locale is QLocale's default (the system's, LANGUAGE included).
#include "ui/window/Chrome.h"

#include <QLocale>
#include <QString>
#include <QTranslator>

namespace qipg::internal {

ChromeText chromeIn(const std::string& language) {
  const QLocale locale = language.empty() ? QLocale() : QLocale(QString::fromStdString(language));
  // One translator for this lookup, never installed in the application: the host's own
  // translations and other views' languages stay as they are.
  QTranslator catalogue;
  const bool found = catalogue.load(locale, "qipg", "_", ":/qipg/translations");
  return chromeText([&](const char* english) {
    const QString text = found ? catalogue.translate("", english) : QString();
    return text.isEmpty() ? std::string(english) : text.toStdString();
  });
}

}  // namespace qipg::internal
