// Builds that seal their message need the envelope IV in the user defaults: every test of this
// binary gets a private store in a fresh temporary directory with the test gateway's IV.
#include <gtest/gtest.h>

#include <optional>

#include "../security/TempStore.h"
#include "qipg/CommonUtilities.h"

namespace {

class IvEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    store_.emplace();
    qipg::CommonUtilities::SetRandomIV("4e9a1c07b3d58f26", "randomIV");
    ASSERT_EQ(qipg::CommonUtilities::getRandomIVforKey("randomIV"), "4e9a1c07b3d58f26");
  }
  void TearDown() override { store_.reset(); }

 private:
  std::optional<qipg::testing::TempStore> store_;
};

[[maybe_unused]] ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new IvEnvironment);

}  // namespace
