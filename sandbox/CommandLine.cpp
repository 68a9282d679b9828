// The foreground runner shared by ipg-sandbox and `ipg sandbox`.
#include <pthread.h>
#include <signal.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <mutex>
#include <ostream>

#include "Sandbox.h"

namespace qipg::sandbox {
namespace {

struct Flags {
  Options options;
  bool help = false;
};

// Parses the flags; a one-line complaint in `error` on failure.
bool parseFlags(const std::vector<std::string>& args, Flags* flags, std::string* error) {
  for (std::size_t i = 0; i < args.size(); ++i) {
    std::string name = args[i];
    std::optional<std::string> value;
    if (name == "--help" || name == "-h") {
      flags->help = true;
      continue;
    }
    if (name.rfind("--", 0) != 0) {
      *error = "unexpected argument: " + name;
      return false;
    }
    if (const std::size_t eq = name.find('='); eq != std::string::npos) {
      value = name.substr(eq + 1);
      name = name.substr(0, eq);
    } else if (i + 1 < args.size()) {
      value = args[++i];
    }
    if (name != "--port" && name != "--data-dir" && name != "--merchant" &&
        name != "--environment") {
      *error = "unknown flag: " + name;
      return false;
    }
    if (!value) {
      *error = name + " needs a value";
      return false;
    }
    if (name == "--port") {
      if (value->empty() || value->size() > 5 ||
          value->find_first_not_of("0123456789") != std::string::npos ||
          std::stoi(*value) > 65535) {
        *error = "--port takes a number from 0 to 65535";
        return false;
      }
      flags->options.port = std::stoi(*value);
    } else if (name == "--data-dir") {
      flags->options.dataDir = *value;
    } else if (name == "--environment") {
      if (*value != "test" && *value != "production") {
        *error = "--environment takes test or production";
        return false;
      }
      flags->options.environment = *value;
    } else {
      const std::size_t colon = value->find(':');
      if (colon == std::string::npos) {
        *error = "--merchant takes MID:KEY";
        return false;
      }
      flags->options.merchants.push_back({value->substr(0, colon), value->substr(colon + 1)});
    }
  }
  return true;
}

}  // namespace

std::string usage(const std::string& program) {
  return "usage: " + program +
         " [--port N] [--data-dir DIR] [--merchant MID:KEY]... [--environment test|production]\n"
         "\n"
         "Runs the Quandrel IPG sandbox gateway on https://127.0.0.1:PORT/ipg/ in the\n"
         "foreground until interrupted (Ctrl-C or SIGTERM). No real money moves.\n"
         "\n"
         "  --port N             port to listen on; 0 (the default) picks a free one\n"
         "  --data-dir DIR       database, certificates and CA file\n"
         "                       (default ${XDG_DATA_HOME:-~/.local/share}/qipg/sandbox)\n"
         "  --merchant MID:KEY   add a merchant, or change its key (repeatable); MID 1-15 and\n"
         "                       KEY 1-32 ASCII letters and digits\n"
         "  --environment ENV    test (default) or production: which envelope IV to use\n"
         "  --help               this text\n"
         "\n"
         "The sandbox always knows the test merchant QIPGTEST0001 (its key is in\n"
         "docs/SANDBOX.md). It prints its base URL and the CA file that clients must trust.\n";
}

int runCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
                   const std::string& program) {
  Flags flags;
  std::string error;
  if (!parseFlags(args, &flags, &error)) {
    err << program << ": " << error << "\n" << usage(program);
    return 2;
  }
  if (flags.help) {
    out << usage(program);
    return 0;
  }
  if (flags.options.dataDir.empty()) flags.options.dataDir = defaultDataDir();
  if (flags.options.dataDir.empty()) {
    err << program << ": no --data-dir given and neither XDG_DATA_HOME nor HOME is set\n";
    return 2;
  }

  auto logMutex = std::make_shared<std::mutex>();
  flags.options.log = [&err, logMutex](const std::string& line) {
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

  auto sandbox = Sandbox::start(flags.options, &error);
  if (!sandbox) {
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    err << program << ": " << error << "\n";
    return 1;
  }
  out << "base URL: " << sandbox->baseURL() << "\n"
      << "CA file: " << sandbox->caFile() << std::endl;
  {
    std::lock_guard<std::mutex> lock(*logMutex);
    err << program << ": " << sandbox->environment() << " environment, data in "
        << sandbox->dataDir() << ", test merchant " << kTestMerchantId << "; press Ctrl-C to stop"
        << std::endl;
  }

  const std::string runningFile = sandbox->dataDir() + "/running";
  if (const int fd = ::open(runningFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
      fd >= 0) {
    const std::string line = sandbox->baseURL() + "\n";
    const bool written = ::write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    ::close(fd);
    if (!written) ::unlink(runningFile.c_str());
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

std::optional<std::string> runningBaseURL(const std::string& dataDir) {
  if (dataDir.empty()) return std::nullopt;
  std::ifstream in(dataDir + "/running");
  std::string line;
  if (!in || !std::getline(in, line) || line.rfind("https://", 0) != 0) return std::nullopt;
  return line;
}

}  // namespace qipg::sandbox
