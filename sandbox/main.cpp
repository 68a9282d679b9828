// ipg-sandbox: runs the sandbox gateway in the foreground.
#include <iostream>
#include <string>
#include <vector>

#include "Sandbox.h"

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  return qipg::sandbox::runCommandLine(args, std::cout, std::cerr, "ipg-sandbox");
}
