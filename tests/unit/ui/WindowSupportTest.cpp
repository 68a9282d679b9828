// What both payment windows share: the canonical form of addresses and the return address
// built from it, which host a CA file may vouch for, and which endings are reconciled.
#include <gtest/gtest.h>

#include "common/Url.h"
#include "qipg/PaymentResponse.h"
#include "ui/window/Session.h"
#include "ui/window/TlsTrust.h"

namespace qipg::internal {
namespace {

TEST(WindowUrl, CanonicalFormAndHost) {
  const struct {
    const char* url;
    const char* canonical;
    const char* host;
  } cases[] = {
      {"HTTPS://Gateway.Example:443/IPG/paymentInvoice", "https://gateway.example/IPG/paymentInvoice",
       "gateway.example"},
      {"HTTP://127.0.0.1:80/ipg/", "http://127.0.0.1/ipg/", "127.0.0.1"},
      {"https://127.0.0.1:8443/ipg/x?a=%2B#f", "https://127.0.0.1:8443/ipg/x?a=%2B#f", "127.0.0.1"},
      {"https://[::1]:9000/ipg/", "https://[::1]:9000/ipg/", "::1"},
      {"not a url", "not a url", ""},
      {"", "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.url);
    EXPECT_EQ(canonicalURL(c.url), c.canonical);
    EXPECT_EQ(hostOf(c.url), c.host);
  }
  EXPECT_EQ(returnURL("HTTPS://A.example:443/ipg/"), "https://a.example/ipg/paymentInvoice");
  EXPECT_EQ(returnURL("https://b.example/"), "https://b.example/paymentInvoice");
}

// Every refusal that needs no certificate to decide (the chain itself is checked against
// real certificates by the window tests).
TEST(WindowTlsTrust, RefusesWithoutAskingTheCAFile) {
  const std::vector<std::string> garbage = {"not DER"};
  const struct {
    std::vector<std::string> chain;
    const char* caFile;
    const char* trustedHost;
    const char* url;
  } cases[] = {
      {garbage, "", "127.0.0.1", "https://127.0.0.1/"},           // not asked: no file
      {garbage, "/nonexistent.pem", "", "https://127.0.0.1/"},     // not asked: no host
      {{}, "/nonexistent.pem", "127.0.0.1", "https://127.0.0.1/"},  // no certificate
      {garbage, "/nonexistent.pem", "localhost", "https://127.0.0.1/"},  // another host
      {garbage, "/nonexistent.pem", "127.0.0.1", "https://127.0.0.1/"},  // unreadable
  };
  for (const auto& c : cases) {
    EXPECT_FALSE(certificateTrustedForHost(c.chain, c.caFile, c.trustedHost, c.url));
  }
}

TEST(WindowReconciliation, OnlyUnclearEndingsAreReconciled) {
  auto record = [](const char* status, const char* order, const char* description) {
    PaymentResponse r;
    if (status) r.setStatusCode(status);
    if (order) r.setOrderID(order);
    if (description) r.setStatusDescription(description);
    return r;
  };
  EXPECT_TRUE(needsReconciliation(true, PaymentResponse()));
  EXPECT_TRUE(needsReconciliation(false, record("F", nullptr, nullptr)));
  EXPECT_FALSE(needsReconciliation(false, record("F", "O1", "Declined by issuer")));
  EXPECT_FALSE(needsReconciliation(false, record("S", "O1", "Transaction successful")));
  EXPECT_EQ(*optionsProblem([] {
    PaymentWindowOptions options;
    options.reconcile = PaymentReconciliation{};
    return options;
  }()),
            "reconciliation needs the client that built the request (options.client)");
}

}  // namespace
}  // namespace qipg::internal
