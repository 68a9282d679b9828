// The payment window tests need the toolkit on the main thread and a display
// (scripts/with-display provides one), and a private user-defaults file for the client.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Toolkit.h"

#if defined(__SANITIZE_ADDRESS__)
#define QIPG_E2E_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QIPG_E2E_ASAN 1
#endif
#endif

#ifdef QIPG_E2E_ASAN
extern "C" const char* __asan_default_options() { return toolkit::kAsanOptions; }
#endif

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);

  const std::string pattern = std::string("/tmp/qipg-e2e-") + toolkit::kName + "-XXXXXX";
  std::string dirTemplate = pattern;
  const char* dir = mkdtemp(dirTemplate.data());
  if (dir == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  setenv("QIPG_DEFAULTS_FILE", (std::string(dir) + "/defaults.sqlite3").c_str(), 1);
  setenv("QIPG_E2E_TMP", dir, 1);

  if (!toolkit::init(&argc, argv)) {
    std::fprintf(stderr, "the window tests need a display: run them under scripts/with-display\n");
    return 1;
  }
  const int result = RUN_ALL_TESTS();
  std::error_code ignored;
  std::filesystem::remove_all(dir, ignored);
  return result;
}
