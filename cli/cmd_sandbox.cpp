// ipg sandbox: runs the local sandbox gateway in the foreground, with ipg-sandbox's options.
#include <iostream>

#include "Command.h"
#include "CommandLine.h"

namespace ipg {

Command addSandboxCommand(CLI::App& app) {
  CLI::App* sub = app.add_subcommand("sandbox", "run the local sandbox gateway in the foreground");
  return {sub, qipg::sandbox::defineCommandLine(*sub, std::cout, std::cerr, "ipg sandbox")};
}

}  // namespace ipg
