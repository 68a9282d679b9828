// Amounts and form values as the sandbox reads them.
#include <gtest/gtest.h>

#include "Text.h"

namespace qipg::sandbox::internal {
namespace {

TEST(SandboxText, ParsesAmountsIntoMinorUnits) {
  const std::pair<const char*, std::optional<std::int64_t>> cases[] = {
      {"10.50", 1050},
      {"10.5", 1050},
      {"7", 700},
      {"0.01", 1},
      {"007.10", 710},
      {"9999999999999.99", 999999999999999},
      {"", std::nullopt},
      {".5", std::nullopt},
      {"1.234", std::nullopt},
      {"-5", std::nullopt},
      {"1,000", std::nullopt},
      {"1e3", std::nullopt},
      {"10000000000000", std::nullopt},
  };
  for (const auto& [text, minor] : cases) EXPECT_EQ(parseAmount(text), minor) << text;
  EXPECT_EQ(formatAmount(1050), "10.50");
  EXPECT_EQ(formatAmount(7), "0.07");
  EXPECT_EQ(formatAmount(999999999999999), "9999999999999.99");
}

TEST(SandboxText, SplitsFormsWithoutDecodingEnvelopes) {
  // The library's raw form: "/", "=" and CR LF stay as they are, "+" is "%2B".
  const auto fields = splitForm("merchantReqStrT=ab/c%2Bd\r\nef==&mid=M1&iosEnc=true&flag");
  ASSERT_EQ(fields.size(), 4u);
  EXPECT_EQ(rawField(fields, "merchantReqStrT"), "ab/c%2Bd\r\nef==");
  EXPECT_EQ(rawField(fields, "mid"), "M1");
  EXPECT_EQ(rawField(fields, "MID"), std::nullopt);
  EXPECT_EQ(rawField(fields, "flag"), "");

  struct Case {
    const char* in;
    bool plusIsSpace;
    const char* out;
  };
  const Case cases[] = {{"a%2Bb+c", false, "a+b+c"}, {"Jane+Doe%21", true, "Jane Doe!"},
                        {"%252B", false, "%2B"},     {"50%", true, "50%"},
                        {"%zz%4", true, "%zz%4"},    {"%0D%0A", false, "\r\n"}};
  for (const Case& c : cases) EXPECT_EQ(percentDecode(c.in, c.plusIsSpace), c.out) << c.in;
  EXPECT_EQ(formValue(splitForm("card%4Eumber=4111+1111"), "cardNumber"), "4111 1111");
}

}  // namespace
}  // namespace qipg::sandbox::internal
