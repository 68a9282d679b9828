// Hosts that end while calls are in flight: a client or a QuandrelIPG in a global, the process
// ended by returning from main, by std::exit, or by the last reference dropped in a callback.
// Each mode runs many times (QIPG_EXIT_RUNS, 25 by default); every run must end by itself
// with status 0: no crash, no hang, no sanitizer report.
#include <cstdlib>

#include "e2e/client/E2eSupport.h"

namespace qipg_e2e {
namespace {

class ExitTest : public SandboxTest {};

TEST_F(ExitTest, HostsEndingWithCallsInFlightExitCleanly) {
  const char* runsSetting = std::getenv("QIPG_EXIT_RUNS");
  const int runs = runsSetting != nullptr ? std::atoi(runsSetting) : 25;
  const std::string host = (qipg_test::ipgProgram().parent_path() / "exit_host").string();
  for (const char* mode : {"main", "exit", "callback", "ipg-main", "ipg-exit"}) {
    // One shell loop per mode; it prints the exit status of every run that failed.
    const std::string loop = "for i in $(seq " + std::to_string(runs) + "); do timeout 30 " +
                             qipg_test::quoted(host) + " " + mode + " " +
                             qipg_test::quoted(sandbox().baseURL()) + " " +
                             qipg_test::quoted(sandbox().caFile()) +
                             " 2>>" + qipg_test::quoted((dir() / "host-errors").string()) +
                             " || echo \"$?\"; done";
    const qipg_test::ProcessRun run = shell(loop);
    EXPECT_EQ(run.out, "") << mode << ": exit statuses of failed runs (124: hung)\n"
                           << qipg_test::readFile(dir() / "host-errors");
  }
}

}  // namespace
}  // namespace qipg_e2e
