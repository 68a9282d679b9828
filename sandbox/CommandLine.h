// The command line of ipg-sandbox and of `ipg sandbox`: one definition, so both programs take
// the same options and print the same help.
//
// Not thread-safe: define, parse and run on one thread.
#pragma once

#include <functional>
#include <ostream>
#include <string>

namespace CLI {
class App;
}

namespace qipg::sandbox {

// Adds the sandbox's options and its `fault ENDPOINT KIND` subcommand to `app`. The returned
// function, called once `app` has parsed the arguments, does what they ask: runs a sandbox in
// the foreground until SIGINT or SIGTERM, or sets a fault on the running one. Its result is the
// exit code: 0 after a clean stop or a fault set, 1 when the sandbox cannot start or the fault
// cannot be set, 2 on a bad value. `out` gets the base URL and CA file (or the --ready-json or
// --print-env lines); `err` gets one line per request and the messages, each after `program`.
std::function<int()> defineCommandLine(CLI::App& app, std::ostream& out, std::ostream& err,
                                       const std::string& program);

// ipg-sandbox's whole program: its command line (with --version) parsed from `argv` and run;
// the result is the exit code above.
int runProgram(int argc, char** argv);

}  // namespace qipg::sandbox
