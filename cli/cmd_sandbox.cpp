// ipg sandbox: runs the local sandbox gateway in the foreground, with ipg-sandbox's flags.
#ifdef QIPG_HAVE_SANDBOX

#include <iostream>

#include "Command.h"
#include "Sandbox.h"

namespace ipg {
namespace {

int runSandbox(const Args& args) {
  return qipg::sandbox::runCommandLine(args, std::cout, std::cerr, "ipg sandbox");
}

const Registration reg{{"sandbox", "run the local sandbox gateway in the foreground",
                        qipg::sandbox::usage("ipg sandbox"), &runSandbox}};

}  // namespace
}  // namespace ipg

#endif  // QIPG_HAVE_SANDBOX
