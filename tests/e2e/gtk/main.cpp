// The payment window tests need GTK on the main thread and a display (scripts/with-display
// provides one), and a private user-defaults file for the client.
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#if defined(__SANITIZE_ADDRESS__)
#define QIPG_E2E_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QIPG_E2E_ASAN 1
#endif
#endif

#ifdef QIPG_E2E_ASAN
// GTK, WebKit and their libraries are built without frame pointers: unwind the slow way, so
// that leak reports show whose allocation it was and scripts/lsan.supp can match the library.
extern "C" const char* __asan_default_options() { return "fast_unwind_on_malloc=0"; }
#endif

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);

  char dirTemplate[] = "/tmp/qipg-e2e-gtk-XXXXXX";
  const char* dir = mkdtemp(dirTemplate);
  if (dir == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  setenv("QIPG_DEFAULTS_FILE", (std::string(dir) + "/defaults.sqlite3").c_str(), 1);
  setenv("QIPG_E2E_TMP", dir, 1);

  if (!gtk_init_check()) {
    std::fprintf(stderr, "test_e2e_gtk needs a display: run it under scripts/with-display\n");
    return 1;
  }
  const int result = RUN_ALL_TESTS();
  std::error_code ignored;
  std::filesystem::remove_all(dir, ignored);
  return result;
}
