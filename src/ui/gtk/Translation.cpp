// The GTK chrome's words through gettext, from the catalogues installed beside the library. A
// chosen language is read through that locale's messages, so the machine must have the locale;
// the process's locale is as gettext reads it (LANGUAGE, LC_ALL, LC_MESSAGES, LANG).
#include "ui/window/Chrome.h"

#include <dlfcn.h>
#include <libintl.h>

#include <clocale>
#include <filesystem>
#include <mutex>
#include <system_error>

namespace qipg::internal {
namespace {

constexpr char kDomain[] = "qipg";

// The catalogues lie where the install tree puts them relative to the library (the build tree
// has the same layout), so a relocated install finds its own.
void bindCatalogues() {
  static std::once_flag once;
  std::call_once(once, [] {
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&chromeIn), &self) == 0 || self.dli_fname == nullptr) {
      return;
    }
    std::error_code unresolved;  // then gettext's own directory, and English
    const std::filesystem::path library = std::filesystem::absolute(self.dli_fname, unresolved);
    if (unresolved) return;
    const std::filesystem::path catalogues =
        (library.parent_path() / QIPG_LOCALE_FROM_LIBDIR).lexically_normal();
    bindtextdomain(kDomain, catalogues.c_str());
    bind_textdomain_codeset(kDomain, "UTF-8");
  });
}

// The messages of the locale `language` names, when the machine has it.
locale_t messagesOf(const std::string& language) {
  for (const std::string& name : {language + ".UTF-8", language}) {
    if (locale_t found = newlocale(LC_MESSAGES_MASK, name.c_str(), nullptr)) return found;
  }
  return nullptr;
}

std::string translated(const char* english) { return dgettext(kDomain, english); }
std::string untranslated(const char* english) { return english; }

}  // namespace

ChromeText chromeIn(const std::string& language) {
  bindCatalogues();
  if (language.empty()) return chromeText(&translated);
  locale_t messages = messagesOf(language);
  if (messages == nullptr) return chromeText(&untranslated);
  // gettext has no language per call: it reads the calling thread's locale, so the chosen
  // one is the thread's for these lookups only.
  locale_t previous = uselocale(messages);
  ChromeText text = chromeText(&translated);
  uselocale(previous);
  freelocale(messages);
  return text;
}

}  // namespace qipg::internal
