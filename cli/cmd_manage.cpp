// ipg status | cancel | refund: ask the gateway about a transaction, cancel it or refund it,
// through the library's own management operations, and print the record that comes back.
#include <chrono>
#include <future>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "Command.h"
#include "Credentials.h"
#include "Output.h"
#include "Spinner.h"
#include "qipg/Client.h"
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

int exitCodeOf(qipg::ErrorKind kind) {
  switch (kind) {
    case qipg::ErrorKind::Input:
    case qipg::ErrorKind::Config:
      return kExitUsage;
    case qipg::ErrorKind::Http:
    case qipg::ErrorKind::Unreadable:
      return kExitUnreadable;
    case qipg::ErrorKind::Network:
    case qipg::ErrorKind::Timeout:
    case qipg::ErrorKind::Tls:
    case qipg::ErrorKind::Cancelled:
    case qipg::ErrorKind::ShutDown:
      break;
  }
  return kExitNetwork;
}

int fail(const std::string& command, qipg::ErrorKind kind, const std::string& message, bool json) {
  printError(std::cout, std::cerr, command, std::string(qipg::errorKindName(kind)), message, json);
  return exitCodeOf(kind);
}

int runManagement(const ManageOptions& o, Operation operation) {
  const std::string command = nameOf(operation);
  std::string error;
  std::optional<Gateway> gateway = resolveGateway(o.gateway, error);
  MerchantCredentials credentials;
  if (!gateway || !merchantCredentials(o.gateway, credentials, error)) {
    return fail(command, qipg::ErrorKind::Config, error, o.json);
  }
  qipg::ClientOptions options;
  options.environment = gateway->environment == qipg::IPGEnvironmentTest
                            ? qipg::Environment::Test
                            : qipg::Environment::Production;
  options.gateway = gateway->config;
  options.gateway.requestTimeoutMs = o.timeoutSeconds * 1000;
  options.merchantID = credentials.mid.value_or("");
  options.encryptionKey = credentials.key.value_or("");
  qipg::Result<std::shared_ptr<qipg::Client>> made = qipg::Client::create(options);
  wipe(options.encryptionKey);
  if (!made) return fail(command, made.error().kind, made.error().message, o.json);
  const std::shared_ptr<qipg::Client>& client = made.value();

  std::future<qipg::Result<qipg::PaymentResponse>> answer;
  switch (operation) {
    case Operation::kStatus:
      answer = client->status({.orderID = o.order, .transactionRefNumber = o.ref});
      break;
    case Operation::kCancel:
      answer = client->cancel({.orderID = o.order, .transactionRefNumber = o.ref});
      break;
    case Operation::kRefund:
      answer =
          client->refund({.orderID = o.order, .transactionRefNumber = o.ref, .amount = o.amount});
      break;
  }
  {
    // The client ends the call at the time limit; past it (and a grace), shutting the client
    // down completes the call.
    Spinner spinner;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(o.timeoutSeconds + 5);
    while (answer.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
      if (std::chrono::steady_clock::now() > end) client->shutdown();
      spinner.tick();
    }
  }
  const qipg::Result<qipg::PaymentResponse> result = answer.get();
  client->shutdown();
  if (!result) return fail(command, result.error().kind, result.error().message, o.json);
  printRecord(std::cout, result.value(), o.json);
  return std::cout.flush() ? kExitOk : kExitFailed;
}

Command addManagement(CLI::App& app, Operation operation, const std::string& summary) {
  auto o = std::make_shared<ManageOptions>();
  CLI::App* sub = app.add_subcommand(nameOf(operation), summary);
  sub->footer(
      "Prints the record of the gateway's answer, one \"property: value\" line each\n"
      "(\"(absent)\" for an absent value), or one JSON object with --json (null for absent).\n"
      "A statusCode F is the gateway's verdict, with its reason in statusDescription.\n"
      "Exit status: 0 a readable answer came back; 2 bad usage or input, or an unusable\n"
      "configuration (nothing was sent); 3 no answer (Network, Timeout, Tls, Cancelled,\n"
      "ShutDown); 4 an answer that could not be read (Unreadable) or an HTTP error (Http).\n"
      "After a 3 or 4 from cancel or refund the operation may have been applied: check with\n"
      "ipg status before trying again. Errors print as \"ipg COMMAND: KIND: MESSAGE\" on standard "
      "error, or with --json\n"
      "as {\"error\": {\"kind\": ..., \"message\": ...}} on standard output.\n"
      "While a call waits longer than a second, a spinner shows on a terminal.\n");
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
