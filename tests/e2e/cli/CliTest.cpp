// The ipg tool and ipg-sandbox run as a merchant's CI runs them: a sandbox started with
// --ready-json and found through its "running" file, scripted payments with the named test
// cards, faults set from the command line, and card data kept out of the process list.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "e2e/client/E2eSupport.h"

extern char** environ;

namespace qipg_e2e {
namespace {

using qipg_test::ProcessRun;
using qipg_test::quoted;
using qipg_test::ScopedEnv;

std::string program(const char* name) {
  return (qipg_test::ipgProgram().parent_path() / name).string();
}

// A process started with posix_spawn, its standard output on a pipe; stopped with SIGTERM.
class Child {
 public:
  explicit Child(const std::vector<std::string>& argv) {
    int out[2];
    if (::pipe(out) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    if (posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    out_ = ::fdopen(out[0], "r");
    // Unbuffered, so that line() can wait on the pipe itself.
    if (out_ != nullptr) std::setvbuf(out_, nullptr, _IONBF, 0);
  }
  ~Child() {
    if (pid_ > 0) ::kill(pid_, SIGTERM);
    wait();
    if (out_ != nullptr) std::fclose(out_);
  }
  pid_t pid() const { return pid_; }
  // The next line of its standard output; empty when none comes within 30 seconds.
  std::string line() {
    char buffer[4096];
    pollfd ready{out_ != nullptr ? ::fileno(out_) : -1, POLLIN, 0};
    return out_ != nullptr && ::poll(&ready, 1, 30000) == 1 &&
                   std::fgets(buffer, sizeof buffer, out_)
               ? buffer
               : "";
  }
  int wait() {
    int status = 0;
    if (pid_ > 0 && ::waitpid(pid_, &status, 0) == pid_) pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  FILE* out_ = nullptr;
};

class CliTest : public qipg_test::ClientTest {
 protected:
  void SetUp() override {
    ClientTest::SetUp();
    for (const auto& [name, value] :
         {std::pair<const char*, std::string>{"XDG_DATA_HOME", (dir() / "xdg").string()},
          {"XDG_STATE_HOME", (dir() / "state").string()},
          {"QIPG_MID", kMID},
          {"QIPG_KEY", kKey}}) {
      env_.push_back(std::make_unique<ScopedEnv>(name, value));
    }
    env_.push_back(std::make_unique<ScopedEnv>("QIPG_SANDBOX_DIR", std::nullopt));
  }
  void TearDown() override {
    sandbox_.reset();
    env_.clear();
    ClientTest::TearDown();
  }

  // Starts ipg-sandbox in its default data directory with --ready-json and `extra`.
  nlohmann::json startSandbox(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> argv = {program("ipg-sandbox"), "--port", "0", "--ready-json"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    sandbox_ = std::make_unique<Child>(argv);
    return nlohmann::json::parse(sandbox_->line(), nullptr, false);
  }

  // Runs ipg; one that has not ended after a minute is stopped (exit code 124).
  ProcessRun ipg(const std::vector<std::string>& args, const std::string& input = "") {
    std::string line = "timeout 60 " + quoted(program("ipg"));
    for (const std::string& arg : args) line += " " + quoted(arg);
    return shell(line, input);
  }

  // Pays `order` with the test card by the card form; its transaction reference number.
  std::string pay(const std::string& order, const std::string& amount) {
    const ProcessRun run = ipg({"pay", "--standard", "--order", order, "--amount", amount,
                                "--test-card", "approve", "--no-window", "--json"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    return nlohmann::json::parse(run.out, nullptr, false).value("transactionReferenceNo", "");
  }

  // Whether the gateway's status of `order` shows `code`.
  bool hasStatus(const std::string& order, const std::string& code) {
    return ipg({"status", "--order", order}).out.find("statusCode: " + code + "\n") !=
           std::string::npos;
  }

  // Asks `done` until it says yes; false after a minute, however long each answer takes.
  static bool eventually(const std::function<bool()>& done) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (std::chrono::steady_clock::now() < until) {
      if (done()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return false;
  }

  // Whether the sandbox holds one request of `endpoint`, whose fault `kind` (a hang or a delay)
  // is set again, which changes nothing.
  bool holdsOne(const std::string& endpoint, const std::string& kind = "hang") {
    return ipg({"sandbox", "fault", endpoint, kind}).out == endpoint + ": " + kind + " (1 held)\n";
  }

  std::unique_ptr<Child> sandbox_;
  std::vector<std::unique_ptr<ScopedEnv>> env_;
};

TEST_F(CliTest, ScriptedPaymentsGiveEachTestCardsResult) {
  const nlohmann::json ready = startSandbox();
  ASSERT_TRUE(ready.is_object());
  EXPECT_EQ(ready["mid"], kMID);
  EXPECT_EQ(ready["baseURL"],
            "https://127.0.0.1:" + std::to_string(ready["port"].get<int>()) + "/ipg/");
  EXPECT_EQ(ready["caFile"], (dir() / "xdg/qipg/sandbox/ca.pem").string());
  const std::string other = (dir() / "other").string();
  Child printEnv({program("ipg-sandbox"), "--port", "0", "--print-env", "--data-dir", other});
  for (const std::string& variable : std::vector<std::string>{
           "QIPG_TEST_BASE_URL='https://127.0.0.1:", "QIPG_CA_FILE='", "QIPG_MID='QIPGTEST0001'",
           "QIPG_KEY='" + kKey, "QIPG_SANDBOX_DIR='" + other + "'"}) {
    EXPECT_EQ(printEnv.line().rfind("export " + variable, 0), 0u) << variable;
  }
  {
    // Every command finds the sandbox that QIPG_SANDBOX_DIR names, the fault command included.
    ScopedEnv named("QIPG_SANDBOX_DIR", other);
    EXPECT_EQ(ipg({"sandbox", "fault", "status", "http500"}).exitCode, 0);
    EXPECT_EQ(ipg({"status", "--order", "O1", "--ref", "1"}).exitCode, 4);
    EXPECT_EQ(ipg({"sandbox", "fault", "status", "none"}).exitCode, 0);
  }
  int order = 0;
  for (const qipg::sandbox::TestCard& card : qipg::sandbox::testCards()) {
    for (const char* flow : {"--standard", "--card"}) {
      SCOPED_TRACE(std::string(card.name) + " " + flow);
      const ProcessRun run =
          ipg({"pay", flow, "--order", "TC" + std::to_string(++order), "--amount", "12.00",
               "--test-card", card.name, "--no-window", "--json"});
      EXPECT_EQ(run.exitCode, 0) << run.err;
      const nlohmann::json record = nlohmann::json::parse(run.out, nullptr, false);
      EXPECT_EQ(record.value("statusCode", ""), card.statusCode) << run.out;
      EXPECT_EQ(record.value("statusDescription", ""), card.description);
      EXPECT_EQ((run.out + run.err).find(card.number), std::string::npos);
    }
  }
}

TEST_F(CliTest, FaultsSetFromTheCommandLineReachIpgStatus) {
  const std::string gateway = startSandbox({"--fault", "cancel=http500"}).value("baseURL", "");
  const std::string ref = pay("F1", "10.50");
  const std::string magicRef = pay("F2", "7.92");   // magic: its management answers are HTTP 500
  const std::string closedRef = pay("F3", "7.93");  // and here the connection is closed
  const std::filesystem::path wrongKey = dir() / "wrong-key";
  writeFile(wrongKey, "notTheMerchantsKey0123456789ABCD\n");
  ::chmod(wrongKey.c_str(), 0600);
  struct Row {
    std::string fault;  // set on status first; empty: none
    std::vector<std::string> args;
    int exitCode;
    std::string verdict;  // the statusCode, or the error's kind
    std::string text;     // the statusDescription or the error's message; empty: not checked
    bool outcomeUnknown = false;  // of an error
  };
  const std::vector<std::string> status = {"status", "--order", "F1", "--ref", ref};
  const std::vector<Row> rows = {
      {"", status, 0, "S", "Captured"},
      {"",
       {"refund", "--order", "F1", "--ref", ref, "--amount", "2.50"},
       0,
       "S",
       "Refund of 2.50 INR accepted; 8.00 INR left to refund"},
      {"", {"cancel", "--order", "F1", "--ref", ref}, 5, "Http", "", true},  // --fault at start
      {"", {"status", "--order", "F2", "--ref", magicRef}, 4, "Http", ""},
      {"",
       {"refund", "--order", "F3", "--ref", closedRef, "--amount", "1.00"},
       5,
       "Network",
       "",
       true},
      {"",
       {"status", "--order", "F1", "--ref", ref, "--key-file", wrongKey.string()},
       4,
       "Unreadable",
       "the answer could not be opened with this merchant key (wrong key?)"},
      {"http500", status, 4, "Http",
       "the gateway at " + gateway + " answered with HTTP 500: Internal Server Error"},
      {"close", status, 3, "Network", ""},
      {"hang", {"status", "--order", "F1", "--ref", ref, "--timeout", "1"}, 3, "Timeout", ""},
      {"delay=1200", status, 0, "R", "Partially refunded: 2.50 of 10.50 INR"},
      {"none", {"status", "--order", "NOPE", "--ref", "1"}, 0, "F", "Transaction not found"},
      {"", {"status", "--order", "F1"}, 0, "R", "Partially refunded: 2.50 of 10.50 INR"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.fault + " " + row.args[0] + " " + row.args[2]);
    if (!row.fault.empty()) {
      const ProcessRun set = ipg({"sandbox", "fault", "status", row.fault});
      ASSERT_EQ(set.exitCode, 0) << set.err;
      EXPECT_EQ(set.out.rfind("status: " + row.fault, 0), 0u) << set.out;  // then what it holds
    }
    std::vector<std::string> args = row.args;
    args.push_back("--json");
    const ProcessRun run = ipg(args);
    EXPECT_EQ(run.exitCode, row.exitCode) << run.err;
    const nlohmann::json out = nlohmann::json::parse(run.out, nullptr, false);
    const bool error = out.contains("error");
    EXPECT_EQ((error ? out["error"] : out).value(error ? "kind" : "statusCode", ""), row.verdict)
        << run.out;
    if (!row.text.empty()) {
      EXPECT_EQ((error ? out["error"] : out).value(error ? "message" : "statusDescription", ""),
                row.text);
    }
    if (error) {
      EXPECT_EQ(out["error"].value("outcomeUnknown", !row.outcomeUnknown), row.outcomeUnknown);
      EXPECT_EQ(out["error"].contains("httpStatus"), row.verdict == "Http");
    }
  }
}

TEST_F(CliTest, CardDataAndKeysStayOutOfTheProcessList) {
  startSandbox({"--fault", "invoice=hang"});
  const std::filesystem::path cardFile = dir() / "card";
  writeFile(cardFile, "5555555555554444\n1239\n987\nJane Doe\n");
  ::chmod(cardFile.c_str(), 0600);
  for (const auto& [name, value] :
       {std::pair<const char*, const char*>{"QIPG_CARD_NUMBER", "5555555555554444"},
        {"QIPG_CARD_EXPIRY", "1239"},
        {"QIPG_CARD_CVV", "987"},
        {"QIPG_CARD_HOLDER", "Jane Doe"}}) {
    env_.push_back(std::make_unique<ScopedEnv>(name, value));
  }
  const std::vector<std::vector<std::string>> commands = {
      {"--standard", "--order", "P1", "--test-card", "approve-mc"},
      {"--card", "--order", "P2", "--card-file", cardFile.string()},
      {"--card", "--order", "P3"},  // from QIPG_CARD_*
  };
  std::vector<std::unique_ptr<Child>> payments;
  for (const auto& command : commands) {
    std::vector<std::string> argv = {program("ipg"), "pay",         "--amount",
                                     "3.00",         "--no-window", "--json"};
    argv.insert(argv.end(), command.begin(), command.end());
    payments.push_back(std::make_unique<Child>(argv));
    // The sandbox holds it at the final page, so it is still running when this reads.
    const std::string proc = "/proc/" + std::to_string(payments.back()->pid()) + "/cmdline";
    std::string cmdline;
    for (int i = 0; i < 1000 && cmdline.empty(); ++i) {
      cmdline = qipg_test::readFile(proc);
      if (cmdline.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_NE(cmdline.find("--no-window"), std::string::npos)
        << command[0] << " [" << cmdline << "]";
    for (const std::string secret : {"5555555555554444", "987", kKey.c_str()}) {
      EXPECT_EQ(cmdline.find(secret), std::string::npos) << secret;
    }
    // Nor in what a process it starts would inherit (its environment is wiped and emptied of
    // them; unreadable to this user is fine too), nor in a core file. Polled: this may read
    // before the program's first lines have run.
    const std::string pid = "/proc/" + std::to_string(payments.back()->pid());
    std::vector<std::string> seen;
    std::string core;
    for (int i = 0; i < 500 && (i == 0 || !seen.empty() || core != "0 0"); ++i) {
      if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
      const std::string environment = qipg_test::readFile(pid + "/environ");
      seen.clear();
      for (const std::string& secret : std::vector<std::string>{
               "QIPG_CARD_NUMBER=5555555555554444", "QIPG_CARD_CVV=987", "QIPG_KEY=" + kKey}) {
        if (environment.find(secret) != std::string::npos) seen.push_back(secret);
      }
      const std::string limits = qipg_test::readFile(pid + "/limits");
      std::istringstream line(
          limits.substr(std::min(limits.find("Max core file size"), limits.size())));
      std::string word, soft, hard;
      line >> word >> word >> word >> word >> soft >> hard;
      core = soft + " " + hard;
    }
    EXPECT_EQ(seen, std::vector<std::string>{}) << command[0];
    EXPECT_EQ(core, "0 0") << command[0];
  }
  ASSERT_EQ(ipg({"sandbox", "fault", "invoice", "none"}).exitCode, 0);
  for (auto& payment : payments) {
    EXPECT_NE(payment->line().find("\"statusCode\":\"S\""), std::string::npos);
    EXPECT_EQ(payment->wait(), 0);
  }
}

// -v prints each step as "* event=... key=value...", with known keys only (so no message,
// envelope or card field can ride along), for payments with and without a card form and for
// management calls, and never a card number or key.
TEST_F(CliTest, VerboseShowsEveryStepAndNeverASecret) {
  startSandbox();
  std::mt19937_64 random(std::random_device{}());
  const std::string card = randomCardNumber(random);
  for (const auto& [name, value] : {std::pair<const char*, std::string>{"QIPG_CARD_NUMBER", card},
                                    {"QIPG_CARD_EXPIRY", "1239"},
                                    {"QIPG_CARD_CVV", randomDigits(random, 3)},
                                    {"QIPG_CARD_HOLDER", "Jane Doe"}}) {
    env_.push_back(std::make_unique<ScopedEnv>(name, value));
  }
  std::string err;
  const ProcessRun paid = ipg({"-v", "pay", "--standard", "--order", "V1", "--amount", "4.00",
                               "--test-card", "approve", "--no-window", "--json"});
  ASSERT_EQ(paid.exitCode, 0) << paid.err;
  const std::string ref =
      nlohmann::json::parse(paid.out, nullptr, false).value("transactionReferenceNo", "");
  err += paid.err;
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"-v", "pay", "--card", "--order", "V2", "--amount", "2.00",
                                 "--no-window"},
        {"-v", "refund", "--order", "V1", "--ref", ref, "--amount", "1.00"},
        {"status", "--order", "V1", "--verbose"}}) {
    const ProcessRun run = ipg(args);
    EXPECT_EQ(run.exitCode, 0) << args[1] << run.err;
    err += run.err;
  }
  const std::string key = randomKey(random);
  env_.push_back(std::make_unique<ScopedEnv>("QIPG_KEY", key));
  const ProcessRun wrongKey = ipg({"-v", "cancel", "--order", "V1", "--ref", ref});
  EXPECT_NE(wrongKey.exitCode, 0);
  err += wrongKey.err;

  const std::regex line(R"(\* event=([a-z-]+)( (call|operation|order|ref|base|elapsedUs|bytes|)"
                        R"(http|status|error|outcomeUnknown)=("[^"]*"|[^ "]+))*)");
  std::set<std::string> kinds;
  std::istringstream lines(err);
  for (std::string text; std::getline(lines, text);) {
    std::smatch match;
    if (text.rfind("* ", 0) != 0) continue;
    EXPECT_TRUE(std::regex_match(text, match, line)) << text;
    if (!match.empty()) kinds.insert(match[1]);
  }
  EXPECT_EQ(kinds, (std::set<std::string>{"window-opened", "page-loaded", "final-page-read",
                                          "call-started", "request-sent", "answer-received",
                                          "call-ended"}));
  for (const std::string& secret : {card, kKey, key}) {
    EXPECT_EQ(err.find(secret), std::string::npos) << secret;
  }
}

TEST_F(CliTest, RefusesWhatItMustNotDo) {
  const std::filesystem::path open = dir() / "open-card", fifo = dir() / "fifo";
  writeFile(open, "4111111111111111\n1239\n123\nJane Doe\n");
  ::chmod(open.c_str(), 0644);
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);  // read without a writer, it would wait forever
  const std::string remote = "https://gateway.example/ipg/";
  const std::string help = "Run with --help for more information.\n";
  const struct {
    std::vector<std::string> args;
    std::string input;
    int exitCode;
    std::string err;
  } rows[] = {
      {{"pay", "--card", "--order", "R1", "--amount", "1", "--card-file", open.string()},
       "",
       2,
       "ipg pay: the card file " + open.string() +
           " is readable by others (mode 0644); make it owner-only: chmod 600\n"},
      {{"pay", "--card", "--order", "R1", "--amount", "1", "--card-file", fifo.string()},
       "",
       2,
       "ipg pay: the card file " + fifo.string() + " is not a regular file; refusing it\n"},
      {{"pay", "--card", "--order", "R1", "--amount", "1", "--test-card", "approve", "--base-url",
        remote},
       "",
       2,
       "ipg pay: test cards are for a sandbox on this machine, not " + remote + "\n"},
      {{"pay", "--standard", "--order", "R1", "--amount", "1", "--card-stdin", "--no-window",
        "--base-url", remote},
       "4111111111111111\n1239\n123\nJane\n",
       1,
       "ipg pay: a payment without a window is for a test gateway on this machine only, not " +
           remote + "doMEPayRequest\n"},
      {{"pay", "--card", "--order", "R1", "--amount", "1", "--test-card", "visa"},
       "",
       2,
       "ipg pay: no test card \"visa\" (approve, approve-mc, decline, gateway-error, unknown, "
       "invalid-number, expired)\n"},
      {{"pay", "--order", "R1"}, "", 2, "--standard or --card is required\n" + help},
      {{"status", "--order", "--ref", "1"},
       "",
       2,
       "--order: needs a value, not the option --ref\n" + help},
      {{"status", "--order", "A-1", "--ref", "1", "--base-url", remote},
       "",
       2,
       "ipg status: Input: Invalid Order ID Input\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.args[0] + " " + row.args.back());
    const ProcessRun run = ipg(row.args, row.input);
    EXPECT_EQ(run.exitCode, row.exitCode);
    EXPECT_EQ(run.err, row.err);
    EXPECT_EQ(run.out.find("4111111111111111"), std::string::npos);
  }

  // A planted "running" is ignored with a warning; a linked key file is refused by name.
  const std::filesystem::path planted = dir() / "planted", link = dir() / "key-link";
  std::filesystem::create_directory(planted);
  std::filesystem::permissions(planted, std::filesystem::perms::owner_all);
  std::filesystem::create_symlink(open, planted / "running");
  std::filesystem::create_symlink(open, link);
  ScopedEnv named("QIPG_SANDBOX_DIR", planted.string());
  const ProcessRun run =
      ipg({"status", "--order", "A1", "--ref", "1", "--key-file", link.string()});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.err, "ipg: warning: ignoring " + (planted / "running").string() +
                         ": it is a symbolic link\nipg status: Config: the key file " +
                         link.string() + " is a symbolic link; refusing it\n");
}

// A payment's outcome as a script reads it: exit 0 only when ipg knows how the payment ended,
// 5 when the payment may have gone through and the gateway's status does not settle it.
TEST_F(CliTest, PaymentOutcomesAScriptCanTrust) {
  const nlohmann::json ready = startSandbox();
  const std::string port = std::to_string(ready.value("port", 0));
  const struct {
    std::vector<std::pair<std::string, std::string>> faults;  // endpoint, kind; reset after
    std::vector<std::string> args;
    int exitCode;
    std::string statusCode;  // of the final page's record; empty: none
    std::string reconciled;  // the status record's statusCode; empty: none
    std::string errorKind;   // empty: no error
    bool outcomeUnknown = false;
  } rows[] = {
      // Other spellings of the sandbox's address: the canonical form decides, for the final
      // page and for test cards.
      {{}, {"--base-url", "HTTPS://127.0.0.1:" + port + "/ipg/"}, 0, "S", "", ""},
      // The final page times out; the gateway captures the payment after the status inquiry.
      {{{"invoice", "delay=3000"}}, {"--timeout", "1"}, 5, "", "P", "Timeout", true},
      // ... or before it.
      {{{"invoice", "delay=1500"}, {"status", "delay=2500"}}, {"--timeout", "1"}, 0, "", "S", ""},
      {{}, {"--test-card", "visa"}, 2, "", "", "Input"},
  };
  int order = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.args[0] + " " + row.args[1]);
    for (const auto& [endpoint, kind] : row.faults) {
      ASSERT_EQ(ipg({"sandbox", "fault", endpoint, kind}).exitCode, 0);
    }
    std::vector<std::string> args = {
        "pay",      "--standard", "--order",     "PO" + std::to_string(++order),
        "--amount", "4.00",       "--no-window", "--json"};
    if (row.args[0] != "--test-card") args.insert(args.end(), {"--test-card", "approve"});
    args.insert(args.end(), row.args.begin(), row.args.end());
    const ProcessRun run = ipg(args);
    EXPECT_EQ(run.exitCode, row.exitCode) << run.err;
    nlohmann::json out = nlohmann::json::parse(run.out, nullptr, false);
    if (!out.is_object()) out = nlohmann::json::object();
    EXPECT_EQ(out.value("statusCode", ""), row.statusCode) << run.out;
    EXPECT_EQ(out.contains("reconciled") ? out["reconciled"].value("statusCode", "") : "",
              row.reconciled);
    const nlohmann::json error = out.value("error", nlohmann::json::object());
    EXPECT_EQ(error.value("kind", ""), row.errorKind);
    if (!row.errorKind.empty()) {
      EXPECT_EQ(error.value("outcomeUnknown", !row.outcomeUnknown), row.outcomeUnknown);
    }
    for (const auto& [endpoint, kind] : row.faults) {
      ASSERT_EQ(ipg({"sandbox", "fault", endpoint, "none"}).exitCode, 0);
    }
  }
}

// A cancel or refund interrupted while it waits for its answer may have been applied: ipg says
// so and exits 5 rather than dying silently.
TEST_F(CliTest, InterruptedCancelOrRefundSaysItsOutcomeIsUnknown) {
  ASSERT_TRUE(startSandbox().is_object());
  const ProcessRun preauth =
      ipg({"pay", "--standard", "--order", "I1", "--amount", "3.00", "--type", "preauth",
           "--test-card", "approve", "--no-window", "--json"});
  const std::string preauthRef =
      nlohmann::json::parse(preauth.out, nullptr, false).value("transactionReferenceNo", "");
  const std::string saleRef = pay("I2", "3.00");
  ASSERT_EQ(ipg({"sandbox", "fault", "cancel", "hang"}).exitCode, 0);
  ASSERT_EQ(ipg({"sandbox", "fault", "refund", "hang"}).exitCode, 0);
  const struct {
    std::vector<std::string> args;
    int signal;
  } rows[] = {
      {{"cancel", "--order", "I1", "--ref", preauthRef}, SIGINT},
      {{"refund", "--order", "I2", "--ref", saleRef, "--amount", "1.00"}, SIGTERM},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.args[0]);
    std::vector<std::string> argv = {program("ipg")};
    argv.insert(argv.end(), row.args.begin(), row.args.end());
    argv.push_back("--json");
    Child call(argv);
    // ipg takes the signals once it has blocked them, before it starts the client's threads,
    // which keep them blocked (SigBlk holds SIGINT's and SIGTERM's bits, 0x2 and 0x4000): a
    // slow start (a sanitizer build on a busy machine) must not get them earlier.
    const auto blocked = [pid = call.pid()] {
      std::error_code error;
      for (const auto& task :
           std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", error)) {
        const std::string text = qipg_test::readFile(task.path() / "status");
        const std::size_t at = text.find("SigBlk:\t");
        if (at != std::string::npos &&
            (std::stoull(text.substr(at + 8, 16), nullptr, 16) & 0x4002) == 0x4002) {
          return true;
        }
      }
      return false;
    };
    for (int i = 0; i < 1000 && !blocked(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(eventually([&] { return holdsOne(row.args[0]); }));
    ::kill(call.pid(), row.signal);
    const nlohmann::json out = nlohmann::json::parse(call.line(), nullptr, false);
    EXPECT_EQ(call.wait(), 5);
    ASSERT_TRUE(out.contains("error")) << out;
    EXPECT_EQ(out["error"].value("kind", ""), "Cancelled");
    EXPECT_EQ(out["error"].value("outcomeUnknown", false), true);
    EXPECT_NE(out["error"].value("message", "").find("confirm with a status inquiry"),
              std::string::npos);
  }
}

// Killed outright mid-refund, mid-payment or with the card form shown, ipg leaves open
// entries in its journal, and reconciling settles them from the gateway's status, sending
// nothing again. The journal
// holds no card number or key.
TEST_F(CliTest, TheJournalKeepsWhatAKillInterrupted) {
  ASSERT_TRUE(startSandbox({"--session-seconds", "10"}).is_object());
  const std::string saleRef = pay("K1", "9.00");
  const auto journal = [this](const std::vector<std::string>& args) {
    std::vector<std::string> all = {"journal"};
    all.insert(all.end(), args.begin(), args.end());
    all.push_back("--json");
    const ProcessRun run = ipg(all);
    nlohmann::json entries = nlohmann::json::parse(run.out, nullptr, false);
    return std::pair{run.exitCode, entries.is_array() ? entries : nlohmann::json::array()};
  };
  const auto killed = [&](const std::vector<std::string>& args, const char* endpoint,
                          const char* fault, const std::function<bool()>& held) {
    ASSERT_EQ(ipg({"sandbox", "fault", endpoint, fault}).exitCode, 0);
    std::vector<std::string> argv = {program("ipg")};
    argv.insert(argv.end(), args.begin(), args.end());
    Child call(argv);
    EXPECT_TRUE(eventually(held)) << args[0];
    ::kill(call.pid(), SIGKILL);
    call.wait();
  };
  // Each is killed once the gateway holds its request: the refund's, and the payment's final
  // page, which the gateway makes after the delay, settling the payment.
  killed({"refund", "--order", "K1", "--ref", saleRef, "--amount", "2.00"}, "refund", "hang",
         [&] { return holdsOne("refund"); });
  killed({"pay", "--standard", "--order", "K2", "--amount", "5.00", "--test-card", "approve",
          "--no-window"},
         "invoice", "delay=3000", [&] { return holdsOne("invoice", "delay=3000"); });
  // A window of each toolkit this build has, with the card form shown, killed before the
  // customer pays (K3, K4...).
  const char* sourceDir = std::getenv("QIPG_TEST_WINDOW_SOURCE_DIR");
  const char* toolkitNames = std::getenv("QIPG_TEST_WINDOW_TOOLKITS");
  std::vector<std::string> toolkits;
  if (sourceDir != nullptr && toolkitNames != nullptr) {
    std::istringstream names(toolkitNames);
    for (std::string name; std::getline(names, name, ',');) toolkits.push_back(name);
  }
  for (std::size_t i = 0; i < toolkits.size(); ++i) {
    const std::string order = "K" + std::to_string(3 + i);
    Child window({std::string(sourceDir) + "/scripts/with-display", program("ipg"), "pay",
                  "--standard", "--order", order, "--amount", "6.00", "--toolkit", toolkits[i]});
    EXPECT_TRUE(eventually([&] { return hasStatus(order, "P"); })) << toolkits[i];
    // ipg itself, not the display's script around it, which then ends its Xvfb.
    EXPECT_EQ(::system(("pkill -KILL -f -- " +
                        quoted("^" + program("ipg") + " pay --standard --order " + order + " "))
                           .c_str()),
              0);
    window.wait();
  }
  const std::size_t killedCount = 2 + toolkits.size();
  auto [listed, open] = journal({"list", "--unresolved"});
  EXPECT_EQ(listed, 0);
  ASSERT_EQ(open.size(), killedCount) << open;
  EXPECT_EQ(open[0].value("operation", ""), "refund");
  EXPECT_EQ(open[0].value("amount", ""), "2.00");
  EXPECT_EQ(open[1].value("operation", ""), "payment");
  for (const auto& entry : open) EXPECT_EQ(entry.value("state", ""), "open");

  // The gateway is well again: it lets the held refund go, which it applies.
  ASSERT_EQ(ipg({"sandbox", "fault", "refund", "none"}).exitCode, 0);
  ASSERT_EQ(ipg({"sandbox", "fault", "invoice", "none"}).exitCode, 0);
  // A payment still pending is asked again until the gateway settles it: paid, or its
  // session expired.
  EXPECT_TRUE(eventually([&] {
    const auto [code, reconciled] = journal({"reconcile"});
    EXPECT_TRUE(code == 0 || code == 3) << reconciled;
    return code == 0;
  }));
  const nlohmann::json all = journal({"list"}).second;
  ASSERT_EQ(all.size(), killedCount + 1) << all;  // the first payment, then those killed
  EXPECT_EQ(all[0].value("state", ""), "answered");
  for (const auto& [at, code] : {std::pair{1u, "R"}, {2u, "S"}, {3u, "F"}, {4u, "F"}}) {
    if (at >= all.size()) break;
    EXPECT_EQ(all[at].value("state", ""), "settled") << all[at];
    EXPECT_EQ(all[at]["status"].value("statusCode", ""), code);
  }

  std::string bytes;
  for (const char* file : {"journal.sqlite3", "journal.sqlite3-wal"}) {
    bytes += qipg_test::readFile(dir() / "state/qipg" / file);
  }
  EXPECT_NE(bytes.find("K1"), std::string::npos);
  for (const std::string& secret : {std::string("4111111111111111"), kKey}) {
    EXPECT_EQ(bytes.find(secret), std::string::npos) << secret;
  }
}

// A journal that is not one (torn, or overwritten) is set aside, not deleted, and a new one
// started.
TEST_F(CliTest, ATornJournalIsSetAside) {
  std::filesystem::create_directories(dir() / "state/qipg");
  const auto file = dir() / "state/qipg/journal.sqlite3";
  writeFile(file, std::string(4096, 'x'));
  const ProcessRun run = ipg({"journal", "list", "--json"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.out, "[]\n");
  EXPECT_NE(run.err.find("set aside as " + file.string() + ".corrupt-"), std::string::npos)
      << run.err;
  int asides = 0;
  for (const auto& entry : std::filesystem::directory_iterator(file.parent_path())) {
    if (entry.path().filename().string().find(".corrupt-") != std::string::npos) {
      ++asides;
      EXPECT_EQ(qipg_test::readFile(entry.path()), std::string(4096, 'x'));
    }
  }
  EXPECT_EQ(asides, 1);
}

}  // namespace
}  // namespace qipg_e2e
