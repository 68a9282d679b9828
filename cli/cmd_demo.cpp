// ipg demo: a guided tour of the library, one small step at a time.
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "Credentials.h"
#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"
#include "qipg/QuandrelIPG.h"

namespace ipg {
namespace {

constexpr const char* kSampleKey = "DemoMerchantKey2024";
constexpr const char* kSampleMessage = "M123|O1|10.50|INR|-|S|-|-|-|U|-|-|-|-|-|-|-|-|-|-";

const char* const kUsage =
    "usage: ipg demo [--env test|production] [--base-url URL] [--ca-file FILE]\n"
    "\n"
    "Walks through the library step by step: creates a client (which stores the gateway's\n"
    "IV in this program's user defaults), seals and opens a sample message with a sample\n"
    "key, and shows the stored IV and where the user-defaults file is.\n";

struct DemoState {
  Args args;
  std::uint64_t environment = 1;
  std::shared_ptr<qipg::QuandrelIPG> client;
};

struct Step {
  const char* title;
  bool (*run)(DemoState& state);
};

bool createClient(DemoState& state) {
  std::string error;
  const std::optional<std::uint64_t> environment = environmentType(state.args, error);
  if (!environment) {
    std::cout << "   " << error << "\n";
    return false;
  }
  state.environment = *environment;
  const qipg::GatewayConfig config = gatewayConfig(state.args, state.environment);
  if (qipg::Text problem = config.problem()) {
    std::cout << "   the configuration is refused: " << *problem << "\n";
    return false;
  }
  state.client = qipg::QuandrelIPG::create(state.environment, config);
  if (!state.client) {
    std::cout << "   the client could not be created\n";
    return false;
  }
  std::cout << "   " << (state.environment == 1 ? "test" : "production") << " gateway, base URL "
            << state.client->CurrentDomainURL() << "\n";
  return true;
}

bool showStoredIV(DemoState&) {
  const qipg::Text iv = qipg::CommonUtilities::getRandomIVforKey(std::string("randomIV"));
  if (!iv) {
    std::cout << "   nothing is stored under \"randomIV\" (the store cannot be written?)\n";
    return false;
  }
  std::cout << "   \"randomIV\" = " << *iv << "\n";
  return true;
}

// Where the user-defaults store is, by the rule the library follows.
bool showDefaultsFile(DemoState&) {
  std::string path;
  std::string origin;
  if (const char* file = std::getenv("QIPG_DEFAULTS_FILE"); file != nullptr && *file != '\0') {
    path = file;
    origin = " (from QIPG_DEFAULTS_FILE)";
  } else if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg != nullptr && *xdg != '\0') {
    path = std::string(xdg) + "/qipg/ipg/defaults.sqlite3";
  } else if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    path = std::string(home) + "/.config/qipg/ipg/defaults.sqlite3";
  } else {
    std::cout << "   no home directory: set QIPG_DEFAULTS_FILE\n";
    return false;
  }
  std::error_code error;
  const bool exists = std::filesystem::is_regular_file(path, error);
  std::cout << "   " << path << origin << (exists ? "" : " (not written: check permissions)")
            << "\n";
  return exists;
}

bool sealAndOpen(DemoState&) {
  std::cout << "   message: " << kSampleMessage << "\n"
            << "   key:     " << maskSecret(kSampleKey) << " (a sample key)\n";
  const std::string sealed = qipg::encryptTextWithEncKey(kSampleMessage, std::string(kSampleKey));
  if (sealed.empty()) {
    std::cout << "   sealing failed\n";
    return false;
  }
  std::string shown = sealed;  // its CR LF line breaks, indented to line up
  for (std::size_t at = 0; (at = shown.find("\r\n", at)) != std::string::npos;) {
    shown.replace(at, 2, "\n            ");
  }
  std::cout << "   sealed:  " << shown << "\n";
  const qipg::Text opened = qipg::decryptTextWithDecryptionKey(sealed, std::string(kSampleKey));
  std::cout << "   opened:  " << opened.value_or("(nothing)") << "\n";
  if (opened != kSampleMessage) {
    std::cout << "   the opened text differs from the message\n";
    return false;
  }
  return true;
}

const std::vector<Step>& steps() {
  static const std::vector<Step> list = {
      {"Create a client", &createClient},
      {"The IV the client stored", &showStoredIV},
      {"Where the user defaults live", &showDefaultsFile},
      {"Seal and open a sample message", &sealAndOpen},
  };
  return list;
}

int runDemo(const Args& args) {
  DemoState state;
  state.args = args;
  int number = 0;
  for (const Step& step : steps()) {
    std::cout << ++number << ". " << step.title << "\n";
    if (!step.run(state)) {
      std::cout << "\nThe demo stopped at step " << number << ".\n";
      return 1;
    }
  }
  std::cout << "\nDone.\n";
  return 0;
}

const Registration registration{{"demo", "a guided tour of the library", kUsage, &runDemo}};

}  // namespace
}  // namespace ipg
