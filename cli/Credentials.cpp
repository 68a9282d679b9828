#include "Credentials.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>

#include "Sandbox.h"
#include "common/Url.h"
#include "qipg/QuandrelIPG.h"

namespace ipg {
namespace {

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
  const char* value = std::getenv(name);
  return value != nullptr ? std::string(value) : std::string();
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
  sub.add_option("--key", o.key,
                 "merchant key (discouraged: visible in the process list; prefer $QIPG_KEY)")
      ->group("Merchant and gateway");
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
}

std::optional<std::string> readOwnerOnlyFile(const std::string& path, const std::string& what,
                                             std::string& error) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  struct stat st {};
  if (fd < 0 || ::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    if (fd >= 0) ::close(fd);
    error = "cannot read the " + what + " " + path;
    return std::nullopt;
  }
  if (st.st_uid != ::geteuid() || (st.st_mode & 077) != 0) {
    ::close(fd);
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(st.st_mode & 07777));
    error = "the " + what + " " + path + " is open to other users (mode " + mode +
            "); make it yours and owner-only: chmod 600";
    return std::nullopt;
  }
  std::string text;
  char buffer[4096];
  ssize_t got;
  while ((got = ::read(fd, buffer, sizeof buffer)) > 0 && text.size() < (1u << 16)) {
    text.append(buffer, static_cast<std::size_t>(got));
  }
  ::close(fd);
  return text;
}

bool merchantCredentials(const GatewayOptions& o, MerchantCredentials& c, std::string& error) {
  if (!o.mid.empty()) {
    c.mid = o.mid;
  } else if (std::string mid = environmentValue("QIPG_MID"); !mid.empty()) {
    c.mid = mid;
  }
  if (!o.key.empty()) {
    std::cerr << "ipg: warning: a key given with --key is visible to other users in the process "
                 "list; use $QIPG_KEY or --key-file\n";
    c.key = o.key;
  } else if (!o.keyFile.empty()) {
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
  if (!o.baseURL.empty()) {
    base = o.baseURL;
  } else if (environmentValue(test ? "QIPG_TEST_BASE_URL" : "QIPG_PRODUCTION_BASE_URL").empty()) {
    if (std::optional<std::string> running = qipg::sandbox::runningBaseURL(dataDir)) {
      base = *running;
    }
  }
  if (!o.caFile.empty()) {
    g.config.caFile = o.caFile;
  } else if (g.config.caFile.empty() && qipg::internal::hasLoopbackHost(base) && !dataDir.empty()) {
    std::error_code ignored;
    if (std::filesystem::is_regular_file(dataDir + "/ca.pem", ignored)) {
      g.config.caFile = dataDir + "/ca.pem";
    }
  }
  if (qipg::Text problem = g.config.problem()) {
    error = *problem;
    return std::nullopt;
  }
  g.baseURL = base;
  return g;
}

}  // namespace ipg
