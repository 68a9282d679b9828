// The self-posting form page that carries the payment request's body: the gateway must decode
// from it exactly what it would have decoded from the original body.
#include <gtest/gtest.h>

#include <string>

#include "ui/AutoPostForm.h"

namespace qipg::internal {
namespace {

TEST(AutoPostFormTest, BodyFieldsAreDecodedAsAFormDecodingServerWould) {
  const struct {
    const char* body;
    FormFields expected;
  } cases[] = {
      // The payment page body: Base64 padding stays, "%2B" is the envelope's "+", the CR LF
      // line breaks are carried raw.
      {"merchantRequest=ab%2Bcd/e\r\nfg==&MID=M123&iosEnc=true",
       {{"merchantRequest", "ab+cd/e\r\nfg=="}, {"MID", "M123"}, {"iosEnc", "true"}}},
      {"a=1+2&b=%41%4a%4B", {{"a", "1 2"}, {"b", "AJK"}}},
      {"a=100%&b=%zz&c=%4", {{"a", "100%"}, {"b", "%zz"}, {"c", "%4"}}},
      {"flag&&=v&x=", {{"flag", ""}, {"", "v"}, {"x", ""}}},
      {"", {}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(parseFormBody(c.body), c.expected) << c.body;
  }
}

TEST(AutoPostFormTest, PageHoldsEveryFieldEscapedAndPostsToTheAction) {
  const std::string page = autoPostPage("https://gw.example/ipg/doMEPayRequest?a=1&b=\"2\"",
                                        "merchantRequest=x%2By\r\nz==&MID=<M&amp>&iosEnc=true");
  EXPECT_NE(page.find("action=\"https://gw.example/ipg/doMEPayRequest?a=1&amp;b=&quot;2&quot;\""),
            std::string::npos);
  EXPECT_NE(page.find("method=\"post\""), std::string::npos);
  EXPECT_NE(
      page.find("<input type=\"hidden\" name=\"merchantRequest\" value=\"x+y&#13;&#10;z==\">"),
      std::string::npos);
  EXPECT_NE(page.find("<input type=\"hidden\" name=\"MID\" value=\"&lt;M\">"), std::string::npos);
  // "&amp>" was a separate (empty-valued) field of the body; it becomes an input of its own.
  EXPECT_NE(page.find("<input type=\"hidden\" name=\"amp&gt;\" value=\"\">"), std::string::npos);
  EXPECT_NE(page.find("<input type=\"hidden\" name=\"iosEnc\" value=\"true\">"), std::string::npos);
  EXPECT_EQ(htmlEscape("a'\tb"), "a&#39;&#9;b");

  // The page's own address: the request's origin, never a page of the gateway.
  EXPECT_EQ(originOf("https://user:pw@127.0.0.1:8443/ipg/doMEPayRequest?x#y"),
            "https://127.0.0.1:8443/");
  EXPECT_EQ(originOf("https://[::1]:9"), "https://[::1]:9/");
  EXPECT_EQ(originOf("no-scheme/path"), "");
}

}  // namespace
}  // namespace qipg::internal
