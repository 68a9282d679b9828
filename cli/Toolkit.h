// The toolkit of the payment window, chosen with --toolkit by ipg pay and ipg demo: the
// WebKitGTK window (libqipg-gtk, the default) or the Qt WebEngine one (libqipg-qt).
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace ipg {

// Adds --toolkit gtk|qt to `command`, stored in `toolkit` (which keeps its default, "gtk").
inline CLI::Option* addToolkitOption(CLI::App& command, std::string& toolkit) {
  return command
      .add_option("--toolkit", toolkit,
                  "the payment window's toolkit: gtk (WebKitGTK, default) or\n"
                  "qt (Qt WebEngine)")
      ->check(CLI::IsMember({"gtk", "qt"}));
}

// Empty when this build has `toolkit`'s payment window; else why it is refused.
inline std::string toolkitMissing(const std::string& toolkit) {
#ifdef QIPG_HAVE_GTK
  if (toolkit == "gtk") return {};
#endif
#ifdef QIPG_HAVE_QT
  if (toolkit == "qt") return {};
#endif
  return "this build has no " + toolkit + " payment window (it was built without libqipg-" +
         toolkit + ")";
}

}  // namespace ipg
