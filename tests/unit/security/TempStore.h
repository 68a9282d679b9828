// A private user-defaults file for a test's life.
#pragma once

#include <string>

#include "TestSupport.h"

namespace qipg::testing {

using qipg_test::ScopedEnv;
using qipg_test::TempDir;

// A fresh, empty user-defaults file for the standard store.
struct TempStore {
  TempDir dir;
  std::string file = dir.file("defaults.sqlite3");
  ScopedEnv env{"QIPG_DEFAULTS_FILE", file};
};

}  // namespace qipg::testing
