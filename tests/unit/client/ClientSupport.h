// Shared pieces of the client tests: a private temporary directory per test that holds the
// user-defaults file and the bundle directory, so no test sees another's IV or Info.plist, and
// a way to run the ipg tool as a user runs it.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/QuandrelIPG.h"

namespace qipg_test {

// The ipg tool: in $IPG_BIN_DIR when set, else beside the test program.
inline std::filesystem::path ipgProgram() {
  const char* binDir = std::getenv("IPG_BIN_DIR");
  return (binDir != nullptr && *binDir != '\0'
              ? std::filesystem::path(binDir)
              : std::filesystem::read_symlink("/proc/self/exe").parent_path()) /
         "ipg";
}

struct ProcessRun {
  int exitCode = -1;
  std::string out;
  std::string err;
};

// A fresh directory with an empty bundle directory and a defaults file of its own, named by
// QIPG_DEFAULTS_FILE and QIPG_BUNDLE_DIR while the fixture lives. Base URLs and CA file from
// the environment are cleared, so the built-in placeholders apply.
class ClientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(temp_.path().empty());
    dir_ = temp_.path();
    bundle_ = dir_ / "bundle";
    std::filesystem::create_directory(bundle_);
    env_.push_back(
        std::make_unique<ScopedEnv>("QIPG_DEFAULTS_FILE", (dir_ / "defaults.sqlite3").string()));
    env_.push_back(std::make_unique<ScopedEnv>("QIPG_BUNDLE_DIR", bundle_.string()));
    for (const char* name : {"QIPG_TEST_BASE_URL", "QIPG_PRODUCTION_BASE_URL", "QIPG_CA_FILE"}) {
      env_.push_back(std::make_unique<ScopedEnv>(name, std::nullopt));
    }
  }

  void TearDown() override { env_.clear(); }

  const std::filesystem::path& dir() const { return dir_; }
  const std::filesystem::path& bundle() const { return bundle_; }

  void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    ASSERT_TRUE(out.good()) << path;
  }

  // Runs a shell command line with `input` on standard input.
  ProcessRun shell(const std::string& commandLine, const std::string& input = "") {
    const auto in = dir_ / "stdin", out = dir_ / "stdout", err = dir_ / "stderr";
    writeFile(in, input);
    const std::string line = commandLine + " < " + quoted(in.string()) + " > " +
                             quoted(out.string()) + " 2> " + quoted(err.string());
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out), readFile(err)};
  }

 private:
  TempDir temp_;
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
