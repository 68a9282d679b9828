#include "Credentials.h"

#include <cstdlib>

#include "qipg/QuandrelIPG.h"

namespace ipg {
namespace {

qipg::Text flagOrEnvironment(const Args& args, std::string_view flag, const char* variable) {
  if (std::optional<std::string> value = flagValue(args, flag)) return *value;
  if (const char* value = std::getenv(variable); value != nullptr && *value != '\0') {
    return std::string(value);
  }
  return std::nullopt;
}

}  // namespace

const char* const kCredentialsHelp =
    "credentials and gateway:\n"
    "  --mid MID         merchant ID (else $QIPG_MID)\n"
    "  --key KEY         merchant encryption key (else $QIPG_KEY; prefer the variable, a\n"
    "                    flag is visible to other users in the process list)\n"
    "                    With neither MID nor key given, both come from Info.plist in\n"
    "                    $QIPG_BUNDLE_DIR, else beside the ipg program.\n"
    "  --env test|production   gateway to use (default test)\n"
    "  --base-url URL    base URL of that gateway (else $QIPG_TEST_BASE_URL or\n"
    "                    $QIPG_PRODUCTION_BASE_URL); https, or http on a loopback host\n"
    "  --ca-file FILE    PEM file of CAs to trust (else $QIPG_CA_FILE, else the system's)\n";

MerchantCredentials merchantCredentials(const Args& args) {
  return {flagOrEnvironment(args, "mid", "QIPG_MID"), flagOrEnvironment(args, "key", "QIPG_KEY")};
}

qipg::Text merchantKey(const Args& args) { return flagOrEnvironment(args, "key", "QIPG_KEY"); }

std::optional<std::uint64_t> environmentType(const Args& args, std::string& error) {
  const std::optional<std::string> env = flagValue(args, "env");
  if (!env || *env == "test") return qipg::IPGEnvironmentTest;
  if (*env == "production") return qipg::IPGEnvironmentProduction;
  error = "--env must be test or production, not \"" + *env + "\"";
  return std::nullopt;
}

qipg::GatewayConfig gatewayConfig(const Args& args, std::uint64_t environment) {
  qipg::GatewayConfig config = qipg::GatewayConfig::fromEnvironment();
  if (std::optional<std::string> url = flagValue(args, "base-url")) {
    (environment == qipg::IPGEnvironmentTest ? config.testBaseURL : config.productionBaseURL) =
        *url;
  }
  if (std::optional<std::string> file = flagValue(args, "ca-file")) config.caFile = *file;
  return config;
}

}  // namespace ipg
