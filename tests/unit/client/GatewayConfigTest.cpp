// Creating a client: environment selection, the stored IV, the digest, and the gateway
// configuration it accepts or refuses.
#include <cstdint>
#include <limits>
#include <string>

#include "unit/client/ClientSupport.h"
#include "qipg/CommonUtilities.h"
#include "qipg/GatewayConfig.h"
#include "qipg/QuandrelIPG.h"

namespace qipg_test {
namespace {

using qipg::CommonUtilities;
using qipg::GatewayConfig;
using qipg::QuandrelIPG;

constexpr const char* kTestIV = "4e9a1c07b3d58f26";
constexpr const char* kProductionIV = "d2071f8be64c395a";
// First 32 hex characters of SHA-256 of each gateway's constant, from sha256sum.
constexpr const char* kTestDigest = "5011382119a78f22547e4e78ce3bcd9d";
constexpr const char* kProductionDigest = "8266dc3b7fa3c17f1d71b9c123f69274";

using ClientCreation = ClientTest;  // QIPG_* variables cleared, private defaults

TEST_F(ClientCreation, EnvironmentValueSelectsGatewayDigestAndIV) {
  ScopedEnv test("QIPG_TEST_BASE_URL", "https://t.example/ipg/");
  ScopedEnv production("QIPG_PRODUCTION_BASE_URL", "https://p.example/");
  struct Row {
    std::optional<std::uint64_t> environment;  // absent: the plain create()
    const char* url;
    const char* digest;
    const char* iv;
  };
  const Row rows[] = {
      {std::nullopt, "https://t.example/ipg/", kTestDigest, kTestIV},
      {0, "https://p.example/", kProductionDigest, kProductionIV},
      {1, "https://t.example/ipg/", kTestDigest, kTestIV},
      {2, "https://p.example/", kProductionDigest, kProductionIV},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.environment.value_or(999));
    auto client = row.environment ? QuandrelIPG::create(*row.environment) : QuandrelIPG::create();
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(client->CurrentDomainURL(), row.url);
    EXPECT_EQ(client->shaPublicKey(), row.digest);
    EXPECT_EQ(CommonUtilities::getRandomIVforKey("randomIV"), row.iv);
  }
}

TEST_F(ClientCreation, ClientCreatedLastDecidesTheIVAndRefusedConfigurationsStoreNone) {
  GatewayConfig bad;
  bad.productionBaseURL = "http://ipg.example/";
  EXPECT_EQ(QuandrelIPG::create(1, bad), nullptr);  // both URLs must be usable
  EXPECT_EQ(CommonUtilities::getRandomIVforKey("randomIV"), std::nullopt);

  auto test = QuandrelIPG::create(1);
  auto production = QuandrelIPG::create(0);
  ASSERT_NE(test, nullptr);
  ASSERT_NE(production, nullptr);
  production.reset();  // the value outlives the client that wrote it
  EXPECT_EQ(CommonUtilities::getRandomIVforKey("randomIV"), kProductionIV);
}

TEST_F(ClientCreation, BaseURLsAreKeptInCanonicalForm) {
  GatewayConfig config;
  config.testBaseURL = "HTTPS://Example.COM:443/ipg/";
  config.productionBaseURL = "https://IPG.example:8443/";
  auto client = QuandrelIPG::create(1, config);
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(client->CurrentDomainURL(), "https://example.com/ipg/");
  EXPECT_EQ(client->config().productionBaseURL, "https://ipg.example:8443/");
  EXPECT_EQ(client->getURLRequestforTransaction("m", "1", 0).url,
            "https://example.com/ipg/doMEPayRequest");
}

TEST(GatewayConfigProblem, BaseURLRules) {
  struct Row {
    std::string url;
    std::optional<std::string> problem;  // for the test base URL
    std::string canonical = "";          // when there is none
  };
  const std::string https =
      "test base URL must use https (http is allowed only on a loopback host): ";
  const auto readsAs = [](const std::string& canonical, const std::string& url) {
    return "test base URL reads as " + canonical + "; write it so: " + url;
  };
  const Row rows[] = {
      {"https://test.ipg.quandrel.example/ipg/", std::nullopt,
       "https://test.ipg.quandrel.example/ipg/"},
      {"HTTPS://Upper.Example:443/ipg/", std::nullopt, "https://upper.example/ipg/"},
      {"http://127.0.0.1:8443/ipg/", std::nullopt, "http://127.0.0.1:8443/ipg/"},
      {"http://LocalHost:80/ipg/", std::nullopt, "http://localhost/ipg/"},
      {"http://[::1]:8080/ipg/", std::nullopt, "http://[::1]:8080/ipg/"},
      {"http://ipg.example/ipg/", https + "http://ipg.example/ipg/"},
      {"http://127.0.0.1.evil.com/", https + "http://127.0.0.1.evil.com/"},
      {"http://localhost.evil.com/", https + "http://localhost.evil.com/"},
      {"", "test base URL is empty"},
      {"not a url", "test base URL is not a valid URL: not a url"},
      {"https://ipg.example/ipg",
       "test base URL must end with \"/\" (endpoint names are "
       "appended to it): https://ipg.example/ipg"},
      {"https://ex\xC3\xA4mple.com/",
       "test base URL is not a valid URL: https://ex\xC3\xA4mple.com/"},
      // Read one way here and another way by a browser, or spelt other than it is read.
      {"http://127.0.0.2\\@127.0.0.1:8080/ipg/",
       "test base URL must not carry a user name or password"},
      {"https://ipg.example/ipg\\x/",
       "test base URL must not contain a backslash: https://ipg.example/ipg\\x/"},
      {"https://ipg.example/ipg/?a=/",
       "test base URL must not have a query: https://ipg.example/ipg/?a=/"},
      {"https://ipg.example/ipg/#/",
       "test base URL must not have a fragment: https://ipg.example/ipg/#/"},
      {"https://ipg.example/x/../ipg/",
       readsAs("https://ipg.example/ipg/", "https://ipg.example/x/../ipg/")},
      {"https://ipg.example/%2e%2e/ipg/",
       "test base URL must not contain percent-escapes: https://ipg.example/%2e%2e/ipg/"},
      {"http://127.1/", readsAs("http://127.0.0.1/", "http://127.1/")},
      {"https://ipg.example:0/", "test base URL has port 0: https://ipg.example:0/"},
      {"https://" + std::string(254, 'a') + "/",
       "test base URL has a host name longer than 253 characters: https://" +
           std::string(192, 'a') + "..."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.url);
    GatewayConfig config;
    config.testBaseURL = row.url;
    EXPECT_EQ(config.problem(), row.problem);
    const qipg::Text canonical = row.problem ? std::nullopt : qipg::Text(row.canonical);
    EXPECT_EQ(GatewayConfig::canonicalBaseURL(row.url), canonical);
    EXPECT_EQ(GatewayConfig::canonicalBaseURL(row.canonical), canonical);
  }
}

TEST(GatewayConfigProblem, NamesTheProductionURLAndTheCAFile) {
  GatewayConfig config;
  config.productionBaseURL = "http://ipg.example/";
  EXPECT_EQ(config.problem(),
            "production base URL must use https (http is allowed only on a loopback host): "
            "http://ipg.example/");
  config = GatewayConfig();
  config.caFile = "/";
  EXPECT_EQ(config.problem(), "CA file is not a readable file: /");
}

}  // namespace
}  // namespace qipg_test
