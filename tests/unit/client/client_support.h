// Shared pieces of the client tests: a private temporary directory per test that holds the
// user-defaults file and the bundle directory, so no test sees another's IV or Info.plist.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qipg/IPGResponseDelegate.h"
#include "qipg/QuandrelIPG.h"

namespace qipg_test {

// Sets an environment variable for the life of the object, then puts back what was there.
class ScopedEnv {
 public:
  ScopedEnv(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
    if (const char* old = std::getenv(name_.c_str())) old_ = old;
    if (value) {
      setenv(name_.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name_.c_str());
    }
  }
  ~ScopedEnv() {
    if (old_) {
      setenv(name_.c_str(), old_->c_str(), 1);
    } else {
      unsetenv(name_.c_str());
    }
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

// A fresh directory with an empty bundle directory and a defaults file of its own, named by
// QIPG_DEFAULTS_FILE and QIPG_BUNDLE_DIR while the fixture lives. Base URLs and CA file from
// the environment are cleared, so the built-in placeholders apply.
class ClientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "qipg-client-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    bundle_ = dir_ / "bundle";
    std::filesystem::create_directory(bundle_);
    env_.push_back(
        std::make_unique<ScopedEnv>("QIPG_DEFAULTS_FILE", (dir_ / "defaults.sqlite3").string()));
    env_.push_back(std::make_unique<ScopedEnv>("QIPG_BUNDLE_DIR", bundle_.string()));
    for (const char* name : {"QIPG_TEST_BASE_URL", "QIPG_PRODUCTION_BASE_URL", "QIPG_CA_FILE"}) {
      env_.push_back(std::make_unique<ScopedEnv>(name, std::nullopt));
    }
  }

  void TearDown() override {
    env_.clear();
    std::error_code error;
    std::filesystem::remove_all(dir_, error);
  }

  const std::filesystem::path& dir() const { return dir_; }
  const std::filesystem::path& bundle() const { return bundle_; }

  void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    ASSERT_TRUE(out.good()) << path;
  }

 private:
  std::filesystem::path dir_;
  std::filesystem::path bundle_;
  std::vector<std::unique_ptr<ScopedEnv>> env_;
};

// Counts and keeps what a payment or management call tells its delegate.
class RecordingDelegate : public qipg::IPGResponseDelegate {
 public:
  void didReceivePaymentResponse(const qipg::PaymentResponse&) override { ++responses; }
  void didReceiveInputError(const std::string& message) override { inputErrors.push_back(message); }
  void requestFailedError(const std::string& message) override { failures.push_back(message); }

  int responses = 0;
  std::vector<std::string> inputErrors;
  std::vector<std::string> failures;
};

}  // namespace qipg_test
