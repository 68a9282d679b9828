// ipg-sandbox: runs the sandbox gateway in the foreground.
#include <iostream>

#include "CommandLine.h"
#include "qipg/Version.h"

int main(int argc, char** argv) {
  CLI::App app;
  app.name("ipg-sandbox");
  app.set_version_flag("--version", "ipg-sandbox " QIPG_VERSION_STRING);
  const auto run = qipg::sandbox::defineCommandLine(app, std::cout, std::cerr, "ipg-sandbox");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }
  return run();
}
