// The URL module: the canonical form of addresses, the host and the return address built from
// a base URL.
#include <gtest/gtest.h>

#include "common/Url.h"

namespace qipg::internal {
namespace {

TEST(Url, CanonicalFormHostAndReturnAddress) {
  const struct {
    const char* url;
    const char* canonical;
    const char* host;
  } cases[] = {
      {"HTTPS://Gateway.Example:443/IPG/paymentInvoice", "https://gateway.example/IPG/paymentInvoice",
       "gateway.example"},
      {"https://127.0.0.1:8443/ipg/x?a=%2B#f", "https://127.0.0.1:8443/ipg/x?a=%2B#f", "127.0.0.1"},
      {"https://[::1]:9000/ipg/", "https://[::1]:9000/ipg/", "::1"},
      {"not a url", "not a url", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.url);
    EXPECT_EQ(canonicalURL(c.url), c.canonical);
    EXPECT_EQ(hostOf(c.url), c.host);
  }
  EXPECT_EQ(returnURL("HTTPS://A.example:443/ipg/"), "https://a.example/ipg/paymentInvoice");
  EXPECT_EQ(returnURL("https://b.example/"), "https://b.example/paymentInvoice");
}

}  // namespace
}  // namespace qipg::internal
