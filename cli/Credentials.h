// Where the ipg commands take the merchant's credentials and the gateway's address from.
//
// MID and key: the --mid / --key flags, else the environment variables QIPG_MID / QIPG_KEY.
// When neither gives a value the text stays absent, and the library then reads both from
// Info.plist ($QIPG_BUNDLE_DIR, else beside the ipg program), but only when both are
// missing. Gateway: GatewayConfig::fromEnvironment(), with --base-url replacing the selected
// environment's base URL and --ca-file the CA file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Command.h"
#include "qipg/GatewayConfig.h"
#include "qipg/Types.h"

namespace ipg {

struct MerchantCredentials {
  qipg::Text mid;
  qipg::Text key;  // never print it; use maskSecret
};

// From the flags, else the environment; each absent when neither gives it.
MerchantCredentials merchantCredentials(const Args& args);

// The key alone (--key, else QIPG_KEY); absent when neither gives it.
qipg::Text merchantKey(const Args& args);

// --env test|production (default test) as the library's environment value; absent, with a
// one-line reason in `error`, for any other value.
std::optional<std::uint64_t> environmentType(const Args& args, std::string& error);

// GatewayConfig::fromEnvironment() with --base-url (for `environment`) and --ca-file applied.
qipg::GatewayConfig gatewayConfig(const Args& args, std::uint64_t environment);

// Text for help screens, describing the flags above.
extern const char* const kCredentialsHelp;

}  // namespace ipg
