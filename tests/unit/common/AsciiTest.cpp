#include <gtest/gtest.h>

#include <string>

#include "common/Ascii.h"

namespace qipg::internal {
namespace {

TEST(Ascii, Utf16LengthValidityAndPrefix) {
  struct Case {
    std::string text;
    std::size_t units;
    bool valid;
    std::string prefix3;  // utf16Prefix(text, 3)
  };
  const Case cases[] = {
      {"", 0, true, ""},
      {"a\xC3\xA9\xE2\x82\xACz", 4, true, "a\xC3\xA9\xE2\x82\xAC"},  // 2 and 3 bytes: 1 unit each
      {"a\xF0\x9F\x98\x80", 3, true, "a\xF0\x9F\x98\x80"},           // above U+FFFF: 2 units
      {"ab\xF0\x9F\x98\x80", 4, true, "ab"},                         // a pair is never split
      {"a\xFFz", 3, false, "a\xFFz"},                                // a stray byte: 1 unit
      {"\xC0\xAF", 2, false, "\xC0\xAF"},                            // overlong
      {"\xED\xA0\x80", 3, false, "\xED\xA0\x80"},                    // surrogate
      {"\xF4\x90\x80\x80", 4, false, "\xF4\x90\x80"},                // above U+10FFFF
      {"\xC3", 1, false, "\xC3"},                                    // cut short
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(utf16Length(c.text), c.units);
    EXPECT_EQ(isValidUtf8(c.text), c.valid);
    EXPECT_EQ(utf16Prefix(c.text, 3), c.prefix3);
  }
  EXPECT_TRUE(isAscii(std::string("a\0\x7F", 3)));
  EXPECT_FALSE(isAscii("a\x80"));
}

TEST(Ascii, SearchAndReplace) {
  EXPECT_TRUE(equalsIgnoringAsciiCase("Success", "sUCCESS"));
  EXPECT_FALSE(equalsIgnoringAsciiCase("\xC3\xA9", "\xC3\x89"));
  EXPECT_EQ(findIgnoringAsciiCase("xx PaymentInvoice?", "paymentinvoice"), 3u);
  EXPECT_EQ(replaceAll("a+b++c", "+", "%2B"), "a%2Bb%2B%2Bc");
  EXPECT_EQ(replaceAll("%2B%2b%2B", "%2B", "+"), "+%2b+");
  EXPECT_EQ(replaceAll("aaa", "aa", "b"), "ba");
}

}  // namespace
}  // namespace qipg::internal
