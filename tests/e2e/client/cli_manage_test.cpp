// `ipg status`, `ipg cancel` and `ipg refund` run as a user runs them, against the sandbox.
#include "e2e_support.h"

namespace qipg_e2e {
namespace {

using ManageCommandTest = SandboxTest;

TEST_F(ManageCommandTest, PrintsTheRecordOrSaysWhatIsWrong) {
  const std::string ref = pay("CLI1", "10.50", 1).transactionReferenceNo().value_or("");
  ASSERT_FALSE(ref.empty());
  struct Row {
    std::vector<std::string> args;
    int exitCode;
    std::vector<std::string> printed;  // parts of the standard output or, failing, the error
    bool withGateway = true;
  };
  const std::vector<std::string> status = {"status", "--order", "CLI1", "--ref", ref};
  const std::vector<Row> rows = {
      {status, 0, {"orderID: CLI1\n", "statusCode: S\n", "pgRefCancelReqID: (absent)\n"}},
      {{"status", "--order", "CLI1", "--ref", ref, "--json"}, 0,
       {"{\"transactionReferenceNo\":\"" + ref + "\",", "\"statusCode\":\"S\"",
        "\"refundAmount\":null"}},
      {{"refund", "--order", "CLI1", "--ref", ref, "--amount", "2.50"}, 0, {"statusCode: S\n"}},
      {{"cancel", "--order", "CLI1", "--ref", ref}, 0, {"statusCode: F\n"}},
      {{"status", "--order", "", "--ref", ref}, 1, {"ipg status: Invalid Order ID\n"}},
      {{"cancel", "--order", "CLI1", "--amount", "1"}, 2, {"--amount is for refunds only"}},
      {status, 2, {"no gateway given"}, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.args[0] + " " + std::to_string(&row - rows.data()));
    std::vector<std::string> args = row.args;
    if (row.withGateway) {
      args.insert(args.end(), {"--base-url", sandbox().baseURL(), "--ca-file", sandbox().caFile(),
                               "--mid", kMID});
    }
    std::string line = "QIPG_KEY=" + kKey + " " + qipg_test::quoted(qipg_test::ipgProgram().string());
    for (const std::string& arg : args) line += " " + qipg_test::quoted(arg);
    const qipg_test::ProcessRun run = shell(line);
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
