// Where the ipg commands take the merchant's credentials and the gateway from.
//
// MID: --mid, else $QIPG_MID. Key: --key-file (owner-only), else $QIPG_KEY, else a prompt when
// standard input is a terminal and a MID was given; --key still works (first) but warns, since
// other users see it in the process list. With neither MID nor key the library reads both from
// Info.plist ($QIPG_BUNDLE_DIR, else beside the ipg program).
//
// Gateway, one rule for every command: --base-url, else $QIPG_TEST_BASE_URL or
// $QIPG_PRODUCTION_BASE_URL (for --env), else the sandbox that `ipg sandbox` runs in its default
// data directory (its "running" file), else the library's configured default. CA file:
// --ca-file, else $QIPG_CA_FILE, else for a loopback gateway the CA file of the sandbox's
// default data directory, when there is one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Command.h"
#include "qipg/GatewayConfig.h"
#include "qipg/Types.h"

namespace ipg {

struct GatewayOptions {
  std::string mid;
  std::string key;  // from --key only; never printed
  std::string keyFile;
  std::string env = "test";
  std::string baseURL;
  std::string caFile;
};

// Adds --mid, --key, --key-file, --env, --base-url and --ca-file to `sub`.
void addGatewayOptions(CLI::App& sub, GatewayOptions& options);

// The merchant's credentials; the key is wiped when the object goes.
struct MerchantCredentials {
  qipg::Text mid;
  qipg::Text key;
  ~MerchantCredentials();
};

// Fills `credentials` by the rule above; false with a one-line reason when a key file is
// unusable. Warns on standard error when the key came from --key.
bool merchantCredentials(const GatewayOptions& options, MerchantCredentials& credentials,
                         std::string& error);

struct Gateway {
  std::uint64_t environment = 0;  // IPGEnvironmentTest or IPGEnvironmentProduction
  qipg::GatewayConfig config;
  std::string baseURL;  // of `environment`
};

// The gateway by the rule above; absent, with a one-line reason, when the configuration is
// unusable.
std::optional<Gateway> resolveGateway(const GatewayOptions& options, std::string& error);


// The contents of a regular file that only its owner (this user) may read or write; absent,
// with a one-line reason naming `what` and the file, otherwise.
std::optional<std::string> readOwnerOnlyFile(const std::string& path, const std::string& what,
                                             std::string& error);

// The value of environment variable `name`; empty when it is not set.
std::string environmentValue(const char* name);

// Overwrites a secret's bytes, then empties it.
void wipe(std::string& secret);

}  // namespace ipg
