// What both payment windows share: which host a CA file may vouch for, and which endings are
// reconciled.
#include <gtest/gtest.h>

#include "qipg/PaymentResponse.h"
#include "ui/window/Session.h"
#include "ui/window/TlsTrust.h"

namespace qipg::internal {
namespace {

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
            "reconciliation needs the client that built the request (options.client or "
            "options.cppClient)");
}

}  // namespace
}  // namespace qipg::internal
