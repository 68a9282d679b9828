// The words of our own around the gateway's page (the chrome), in one language. The page, the
// messages and the records are never translated: they stay as the gateway and the interface
// have them.
#pragma once

#include <functional>
#include <string>

namespace qipg::internal {

struct ChromeText {
  std::string payment;           // the view's name, and a window's title unless the host gives one
  std::string cancel;            // the Cancel button
  std::string secureConnection;  // the lock beside the address
  std::string pageAddress;       // describes the address line
  std::string loading;           // the progress line
  std::string paymentPage;       // the gateway's page in the view
};

// The chrome as `translate` renders each English text (its catalogue's key).
ChromeText chromeText(const std::function<std::string(const char* english)>& translate);

// The chrome in `language`, a locale name ("hi_IN"), or English when no catalogue has it;
// empty: the process's locale. Each toolkit's library defines it with its own translation
// system (GTK: gettext, which needs that locale installed; Qt: a translator of its own).
ChromeText chromeIn(const std::string& language);

}  // namespace qipg::internal
