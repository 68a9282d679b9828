// ipg status | cancel | refund: ask the gateway about a transaction, cancel it or refund it,
// through the library's own management operations, and print the record that comes back.
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "Answer.h"
#include "Command.h"
#include "Credentials.h"
#include "Output.h"
#include "qipg/QuandrelIPG.h"

namespace ipg {
namespace {

enum class Operation { kStatus, kCancel, kRefund };

struct ManageOptions {
  GatewayOptions gateway;
  std::string order;
  std::string ref;
  std::string amount;
  bool json = false;
  long timeoutSeconds = 60;
};

const char* nameOf(Operation operation) {
  switch (operation) {
    case Operation::kStatus:
      return "status";
    case Operation::kCancel:
      return "cancel";
    case Operation::kRefund:
      return "refund";
  }
  return "";
}

int runManagement(const ManageOptions& o, Operation operation) {
  const std::string command = nameOf(operation);
  std::string error;
  std::optional<Gateway> gateway = resolveGateway(o.gateway, error);
  MerchantCredentials credentials;
  if (!gateway || !merchantCredentials(o.gateway, credentials, error)) {
    printError(std::cout, std::cerr, command, "Config", error, o.json);
    return kExitUsage;
  }
  gateway->config.requestTimeoutMs = o.timeoutSeconds * 1000;
  std::shared_ptr<qipg::QuandrelIPG> client =
      qipg::QuandrelIPG::create(gateway->environment, gateway->config);
  if (!client) {
    printError(std::cout, std::cerr, command, "Config",
               "cannot create the client (the HTTP transport did not start)", o.json);
    return kExitFailed;
  }

  const auto answer = Answer::create();
  const auto delegate = answer->delegate();
  switch (operation) {
    case Operation::kStatus:
      client->getTransactionStatus(o.order, o.ref, credentials.mid, credentials.key, delegate);
      break;
    case Operation::kCancel:
      client->cancelTransaction(o.order, o.ref, credentials.mid, credentials.key, delegate);
      break;
    case Operation::kRefund:
      client->refundTransaction(o.order, o.ref, o.amount, credentials.mid, credentials.key,
                                delegate);
      break;
  }
  if (const std::optional<std::string> inputError = answer->inputError()) {
    printError(std::cout, std::cerr, command, "Input", *inputError, o.json);
    return kExitUsage;
  }
  // The transport gives up by itself at the limit; the grace covers the rest.
  answer->waitFor(std::chrono::seconds(o.timeoutSeconds + 5), true);
  const std::optional<qipg::PaymentResponse> response = answer->record();
  client->shutdown();
  if (!response) {
    printError(std::cout, std::cerr, command, "Timeout",
               "no answer within " + std::to_string(o.timeoutSeconds) + " s", o.json);
    return kExitNetwork;
  }
  printRecord(std::cout, *response, o.json);
  return std::cout.flush() ? kExitOk : kExitFailed;
}

Command addManagement(CLI::App& app, Operation operation, const std::string& summary) {
  auto o = std::make_shared<ManageOptions>();
  CLI::App* sub = app.add_subcommand(nameOf(operation), summary);
  sub->footer(
      "Prints the record of the gateway's answer, one \"property: value\" line each\n"
      "(\"(absent)\" for an absent value), or one JSON object with --json (null for absent).\n"
      "A statusCode F is the gateway's verdict, with its reason in statusDescription.\n"
      "Exit status: 0 a readable answer came back; 2 bad usage or input (nothing was sent);\n"
      "3 no answer (network, time-out, TLS); 4 an answer that could not be read, or an HTTP\n"
      "error. Errors print as \"ipg COMMAND: KIND: MESSAGE\" on standard error, or with --json\n"
      "as {\"error\": {\"kind\": ..., \"message\": ...}} on standard output.\n"
      "While a call waits longer than a second, a spinner shows on a terminal.");
  sub->add_option("--order", o->order, "order ID of the transaction")
      ->required()
      ->check(kNotAnOption);
  sub->add_option("--ref", o->ref, "the gateway's transaction reference number")
      ->required()
      ->check(kNotAnOption);
  if (operation == Operation::kRefund) {
    sub->add_option("--amount", o->amount, "amount to refund, e.g. 3.00")->required();
  }
  sub->add_flag("--json", o->json, "print the record (or the error) as one JSON object");
  sub->add_option("--timeout", o->timeoutSeconds, "overall time limit in seconds (default 60)")
      ->check(CLI::Range(1L, 3600L));
  addGatewayOptions(*sub, o->gateway);
  return {sub, [o, operation] { return runManagement(*o, operation); }};
}

}  // namespace

std::vector<Command> addManagementCommands(CLI::App& app) {
  return {addManagement(app, Operation::kStatus, "ask the gateway for a transaction's status"),
          addManagement(app, Operation::kCancel, "cancel an authorised, uncaptured transaction"),
          addManagement(app, Operation::kRefund, "refund (part of) a captured transaction")};
}

}  // namespace ipg
