// The ipg tool's commands. Each command file adds its subcommand to the tool's CLI11 app and
// returns what runs it once the arguments are parsed:
//
//   Command addStatusCommand(CLI::App& app);
//
// A runner returns the process's exit code (see the Exit constants).
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qipg/Client.h"

namespace ipg {

// Exit codes shared by the commands.
inline constexpr int kExitOk = 0;          // done; a readable answer came back
inline constexpr int kExitFailed = 1;      // the command could not do its work
inline constexpr int kExitUsage = 2;       // bad usage or input
inline constexpr int kExitNetwork = 3;     // no answer: network, time-out, TLS, cancelled
inline constexpr int kExitUnreadable = 4;  // an answer that could not be read, or HTTP error
// A cancel, refund or payment that may have taken effect although no answer says so: confirm
// with a status inquiry before retrying.
inline constexpr int kExitOutcomeUnknown = 5;

struct Command {
  CLI::App* app = nullptr;   // the subcommand
  std::function<int()> run;  // runs it once parsed
};

Command addPayCommand(CLI::App& app);
std::vector<Command> addManagementCommands(CLI::App& app);  // status, cancel, refund
Command addSandboxCommand(CLI::App& app);
Command addEnvelopeCommand(CLI::App& app);
Command addDemoCommand(CLI::App& app);
Command addJournalCommand(CLI::App& app);

struct GatewayOptions;
// A client of the gateway and merchant that `options` name, with an overall time limit per
// call and the outcome journal at `journal` (none when empty). Errors: Config.
qipg::Result<std::shared_ptr<qipg::Client>> makeClient(const GatewayOptions& options,
                                                       long timeoutSeconds,
                                                       const std::string& journal);

// Refuses an option's value that is another option ("--order --ref 1": --order needs a value).
inline const CLI::Validator kNotAnOption(
    [](std::string& value) {
      return value.rfind("--", 0) == 0 ? "needs a value, not the option " + value : std::string();
    },
    "");

// Masks all but the last four characters of a card number.
std::string maskCardNumber(std::string_view cardNumber);

}  // namespace ipg
