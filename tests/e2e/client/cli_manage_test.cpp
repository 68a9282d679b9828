// `ipg status`, `ipg cancel` and `ipg refund` run as a user runs them, against the sandbox.
#include <sys/wait.h>

#include <fstream>
#include <sstream>

#include "e2e_support.h"

namespace qipg_e2e {
namespace {

class ManageCommandTest : public SandboxTest {
 protected:
  struct Outcome {
    int exitCode = -1;
    std::string out, err;
  };

  Outcome ipg(std::vector<std::string> args, bool withGateway) {
    if (withGateway) {
      args.insert(args.end(), {"--base-url", sandbox().baseURL(), "--ca-file", sandbox().caFile(),
                               "--mid", kMID});
    }
    const char* binDir = std::getenv("IPG_BIN_DIR");
    const std::filesystem::path program =
        (binDir != nullptr ? std::filesystem::path(binDir)
                           : std::filesystem::read_symlink("/proc/self/exe").parent_path()) /
        "ipg";
    std::string line = "QIPG_KEY=" + kKey + " '" + program.string() + "'";
    for (const std::string& arg : args) line += " '" + arg + "'";
    line += " </dev/null >'" + (dir() / "out").string() + "' 2>'" + (dir() / "err").string() + "'";
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read("out"), read("err")};
  }

  std::string read(const char* name) {
    std::ifstream in(dir() / name);
    std::stringstream all;
    all << in.rdbuf();
    return all.str();
  }
};

TEST_F(ManageCommandTest, PrintsTheRecordOrSaysWhatIsWrong) {
  const std::string ref = pay("CLI1", "10.50", 1).transactionReferenceNo().value_or("");
  ASSERT_FALSE(ref.empty());
  struct Row {
    std::vector<std::string> args;
    bool withGateway;
    int exitCode;
    std::vector<std::string> printed;  // parts of the standard output or, failing, the error
  };
  const std::vector<Row> rows = {
      {{"status", "--order", "CLI1", "--ref", ref},
       true,
       0,
       {"orderID: CLI1\n", "statusCode: S\n", "pgRefCancelReqID: (absent)\n"}},
      {{"status", "--order", "CLI1", "--ref", ref, "--json"},
       true,
       0,
       {"{\"transactionReferenceNo\":\"" + ref + "\",", "\"statusCode\":\"S\"",
        "\"refundAmount\":null"}},
      {{"refund", "--order", "CLI1", "--ref", ref, "--amount", "2.50"},
       true,
       0,
       {"statusCode: S\n"}},
      {{"cancel", "--order", "CLI1", "--ref", ref}, true, 0, {"statusCode: F\n"}},
      {{"status", "--order", "", "--ref", ref}, true, 1, {"ipg status: Invalid Order ID\n"}},
      {{"cancel", "--order", "CLI1", "--amount", "1"}, true, 2, {"--amount is for refunds only"}},
      {{"status", "--order", "CLI1", "--ref", ref}, false, 2, {"no gateway given"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.args[0] + " " + std::to_string(&row - rows.data()));
    const Outcome run = ipg(row.args, row.withGateway);
    EXPECT_EQ(run.exitCode, row.exitCode) << run.err;
    for (const std::string& part : row.printed) {
      EXPECT_NE((row.exitCode == 0 ? run.out : run.err).find(part), std::string::npos)
          << run.out << run.err;
    }
    EXPECT_EQ((run.out + run.err).find(kKey), std::string::npos);
  }
}

}  // namespace
}  // namespace qipg_e2e
