// The sandbox gateway a benchmark runs against, in a private temporary directory that also
// holds the user-defaults store (QIPG_DEFAULTS_FILE). Stopped and removed on destruction.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "Sandbox.h"

namespace qipg_bench {

struct SandboxDir {
  std::filesystem::path dir;
  std::unique_ptr<qipg::sandbox::Sandbox> sandbox;

  SandboxDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qipg-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    dir = pattern;
    setenv("QIPG_DEFAULTS_FILE", (dir / "defaults.sqlite3").c_str(), 1);
    qipg::sandbox::Options options;
    options.dataDir = (dir / "sandbox").string();
    std::string error;
    sandbox = qipg::sandbox::Sandbox::start(options, &error);
    if (!sandbox) std::abort();
  }

  ~SandboxDir() {
    sandbox.reset();
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
  }

  SandboxDir(const SandboxDir&) = delete;
  SandboxDir& operator=(const SandboxDir&) = delete;
};

}  // namespace qipg_bench
