// The GTK chrome's words through gettext, from the catalogues installed beside the library.
#pragma once

#include <string>

#include "ui/window/Chrome.h"

namespace qipg::internal {

// The chrome in `language`, a locale name ("hi_IN"): through that locale's messages, so the
// machine must have the locale; without it, English. Empty: the process's locale (as gettext
// reads it: LANGUAGE, LC_ALL, LC_MESSAGES, LANG).
ChromeText chromeIn(const std::string& language);

}  // namespace qipg::internal
