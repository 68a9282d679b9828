// Pictures of a payment window, saved as owner-only PNG files.
#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <string>

namespace qipg::internal {

// Saves the visible part of `webView`, or with `wholeWindow` all of `window` with that picture
// laid over the web view's place, as a PNG at `path` (owner-only). `completion` hears whether
// it was saved, on the main thread, once.
void saveScreenshot(GtkWidget* window, GtkWidget* webView, const std::string& path,
                    std::function<void(bool)> completion, bool wholeWindow);

}  // namespace qipg::internal
