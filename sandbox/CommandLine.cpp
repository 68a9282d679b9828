// The foreground runner shared by ipg-sandbox and `ipg sandbox`.
#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <httplib.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>

#include "DataDir.h"
#include "Sandbox.h"
#include "qipg/Version.h"

namespace qipg::sandbox {
namespace {

struct Settings {
  Options options;
  bool readyJson = false;
  bool printEnv = false;
  std::vector<std::string> merchants;  // MID:KEY
  std::vector<std::string> faults;     // ENDPOINT=KIND
  std::string faultEndpoint;
  std::string faultKind;
};

// A word for a POSIX shell, in single quotes.
std::string shellQuoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

// Sets a fault on the sandbox that runs in `dataDir`, through its admin endpoint.
int setFaultOnRunning(const Settings& s, std::ostream& out, std::ostream& err,
                      const std::string& program) {
  const std::string& dir = s.options.dataDir;
  std::string warning;
  const std::optional<std::string> base = runningBaseURL(dir, &warning);
  if (!base) {
    err << program << ": "
        << (warning.empty() ? "no sandbox is running in " + dir +
                                  " (name its data directory with --data-dir or QIPG_SANDBOX_DIR)"
                            : warning)
        << "\n";
    return 1;
  }
  const std::optional<std::string> caFile = trustedDataFile(dir, "ca.pem", &warning);
  std::string why;
  std::optional<std::string> token = readOwnFile(adminTokenFile(dir), 077, &why);
  if (!caFile || !token) {
    err << program << ": "
        << (!caFile ? (warning.empty() ? "no CA file in " + dir : warning)
                    : adminTokenFile(dir) + " " + (why.empty() ? "is missing" : why))
        << "\n";
    return 1;
  }
  token->erase(std::min(token->find('\n'), token->size()));
  httplib::Client client(base->substr(0, base->find('/', 8)));
  client.set_ca_cert_path(caFile->c_str());
  client.enable_server_certificate_verification(true);
  client.set_connection_timeout(5, 0);
  client.set_read_timeout(10, 0);
  const httplib::Headers headers = {{"X-Sandbox-Token", *token}};
  const httplib::Params form = {{"endpoint", s.faultEndpoint}, {"kind", s.faultKind}};
  const auto res = client.Post("/sandbox/fault", headers, form);
  if (!res) {
    err << program << ": the sandbox at " << *base << " did not answer ("
        << httplib::to_string(res.error()) << ")\n";
    return 1;
  }
  if (res->status != 200) {
    err << program << ": " << (res->status == 400 ? res->body : "refused: " + res->body);
    return res->status == 400 ? 2 : 1;
  }
  // The answer is "held=N": requests of that endpoint held by a hang or a delay now.
  const std::string held = res->body.rfind("held=", 0) == 0
                               ? res->body.substr(5, res->body.find('\n') - 5)
                               : std::string();
  out << s.faultEndpoint << ": " << s.faultKind
      << (held.empty() || held == "0" ? std::string() : " (" + held + " held)") << "\n";
  return 0;
}

int runSandbox(Settings& s, std::ostream& out, std::ostream& err, const std::string& program) {
  if (s.options.dataDir.empty()) {
    err << program << ": no --data-dir given and neither XDG_DATA_HOME nor HOME is set\n";
    return 2;
  }
  for (const std::string& merchant : s.merchants) {
    const std::size_t colon = merchant.find(':');
    s.options.merchants.push_back({merchant.substr(0, colon), merchant.substr(colon + 1)});
  }
  if (!s.merchants.empty()) {
    err << program << ": warning: --merchant puts a key in the process list\n";
  }
  struct Start {
    Endpoint endpoint;
    Fault fault;
    std::chrono::milliseconds delay;
  };
  std::vector<Start> faults;
  for (const std::string& text : s.faults) {
    const std::size_t equals = text.find('=');
    Start start{};
    std::string error;
    if (equals == std::string::npos ||
        !parseFault(text.substr(0, equals), text.substr(equals + 1), &start.endpoint, &start.fault,
                    &start.delay, &error)) {
      err << program
          << ": --fault: " << (equals == std::string::npos ? "takes ENDPOINT=KIND" : error) << "\n";
      return 2;
    }
    faults.push_back(start);
  }

  auto logMutex = std::make_shared<std::mutex>();
  s.options.log = [&err, logMutex](const std::string& line) {
    std::lock_guard<std::mutex> lock(*logMutex);
    err << line << std::endl;
  };

  // Block the stop signals before the server threads exist, so that they inherit the mask and
  // only sigwait below receives them.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  sigset_t previous;
  pthread_sigmask(SIG_BLOCK, &stopSignals, &previous);

  std::string error;
  auto sandbox = Sandbox::start(s.options, &error);
  if (!sandbox) {
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    err << program << ": " << error << "\n";
    return 1;
  }
  for (const Start& f : faults) sandbox->setFault(f.endpoint, f.fault, f.delay);

  const std::string runningFile = sandbox->dataDir() + "/running";
  if (!internal::replaceFile(runningFile, sandbox->baseURL() + "\n")) {
    std::lock_guard<std::mutex> lock(*logMutex);
    err << program << ": warning: cannot write " << runningFile
        << "; ipg will not find this sandbox by itself" << std::endl;
  }

  if (s.readyJson) {
    const nlohmann::ordered_json ready = {{"baseURL", sandbox->baseURL()},
                                          {"caFile", sandbox->caFile()},
                                          {"mid", kTestMerchantId},
                                          {"port", sandbox->port()},
                                          {"dataDir", sandbox->dataDir()}};
    out << ready.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
        << std::endl;
  } else if (s.printEnv) {
    out << "export QIPG_TEST_BASE_URL=" << shellQuoted(sandbox->baseURL()) << "\n"
        << "export QIPG_CA_FILE=" << shellQuoted(sandbox->caFile()) << "\n"
        << "export QIPG_MID=" << shellQuoted(kTestMerchantId) << "\n"
        << "export QIPG_KEY=" << shellQuoted(kTestMerchantKey) << "\n"
        << "export QIPG_SANDBOX_DIR=" << shellQuoted(sandbox->dataDir()) << std::endl;
  } else {
    out << "base URL: " << sandbox->baseURL() << "\n"
        << "CA file: " << sandbox->caFile() << std::endl;
  }
  {
    std::lock_guard<std::mutex> lock(*logMutex);
    err << program << ": " << sandbox->environment() << " environment, data in "
        << sandbox->dataDir() << ", test merchant " << kTestMerchantId << "; press Ctrl-C to stop"
        << std::endl;
  }

  int signal = 0;
  sigwait(&stopSignals, &signal);
  ::unlink(runningFile.c_str());
  sandbox->stop();
  sandbox.reset();
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  err << program << ": stopped" << std::endl;
  return 0;
}

}  // namespace

std::function<int()> defineCommandLine(CLI::App& app, std::ostream& out, std::ostream& err,
                                       const std::string& program) {
  auto s = std::make_shared<Settings>();
  s->options.port = kDefaultPort;
  s->options.dataDir = defaultDataDir();
  app.footer(
      "Runs the Quandrel IPG sandbox gateway on https://127.0.0.1:PORT/ipg/ in the foreground\n"
      "until interrupted (Ctrl-C or SIGTERM). No real money moves. It always knows the test\n"
      "merchant QIPGTEST0001 (key in docs/SANDBOX.md) and prints its base URL and the CA file\n"
      "that clients must trust.\n"
      "Guides (SANDBOX.md) and examples: share/doc/QuandrelIPG/ of the install prefix.\n");
  app.add_option("--port", s->options.port,
                 "port to listen on (default 4431; an error when taken; 0: any free port)")
      ->check(CLI::Range(0, 65535));
  app.add_option("--data-dir", s->options.dataDir,
                 "database, certificates and CA file; must be yours (default\n"
                 "$QIPG_SANDBOX_DIR, else ${XDG_DATA_HOME:-~/.local/share}/qipg/sandbox)");
  app.add_option("--merchant", s->merchants,
                 "add a merchant or change its key (repeatable); MID 1-15 and KEY 1-32 ASCII\n"
                 "letters and digits. The key shows in the process list: a test key only")
      ->check(CLI::Validator(
          [](std::string& v) { return v.find(':') == std::string::npos ? "takes MID:KEY" : ""; },
          ""))
      ->type_name("MID:KEY");
  app.add_option("--environment", s->options.environment,
                 "test (default) or production: which envelope IV to use")
      ->check(CLI::IsMember({"test", "production"}));
  app.add_option_function<long>(
         "--session-seconds",
         [s](long seconds) { s->options.paymentSession = std::chrono::seconds(seconds); },
         "how long a payment page stays open (default 900): a payment still pending after\n"
         "that reads as failed and its card form takes nothing")
      ->check(CLI::Range(1L, 86400L));
  auto* ready = app.add_flag("--ready-json", s->readyJson,
                             "once listening, print one JSON line on standard output:\n"
                             "{\"baseURL\", \"caFile\", \"mid\", \"port\", \"dataDir\"}");
  app.add_flag("--print-env", s->printEnv,
               "once listening, print export lines for QIPG_TEST_BASE_URL, QIPG_CA_FILE,\n"
               "QIPG_MID, QIPG_KEY (the test merchant's) and QIPG_SANDBOX_DIR")
      ->excludes(ready);
  app.add_option(
         "--fault", s->faults,
         "spoil every answer of an endpoint from the start (repeatable). ENDPOINT: status,\n"
         "cancel, refund, pay, pay-card, invoice. KIND: http500, garbage, not-utf8, huge,\n"
         "hang, delay=MS, close, wrong-key, none")
      ->type_name("ENDPOINT=KIND");

  CLI::App* fault = app.add_subcommand(
      "fault", "set a fault on the sandbox running in the data directory (KIND none lifts it)");
  fault->add_option("endpoint", s->faultEndpoint, "status, cancel, refund, pay, pay-card, invoice")
      ->required();
  fault
      ->add_option("kind", s->faultKind,
                   "http500, garbage, not-utf8, huge, hang, delay=MS, close, wrong-key, none")
      ->required();
  fault->add_option("--data-dir", s->options.dataDir,
                    "the running sandbox's data directory (default $QIPG_SANDBOX_DIR, else\n"
                    "${XDG_DATA_HOME:-~/.local/share}/qipg/sandbox)");
  fault->footer(
      "Spoils every later answer of ENDPOINT on the sandbox that runs in the data directory,\n"
      "until KIND none lifts it. The sandbox must be running (ipg sandbox or ipg-sandbox);\n"
      "this only asks it, through its admin endpoint, with the token in its data directory.\n");
  app.require_subcommand(0, 1);

  return [s, fault, &out, &err, program]() {
    if (fault->parsed()) {
      std::string error;
      Endpoint endpoint{};
      Fault f{};
      std::chrono::milliseconds delay{};
      if (!parseFault(s->faultEndpoint, s->faultKind, &endpoint, &f, &delay, &error)) {
        err << program << " fault: " << error << "\n";
        return 2;
      }
      return setFaultOnRunning(*s, out, err, program + " fault");
    }
    return runSandbox(*s, out, err, program);
  };
}

int runProgram(int argc, char** argv) {
  CLI::App app;
  app.name("ipg-sandbox");
  app.set_version_flag("--version", "ipg-sandbox " QIPG_VERSION_STRING);
  const auto run = defineCommandLine(app, std::cout, std::cerr, "ipg-sandbox");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }
  return run();
}

std::optional<std::string> runningBaseURL(const std::string& dataDir, std::string* warning) {
  std::string scratch;
  if (warning == nullptr) warning = &scratch;
  const std::optional<std::string> path = trustedDataFile(dataDir, "running", warning);
  if (!path) return std::nullopt;
  std::string why;
  const std::optional<std::string> text = readOwnFile(*path, 022, &why);
  if (!text) {
    if (!why.empty()) *warning = "ignoring " + *path + ": it " + why;
    return std::nullopt;
  }
  std::string line = text->substr(0, text->find('\n'));
  if (line.rfind("https://", 0) != 0) return std::nullopt;
  return line;
}

}  // namespace qipg::sandbox
