// ipg: the Quandrel IPG command-line tool.
#include <iostream>

#include "Command.h"
#include "Credentials.h"
#include "Output.h"
#include "qipg/Version.h"

namespace ipg {

std::string maskCardNumber(std::string_view cardNumber) {
  if (cardNumber.size() <= 4) return std::string(cardNumber.size(), '*');
  return std::string(cardNumber.size() - 4, '*') +
         std::string(cardNumber.substr(cardNumber.size() - 4));
}

}  // namespace ipg

int main(int argc, char** argv) {
  ipg::protectSecrets();
  CLI::App app(
      "Quandrel IPG command-line tool: payments, management calls and a local sandbox\n"
      "gateway for merchant developers.",
      "ipg");
  app.set_version_flag("--version", "ipg " QIPG_VERSION_STRING);
  app.require_subcommand(1);
  bool verbose = false;
  app.add_flag("-v,--verbose", verbose,
               "print each step of the library's calls and payment windows on standard error,\n"
               "one line each with timings (never a card number, CVV, key or message)");
  app.fallthrough();  // also after the command: ipg status -v ...
  std::vector<ipg::Command> commands = ipg::addManagementCommands(app);
  commands.push_back(ipg::addPayCommand(app));
  commands.push_back(ipg::addSandboxCommand(app));
  commands.push_back(ipg::addEnvelopeCommand(app));
  commands.push_back(ipg::addDemoCommand(app));
  commands.push_back(ipg::addJournalCommand(app));
  app.footer(
      "Exit status: 0 when the command did its work (a management call got a readable answer,\n"
      "whatever its statusCode), 1 when it could not, 2 for bad usage or input, 3 when no answer\n"
      "came (network, time-out, TLS), 4 for an answer that could not be read or an HTTP error,\n"
      "5 when a cancel, refund or payment may have taken effect although no answer says so:\n"
      "confirm with a status inquiry (ipg status) before retrying.\n"
      "Run `ipg COMMAND --help` for a command's options.\n");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? ipg::kExitOk : ipg::kExitUsage;
  }
  ipg::setVerbose(verbose);
  for (const ipg::Command& command : commands) {
    if (command.app->parsed()) return command.run();
  }
  return ipg::kExitUsage;
}
