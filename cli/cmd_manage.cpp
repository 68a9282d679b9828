// ipg status | cancel | refund: ask the gateway about a transaction, cancel it or refund it,
// through the library's own management operations, and print the record that comes back.
#include <signal.h>

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

int exitCodeOf(const ErrorReport& error) {
  if (error.outcomeUnknown) return kExitOutcomeUnknown;
  if (error.kind == "Input" || error.kind == "Config") return kExitUsage;
  if (error.kind == "Journal") return kExitFailed;
  if (error.kind == "Http" || error.kind == "Unreadable") return kExitUnreadable;
  return kExitNetwork;
}

int fail(const std::string& command, const ErrorReport& error, bool json) {
  printError(std::cout, std::cerr, command, error, json);
  return exitCodeOf(error);
}

int fail(const std::string& command, const qipg::Error& error, bool json) {
  return fail(command, errorReport(error), json);
}

// SIGINT and SIGTERM are blocked in this thread and so in every thread started later (the
// client's), and taken only here by sigtimedwait: no handler runs, so nothing has to be
// async-signal-safe. They stay blocked until the process ends, once the report is out.
class InterruptSignals {
 public:
  InterruptSignals() {
    sigemptyset(&set_);
    sigaddset(&set_, SIGINT);
    sigaddset(&set_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set_, nullptr);
  }
  // The signal taken within `wait`; 0 when none came.
  int take(std::chrono::milliseconds wait) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(wait);
    const timespec timeout{static_cast<time_t>(seconds.count()),
                           static_cast<long>((wait - seconds).count() * 1000000)};
    const int signal = sigtimedwait(&set_, nullptr, &timeout);
    return signal > 0 ? signal : 0;
  }

 private:
  sigset_t set_;
};

ErrorReport interrupted(Operation operation, int signal) {
  ErrorReport error{"Cancelled",
                    std::string("interrupted by ") + (signal == SIGINT ? "SIGINT" : "SIGTERM") +
                        " while waiting for the gateway's answer",
                    false, std::nullopt};
  if (operation != Operation::kStatus) {
    error.outcomeUnknown = true;
    error.message += std::string("; the ") + nameOf(operation) +
                     " may still have taken effect at the gateway, so confirm with a status "
                     "inquiry before retrying";
  }
  return error;
}

int runManagement(const ManageOptions& o, Operation operation) {
  const std::string command = nameOf(operation);
  InterruptSignals signals;  // before the client starts its threads
  qipg::Result<std::shared_ptr<qipg::Client>> made = makeClient(
      o.gateway, o.timeoutSeconds, operation != Operation::kStatus ? journalPath(o.gateway) : "");
  if (!made) return fail(command, made.error(), o.json);
  const std::shared_ptr<qipg::Client>& client = made.value();
  if (client->journal() && !client->journal()->notice().empty()) {
    std::cerr << "ipg " << command << ": " << client->journal()->notice() << "\n";
  }

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
  const auto ready = [&answer] {
    return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  };
  int signal = 0;
  {
    // The client ends the call at the time limit; past it (and a grace), shutting the client
    // down completes the call.
    Spinner spinner;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(o.timeoutSeconds + 5);
    while (!ready() && signal == 0) {
      signal = signals.take(std::chrono::milliseconds(100));
      if (std::chrono::steady_clock::now() > end) client->shutdown();
      spinner.tick();
    }
  }
  if (!ready()) {
    // Interrupted: the request may have left already, and its answer will never be read.
    client->shutdown();
    return fail(command, interrupted(operation, signal), o.json);
  }
  const qipg::Result<qipg::PaymentResponse> result = answer.get();
  client->shutdown();
  if (!result) return fail(command, result.error(), o.json);
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
      "ShutDown); 4 an answer that could not be read (Unreadable) or an HTTP error (Http);\n"
      "5 a cancel or refund that may have taken effect although no usable answer came (lost\n"
      "after it was sent, or ipg interrupted by SIGINT or SIGTERM): confirm with ipg status\n"
      "before trying again. Errors print as \"ipg COMMAND: KIND: MESSAGE\" on standard error,\n"
      "or with --json as {\"error\": {\"kind\": ..., \"message\": ..., \"outcomeUnknown\":\n"
      "true|false}} on standard output, with \"httpStatus\" for an HTTP error.\n"
      "Cancels and refunds are written to the outcome journal before they are sent (1 when\n"
      "it cannot take them: nothing was sent); see ipg journal.\n"
      "While a call waits longer than a second, a spinner shows on a terminal.\n");
  sub->add_option("--order", o->order, "order ID of the transaction")
      ->required()
      ->check(kNotAnOption);
  sub->add_option("--ref", o->ref, "the gateway's transaction reference number (default empty)")
      ->required(operation != Operation::kStatus)
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

qipg::Result<std::shared_ptr<qipg::Client>> makeClient(const GatewayOptions& o,
                                                       long timeoutSeconds,
                                                       const std::string& journal) {
  std::string error;
  std::optional<Gateway> gateway = resolveGateway(o, error);
  MerchantCredentials credentials;
  if (!gateway || !merchantCredentials(o, credentials, error)) {
    return qipg::Error{qipg::ErrorKind::Config, error, {}, {}, false};
  }
  qipg::ClientOptions options;
  options.environment = gateway->environment == qipg::IPGEnvironmentTest
                            ? qipg::Environment::Test
                            : qipg::Environment::Production;
  options.gateway = gateway->config;
  options.gateway.requestTimeoutMs = timeoutSeconds * 1000;
  options.merchantID = credentials.mid.value_or("");
  options.encryptionKey = credentials.key.value_or("");
  options.journalPath = journal;
  options.eventHook = verboseHook();
  qipg::Result<std::shared_ptr<qipg::Client>> made = qipg::Client::create(options);
  wipe(options.encryptionKey);
  return made;
}

std::vector<Command> addManagementCommands(CLI::App& app) {
  return {addManagement(app, Operation::kStatus, "ask the gateway for a transaction's status"),
          addManagement(app, Operation::kCancel, "cancel an authorised, uncaptured transaction"),
          addManagement(app, Operation::kRefund, "refund (part of) a captured transaction")};
}

}  // namespace ipg
