// Where the ipg commands take the merchant's credentials and the gateway from.
//
// MID: --mid, else $QIPG_MID. Key: --key-file (owner-only), else $QIPG_KEY, else a prompt when
// standard input is a terminal and a MID was given; never from the command line, where other
// users would see it in the process list. With neither MID nor key the library reads both from
// Info.plist ($QIPG_BUNDLE_DIR, else beside the ipg program).
//
// Gateway, one rule for every command: --base-url, else $QIPG_TEST_BASE_URL or
// $QIPG_PRODUCTION_BASE_URL (for --env), else the sandbox that `ipg sandbox` runs in its data
// directory ($QIPG_SANDBOX_DIR, else the default; its "running" file), else the library's
// configured default. CA file: --ca-file, else $QIPG_CA_FILE, else for a loopback gateway the
// CA file of that data directory, when there is one. A "running" or CA file (or directory) of
// another user, or one that others may change, is ignored with a warning on standard error.
//
// Secrets: QIPG_KEY and QIPG_CARD_* are taken out of the environment by protectSecrets() at
// start, so that no process started later inherits them; environmentValue() still gives them.
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
  std::string keyFile;
  std::string env = "test";
  std::string baseURL;
  std::string caFile;
  std::string journal;     // --journal FILE
  bool noJournal = false;  // --no-journal
};

// The outcome journal's file: --journal, else ${XDG_STATE_HOME:-~/.local/state}/qipg/
// journal.sqlite3; empty with --no-journal.
std::string journalPath(const GatewayOptions& options);

// Adds --mid, --key-file, --env, --base-url and --ca-file to `sub`, and the refused --key.
void addGatewayOptions(CLI::App& sub, GatewayOptions& options);

// Adds a hidden --key that refuses any value: a key on the command line would be visible to
// every user in the process list. The refusal names the ways that are accepted.
void addRefusedKeyOption(CLI::App& sub);

// The merchant's credentials; the key is wiped when the object goes.
struct MerchantCredentials {
  qipg::Text mid;
  qipg::Text key;
  ~MerchantCredentials();
};

// Fills `credentials` by the rule above; false with a one-line reason when a key file is
// unusable.
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

// The contents of a regular file that only its owner (this user) may read or write, opened
// without following a symbolic link or waiting on a FIFO; absent, with a one-line reason
// naming `what`, the file and what is wrong with it, otherwise.
std::optional<std::string> readOwnerOnlyFile(const std::string& path, const std::string& what,
                                             std::string& error);

// The value of environment variable `name`; empty when it is not set. A secret variable
// (QIPG_KEY, QIPG_CARD_*) is taken out of the environment when read, and its value kept in
// this process (wiped at exit) for the next reads.
std::string environmentValue(const char* name);

// Turns core files off and makes the process non-dumpable, then takes every secret variable
// out of the environment (see environmentValue). Call first thing in main(), before any card
// data or key is read and before any thread or process is started. Says on standard error
// what it cannot do.
void protectSecrets();

// Overwrites a secret's bytes, then empties it.
void wipe(std::string& secret);

}  // namespace ipg
