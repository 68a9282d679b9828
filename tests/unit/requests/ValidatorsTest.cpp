#include <gtest/gtest.h>

#include "qipg/CommonUtilities.h"
#include "qipg/Types.h"

namespace qipg {
namespace {

struct Row {
  Text text;
  bool numeric;
  bool alphaNumeric;
  bool special;
};

TEST(ValidatorsTest, JudgeEveryCharacterAgainstTheirSet) {
  const Row rows[] = {
      {std::nullopt, false, false, false},
      {"", true, true, true},
      {"0123456789.", true, false, true},
      {"1.2.3", true, false, true},
      {"...", true, false, true},
      {"12,50", false, false, true},
      {"-5", false, false, true},
      {"+5", false, false, false},
      {" 5", false, false, true},
      {"ABC123", false, true, true},
      {"abcxyzABCXYZ", false, true, true},
      {"ABC 123", false, false, true},
      {" ", false, false, true},
      {"[x]&#1.,/$%*@-", false, false, true},
      {"a_b", false, false, false},
      {"a+b", false, false, false},
      {"a:b", false, false, false},
      {"a|b", false, false, false},
      {"a\"b", false, false, false},
      {"a'b", false, false, false},
      {"a~b", false, false, false},
      {"a\tb", false, false, false},
      {"a\nb", false, false, false},
      {"1\r\n", false, false, false},
      {std::string{'1', '\0', '2'}, false, false, false},
      {"caf\u00e9", false, false, false},     // e with acute accent
      {"\u0661\u0662", false, false, false},  // Arabic-Indic digits
      {"\xff", false, false, false},          // not UTF-8 at all
      {"12\uff0e5", false, false, false},     // fullwidth full stop
  };
  const CommonUtilities validators;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text.value_or("<absent>"));
    EXPECT_EQ(validators.isNumeric(row.text), row.numeric);
    EXPECT_EQ(validators.isAlphaNumeric(row.text), row.alphaNumeric);
    EXPECT_EQ(validators.isAlphaNumericWithSpecialCharacters(row.text), row.special);
  }
}

}  // namespace
}  // namespace qipg
