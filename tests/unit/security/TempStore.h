// A temporary directory per test, and environment variables set for a test's life.
#pragma once

#include <ftw.h>
#include <stdlib.h>

#include <cstdio>
#include <optional>
#include <string>

namespace qipg::testing {

class TempDir {
 public:
  TempDir() : path_("/tmp/qipg-sec-XXXXXX") { mkdtemp(path_.data()); }
  ~TempDir() {
    const auto remove = [](const char* p, const struct stat*, int, FTW*) { return std::remove(p); };
    nftw(path_.c_str(), remove, 16, FTW_DEPTH | FTW_PHYS);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Sets (or, for nullopt, unsets) an environment variable and restores it on scope exit.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::optional<std::string>& value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    set(value);
  }
  ~ScopedEnv() { set(old_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  void set(const std::optional<std::string>& v) {
    v ? setenv(name_, v->c_str(), 1) : unsetenv(name_);
  }
  const char* name_;
  std::optional<std::string> old_;
};

// A fresh, empty user-defaults file for the standard store.
struct TempStore {
  TempDir dir;
  std::string file = dir.file("defaults.sqlite3");
  ScopedEnv env{"QIPG_DEFAULTS_FILE", file};
};

}  // namespace qipg::testing
