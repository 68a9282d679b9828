#include <gtest/gtest.h>

#include <vector>

#include "qipg/CommonUtilities.h"
#include "qipg/Types.h"

namespace qipg {
namespace {

TEST(ValidatorsTest, JudgeEveryCharacterAgainstTheirSet) {
  // Texts grouped by the sets they belong to. No NUL ends a text early, no end of line is
  // tolerated, and letters or digits outside ASCII count for nothing.
  const struct {
    std::vector<Text> texts;
    bool numeric, alphaNumeric, special;
  } groups[] = {{{""}, true, true, true},
                {{"0123456789.", "1.2.3"}, true, false, true},
                {{"abcxyzABCXYZ09"}, false, true, true},
                {{"12,50", "-5", "ABC 123", "[x]&#1.,/$%*@-"}, false, false, true},
                {{std::nullopt, std::string{'1', '\0', '2'}, "1\r\n", "caf\u00e9", "\u0661\u0662",
                  "\xff", "+5", "a_b", "a:b", "a|b", "a\"b", "a'b", "a~b", "a\tb"},
                 false,
                 false,
                 false}};
  const CommonUtilities validators;
  for (const auto& group : groups) {
    for (const Text& text : group.texts) {
      SCOPED_TRACE(text.value_or("<absent>"));
      EXPECT_EQ(validators.isNumeric(text), group.numeric);
      EXPECT_EQ(validators.isAlphaNumeric(text), group.alphaNumeric);
      EXPECT_EQ(validators.isAlphaNumericWithSpecialCharacters(text), group.special);
    }
  }
}

}  // namespace
}  // namespace qipg
