#include "ui/window/Chrome.h"

namespace qipg::internal {

ChromeText chromeText(const std::function<std::string(const char* english)>& translate) {
  return {translate("Payment"),           translate("Cancel"),
          translate("Secure connection"), translate("Address of the page shown"),
          translate("Loading"),           translate("Payment page")};
}

}  // namespace qipg::internal
