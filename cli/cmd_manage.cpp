// ipg status | cancel | refund: ask the gateway about a transaction, cancel it or refund it,
// through the library's own management operations, and print the record that comes back.
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Answer.h"
#include "Command.h"
#include "Output.h"
#include "Credentials.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/PaymentResponse.h"
#include "qipg/QuandrelIPG.h"

#ifdef QIPG_HAVE_SANDBOX
#include "Sandbox.h"
#endif

namespace ipg {
namespace {

enum class Operation { kStatus, kCancel, kRefund };

constexpr long kDefaultTimeLimitSeconds = 60;
constexpr long kLongestTimeLimitSeconds = 3600;

const FlagSet kValueFlags = {
    "order", "ref", "amount", "mid", "key", "env", "base-url", "ca-file", "timeout"};
const FlagSet kBareFlags = {"json"};

// One line about the first argument that is not known; absent when all are.
std::optional<std::string> unknownArgument(const Args& args, Operation operation) {
  if (operation != Operation::kRefund && (flagValue(args, "amount") || hasFlag(args, "amount"))) {
    return "--amount is for refunds only";
  }
  return ipg::unknownArgument(args, kValueFlags, kBareFlags);
}

// The overall time limit in seconds (--timeout, default 60); absent when malformed.
std::optional<long> timeLimitSeconds(const Args& args) {
  const std::optional<std::string> text = flagValue(args, "timeout");
  if (!text) return kDefaultTimeLimitSeconds;
  long value = 0;
  const char* end = text->data() + text->size();
  const auto [ptr, ec] = std::from_chars(text->data(), end, value);
  if (text->empty() || ec != std::errc() || ptr != end || value < 1 ||
      value > kLongestTimeLimitSeconds) {
    return std::nullopt;
  }
  return value;
}

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

bool isLoopbackURL(const std::string& url) {
  for (const char* prefix :
       {"https://127.", "https://localhost:", "https://localhost/", "https://[::1]"}) {
    if (url.rfind(prefix, 0) == 0) return true;
  }
  return false;
}

// The gateway from the flags and the environment. A local sandbox's CA file (in its default
// data directory) is trusted for a loopback gateway when no CA file is given.
std::optional<qipg::GatewayConfig> gateway(const Args& args, std::uint64_t environment,
                                           std::string& error) {
  const bool test = environment == qipg::IPGEnvironmentTest;
  Args withGateway = args;
  if (!flagValue(args, "base-url") &&
      !isSet(test ? "QIPG_TEST_BASE_URL" : "QIPG_PRODUCTION_BASE_URL")) {
#ifdef QIPG_HAVE_SANDBOX
    // A sandbox running in the foreground (`ipg sandbox`) is the default gateway.
    if (auto running = qipg::sandbox::runningBaseURL(qipg::sandbox::defaultDataDir())) {
      withGateway.push_back("--base-url=" + *running);
    }
#endif
    if (!flagValue(withGateway, "base-url")) {
      error = std::string("no gateway given: use --base-url or set ") +
              (test ? "QIPG_TEST_BASE_URL" : "QIPG_PRODUCTION_BASE_URL") +
              ", or start one with `ipg sandbox`";
      return std::nullopt;
    }
  }
  qipg::GatewayConfig config = gatewayConfig(withGateway, environment);
#ifdef QIPG_HAVE_SANDBOX
  const std::string& base = test ? config.testBaseURL : config.productionBaseURL;
  if (config.caFile.empty() && isLoopbackURL(base)) {
    const std::string dataDir = qipg::sandbox::defaultDataDir();
    std::error_code ignored;
    if (!dataDir.empty() && std::filesystem::is_regular_file(dataDir + "/ca.pem", ignored)) {
      config.caFile = dataDir + "/ca.pem";
    }
  }
#endif
  return config;
}

int runManagement(const Args& args, Operation operation, const char* command) {
  const std::string prefix = std::string("ipg ") + command + ": ";
  if (std::optional<std::string> problem = unknownArgument(args, operation)) {
    std::cerr << prefix << *problem << " (see ipg " << command << " --help)\n";
    return 2;
  }
  std::string error;
  const std::optional<std::uint64_t> environment = environmentType(args, error);
  const std::optional<long> limit = timeLimitSeconds(args);
  if (!environment || !limit) {
    std::cerr << prefix
              << (environment ? "--timeout takes a whole number of seconds from 1 to 3600" : error)
              << "\n";
    return 2;
  }
  std::optional<qipg::GatewayConfig> config = gateway(args, *environment, error);
  if (!config) {
    std::cerr << prefix << error << "\n";
    return 2;
  }
  config->requestTimeoutMs = *limit * 1000;
  if (qipg::Text problem = config->problem()) {
    std::cerr << prefix << *problem << "\n";
    return 2;
  }
  std::shared_ptr<qipg::QuandrelIPG> client = qipg::QuandrelIPG::create(*environment, *config);
  if (!client) {
    std::cerr << prefix << "cannot create the client (the HTTP transport did not start)\n";
    return 1;
  }

  const auto answer = Answer::create();
  const auto delegate = answer->delegate();
  const MerchantCredentials credentials = merchantCredentials(args);
  const qipg::Text order = flagValue(args, "order");
  const qipg::Text ref = flagValue(args, "ref");
  switch (operation) {
    case Operation::kStatus:
      client->getTransactionStatus(order, ref, credentials.mid, credentials.key, delegate);
      break;
    case Operation::kCancel:
      client->cancelTransaction(order, ref, credentials.mid, credentials.key, delegate);
      break;
    case Operation::kRefund:
      client->refundTransaction(order, ref, flagValue(args, "amount"), credentials.mid,
                                credentials.key, delegate);
      break;
  }
  if (const std::optional<std::string> inputError = answer->inputError()) {
    std::cerr << prefix << *inputError << "\n";
    return 1;
  }
  // The transport gives up by itself at the limit; the grace covers the rest.
  answer->waitFor(std::chrono::seconds(*limit + 5));
  const std::optional<qipg::PaymentResponse> response = answer->record();
  client->shutdown();
  if (!response) {
    std::cerr << prefix << "no answer within " << *limit << " s\n";
    return 1;
  }
  printRecord(std::cout, *response, hasFlag(args, "json"));
  return std::cout.flush() ? 0 : 1;
}

std::string usageFor(Operation operation) {
  std::string text;
  switch (operation) {
    case Operation::kStatus:
      text =
          "usage: ipg status --order ID --ref N [CREDENTIALS] [--json] [--timeout SECONDS]\n"
          "\n"
          "Asks the gateway for the status of a transaction.\n";
      break;
    case Operation::kCancel:
      text =
          "usage: ipg cancel --order ID --ref N [CREDENTIALS] [--json] [--timeout SECONDS]\n"
          "\n"
          "Cancels an authorised, not yet captured transaction.\n";
      break;
    case Operation::kRefund:
      text =
          "usage: ipg refund --order ID --ref N --amount A [CREDENTIALS] [--json]\n"
          "                  [--timeout SECONDS]\n"
          "\n"
          "Refunds (part of) a captured transaction.\n";
      break;
  }
  text +=
      "\n"
      "Prints the record the gateway's answer gives, one \"property: value\" line each\n"
      "(\"(absent)\" for an absent value), or one JSON object with --json (null for absent).\n"
      "A record with statusCode F means the gateway refused, or no usable answer came.\n"
      "Exit status: 0 when a record arrived, 1 when the library refused the input (its\n"
      "message is printed) or no answer came, 2 on a usage error.\n"
      "\n"
      "  --order ID          order ID of the transaction\n"
      "  --ref N             the gateway's transaction reference number\n";
  if (operation == Operation::kRefund) {
    text += "  --amount A          amount to refund, e.g. 3.00\n";
  }
  text +=
      "  --json              print the record as JSON\n"
      "  --timeout SECONDS   overall time limit (default 60)\n"
      "\n";
  text += kCredentialsHelp;
  text +=
      "The gateway is --base-url, else the environment, else the sandbox that `ipg sandbox`\n"
      "runs in its default data directory. For a sandbox on this machine, its CA file is\n"
      "found in that directory when none is given.\n";
  return text;
}

int runStatus(const Args& args) { return runManagement(args, Operation::kStatus, "status"); }
int runCancel(const Args& args) { return runManagement(args, Operation::kCancel, "cancel"); }
int runRefund(const Args& args) { return runManagement(args, Operation::kRefund, "refund"); }

const Registration statusRegistration{{"status", "ask the gateway for a transaction's status",
                                       usageFor(Operation::kStatus), &runStatus}};
const Registration cancelRegistration{
    {"cancel", "cancel an authorised transaction", usageFor(Operation::kCancel), &runCancel}};
const Registration refundRegistration{{"refund", "refund (part of) a captured transaction",
                                       usageFor(Operation::kRefund), &runRefund}};

}  // namespace
}  // namespace ipg
