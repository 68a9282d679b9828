// The Qt chrome's words through Qt's translation system, from catalogues built into the library.
#pragma once

#include <string>

#include "ui/window/Chrome.h"

namespace qipg::internal {

// The chrome in `language`, a locale name ("hi_IN"); English when no catalogue has it. Empty:
// the process's locale (QLocale's default: the system's, LANGUAGE included).
ChromeText chromeIn(const std::string& language);

}  // namespace qipg::internal
