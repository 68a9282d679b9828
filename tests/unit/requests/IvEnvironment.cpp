// Builds that seal their message need the envelope IV in the user defaults: every test of this
// binary gets a private store in a fresh temporary directory with the test gateway's IV.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "qipg/CommonUtilities.h"

namespace {

class IvEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    char dir[] = "/tmp/qipg-requests-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    file_ = dir_ + "/defaults.sqlite3";
    setenv("QIPG_DEFAULTS_FILE", file_.c_str(), 1);
    qipg::CommonUtilities::SetRandomIV("4e9a1c07b3d58f26", "randomIV");
    ASSERT_EQ(qipg::CommonUtilities::getRandomIVforKey("randomIV"), "4e9a1c07b3d58f26");
  }

  void TearDown() override {
    for (const char* suffix : {"", "-journal"}) unlink((file_ + suffix).c_str());
    rmdir(dir_.c_str());
  }

 private:
  std::string dir_;
  std::string file_;
};

[[maybe_unused]] ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new IvEnvironment);

}  // namespace
