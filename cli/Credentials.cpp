#include "Credentials.h"

#include <curl/curl.h>
#include <openssl/crypto.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "DataDir.h"
#include "Sandbox.h"
#include "common/Url.h"
#include "qipg/QuandrelIPG.h"

extern char** environ;

// LeakSanitizer inspects the process at exit through ptrace, which a non-dumpable process
// refuses to its own user: sanitizer builds keep the process dumpable (core files stay off).
#if defined(__SANITIZE_ADDRESS__)
#define QIPG_UNDER_LEAK_CHECKER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(leak_sanitizer)
#define QIPG_UNDER_LEAK_CHECKER 1
#endif
#endif

namespace ipg {
namespace {

// QIPG_KEY and QIPG_CARD_*: never left in the environment, where every process started later
// (the web engine's among them) would inherit them.
bool isSecretVariable(const char* name) {
  return std::strcmp(name, "QIPG_KEY") == 0 || std::strncmp(name, "QIPG_CARD_", 10) == 0;
}

// The secret variables taken out of the environment; wiped at exit.
struct Secrets {
  std::map<std::string, std::string> values;
  ~Secrets() {
    for (auto& [name, value] : values) wipe(value);
  }
};

Secrets& secrets() {
  static Secrets kept;
  return kept;
}

std::mutex& secretsMutex() {
  static std::mutex mutex;
  return mutex;
}

// Moves variable `name`, when set, from the environment into secrets(): its bytes in the
// environment block are overwritten (so /proc/PID/environ no longer shows them) and the
// variable is removed. The caller holds secretsMutex().
void takeSecretVariable(const char* name) {
  char* value = std::getenv(name);
  if (value == nullptr) return;
  std::string& kept = secrets().values[name];
  wipe(kept);
  kept = value;
  OPENSSL_cleanse(value, std::strlen(value));
  ::unsetenv(name);
}

// Reads one line from the terminal without echo; absent when standard input is no terminal.
std::optional<std::string> promptSecret(const char* prompt) {
  if (::isatty(STDIN_FILENO) == 0) return std::nullopt;
  termios old{};
  if (::tcgetattr(STDIN_FILENO, &old) != 0) return std::nullopt;
  termios quiet = old;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  std::cerr << prompt << std::flush;
  ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  std::string line;
  std::getline(std::cin, line);
  ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &old);
  std::cerr << "\n";
  return line;
}

}  // namespace

std::string environmentValue(const char* name) {
  if (!isSecretVariable(name)) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::string(value) : std::string();
  }
  std::lock_guard<std::mutex> lock(secretsMutex());
  takeSecretVariable(name);
  const auto& kept = secrets().values;
  const auto found = kept.find(name);
  return found != kept.end() ? found->second : std::string();
}

void protectSecrets() {
  const rlimit noCore{0, 0};
  if (::setrlimit(RLIMIT_CORE, &noCore) != 0) {
    std::cerr << "ipg: warning: cannot turn core dumps off: " << std::strerror(errno) << "\n";
  }
#if !defined(QIPG_UNDER_LEAK_CHECKER)
  // Also keeps other processes of this user from reading this one's memory (ptrace, /proc).
  if (::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0) {
    std::cerr << "ipg: warning: cannot make the process non-dumpable: " << std::strerror(errno)
              << "\n";
  }
#endif
  std::vector<std::string> names;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string name(*entry, std::strcspn(*entry, "="));
    if (isSecretVariable(name.c_str())) names.push_back(name);
  }
  std::lock_guard<std::mutex> lock(secretsMutex());
  for (const std::string& name : names) takeSecretVariable(name.c_str());
}

void wipe(std::string& secret) {
  volatile char* bytes = secret.data();
  for (std::size_t i = 0; i < secret.size(); ++i) bytes[i] = 0;
  secret.clear();
}

MerchantCredentials::~MerchantCredentials() {
  if (key) wipe(*key);
}

void addGatewayOptions(CLI::App& sub, GatewayOptions& o) {
  sub.add_option("--mid", o.mid, "merchant ID (else $QIPG_MID)")->group("Merchant and gateway");
  sub.add_option("--key-file", o.keyFile,
                 "file holding the merchant key on its first line; must be owner-only\n"
                 "(without it: $QIPG_KEY, else a prompt when a MID is given on a terminal)")
      ->group("Merchant and gateway");
  addRefusedKeyOption(sub);
  sub.add_option("--env", o.env, "gateway environment: test (default) or production")
      ->check(CLI::IsMember({"test", "production"}))
      ->group("Merchant and gateway");
  sub.add_option("--base-url", o.baseURL,
                 "base URL of that gateway; else $QIPG_TEST_BASE_URL or\n"
                 "$QIPG_PRODUCTION_BASE_URL, else a running `ipg sandbox`, else the default")
      ->group("Merchant and gateway");
  sub.add_option("--ca-file", o.caFile,
                 "PEM file of CAs to trust (else $QIPG_CA_FILE; for a loopback gateway the\n"
                 "sandbox's CA file)")
      ->group("Merchant and gateway");
  auto* journal = sub.add_option("--journal", o.journal,
                                 "outcome journal of payments, cancels and refunds (default\n"
                                 "${XDG_STATE_HOME:-~/.local/state}/qipg/journal.sqlite3)")
                      ->group("Outcome journal");
  sub.add_flag("--no-journal", o.noJournal, "keep no journal")
      ->excludes(journal)
      ->group("Outcome journal");
}

std::string journalPath(const GatewayOptions& o) {
  if (o.noJournal) return "";
  if (!o.journal.empty()) return o.journal;
  const char* state = std::getenv("XDG_STATE_HOME");
  const char* home = std::getenv("HOME");
  const std::string base = state != nullptr && *state == '/'
                               ? std::string(state)
                               : std::string(home != nullptr ? home : ".") + "/.local/state";
  return base + "/qipg/journal.sqlite3";
}

std::optional<std::string> readOwnerOnlyFile(const std::string& path, const std::string& what,
                                             std::string& error) {
  std::string reason;
  std::optional<std::string> text = qipg::sandbox::readOwnFile(path, 077, &reason);
  if (text) return text;
  const std::string named = "the " + what + " " + path;
  if (reason.empty()) {
    error = named + " does not exist";
  } else if (reason.find(" by others") != std::string::npos) {
    error = named + " " + reason + "; make it owner-only: chmod 600";
  } else if (reason.rfind("cannot", 0) == 0) {
    error = named + " " + reason;
  } else {
    error = named + " " + reason + "; refusing it";
  }
  return std::nullopt;
}

void addRefusedKeyOption(CLI::App& sub) {
  sub.add_option_function<std::string>("--key",
                                       [](const std::string&) {
                                         throw CLI::ValidationError(
                                             "--key",
                                             "a key on the command line is visible to other users "
                                             "in the process list; use $QIPG_KEY, --key-file FILE "
                                             "or the prompt");
                                       })
      ->group("");
}

bool merchantCredentials(const GatewayOptions& o, MerchantCredentials& c, std::string& error) {
  if (!o.mid.empty()) {
    c.mid = o.mid;
  } else if (std::string mid = environmentValue("QIPG_MID"); !mid.empty()) {
    c.mid = mid;
  }
  if (!o.keyFile.empty()) {
    std::optional<std::string> text = readOwnerOnlyFile(o.keyFile, "key file", error);
    if (!text) return false;
    c.key = text->substr(0, text->find_first_of("\r\n"));
    wipe(*text);
  } else if (std::string key = environmentValue("QIPG_KEY"); !key.empty()) {
    c.key = key;  // a copy: a moved-from string may keep the bytes, and wipe() would miss them
    wipe(key);
  } else if (c.mid) {
    c.key = promptSecret("Merchant key: ");
  }
  return true;
}

std::optional<Gateway> resolveGateway(const GatewayOptions& o, std::string& error) {
  Gateway g;
  const bool test = o.env != "production";
  g.environment = test ? qipg::IPGEnvironmentTest : qipg::IPGEnvironmentProduction;
  g.config = qipg::GatewayConfig::fromEnvironment();
  std::string& base = test ? g.config.testBaseURL : g.config.productionBaseURL;
  const std::string dataDir = qipg::sandbox::defaultDataDir();
  std::string warning, warned;
  auto warn = [&] {
    if (!warning.empty() && warning != warned) std::cerr << "ipg: warning: " << warning << "\n";
    warned = warning;
  };
  if (!o.baseURL.empty()) {
    base = o.baseURL;
  } else if (environmentValue(test ? "QIPG_TEST_BASE_URL" : "QIPG_PRODUCTION_BASE_URL").empty()) {
    if (std::optional<std::string> running = qipg::sandbox::runningBaseURL(dataDir, &warning)) {
      base = *running;
    }
    warn();
  }
  if (!o.caFile.empty()) {
    g.config.caFile = o.caFile;
  } else if (g.config.caFile.empty() && qipg::internal::hasLoopbackHost(base)) {
    if (std::optional<std::string> ca =
            qipg::sandbox::trustedDataFile(dataDir, "ca.pem", &warning)) {
      g.config.caFile = *ca;
    }
    warn();
  }
  if (qipg::Text problem = g.config.problem()) {
    error = *problem;
    return std::nullopt;
  }
  g.baseURL = base;
  return g;
}

}  // namespace ipg
