// ipg envelope seal|open: the message envelope by hand, for comparing with a gateway's logs.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>

#include "Command.h"
#include "Credentials.h"
#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"

namespace ipg {
namespace {

constexpr const char* kTestIV = "4e9a1c07b3d58f26";
constexpr const char* kProductionIV = "d2071f8be64c395a";
constexpr const char* kIVKey = "randomIV";
constexpr std::size_t kMaxInput = 64u << 20;

const char* const kUsage =
    "usage: ipg envelope seal --key KEY [--env test|production | --iv IV]\n"
    "       ipg envelope open --key KEY [--env test|production | --iv IV]\n"
    "\n"
    "Seals a plain message the way the library seals a request, or opens an envelope text\n"
    "the way it opens a gateway's answer.\n"
    "\n"
    "  seal   reads the plain message on standard input; ONE trailing newline, if present,\n"
    "         is not part of the message. Prints the envelope text (Base64 with CR LF after\n"
    "         every 76 characters and \"+\" written \"%2B\") and a final newline.\n"
    "  open   reads an envelope text on standard input (line breaks, blanks and a final\n"
    "         newline are ignored) and prints the plain text and a final newline. Exits 1\n"
    "         with \"cannot open: not Base64\" or \"cannot open: wrong key or IV, or damaged\n"
    "         text\" on standard error when it cannot. A wrong IV spoils only the first 16\n"
    "         bytes of a longer message, which may then open as garbled text.\n"
    "\n"
    "options:\n"
    "  --key KEY               the merchant's encryption key, ASCII (else $QIPG_KEY)\n"
    "  --env test|production   use that gateway's built-in IV (default test)\n"
    "  --iv IV                 use this 16-character IV text instead\n"
    "\n"
    "The IV is kept in a private temporary store for the run; the IV stored for other\n"
    "programs is left as it is. The key is never printed.\n";

bool isAsciiText(const std::string& text) {
  for (char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

// A user-defaults file of this run only: a 0600 file in a fresh 0700 directory, named by
// QIPG_DEFAULTS_FILE for the library, removed with its directory when this object goes.
class PrivateDefaults {
 public:
  PrivateDefaults() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/ipg-envelope-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) return;
    directory_ = pattern;
    std::string file = directory_ + "/defaults-XXXXXX";
    const int fd = mkstemp(file.data());
    if (fd < 0) return;
    close(fd);
    if (setenv("QIPG_DEFAULTS_FILE", file.c_str(), 1) != 0) return;
    ready_ = true;
  }
  ~PrivateDefaults() {
    if (directory_.empty()) return;
    std::error_code error;
    std::filesystem::remove_all(directory_, error);
  }
  PrivateDefaults(const PrivateDefaults&) = delete;
  PrivateDefaults& operator=(const PrivateDefaults&) = delete;

  bool ready() const { return ready_; }

 private:
  std::string directory_;
  bool ready_ = false;
};

// Reads standard input whole; absent when it is larger than kMaxInput.
std::optional<std::string> readInput() {
  std::string input;
  char buffer[65536];
  std::size_t got;
  while ((got = std::fread(buffer, 1, sizeof buffer, stdin)) > 0) {
    if (input.size() + got > kMaxInput) return std::nullopt;
    input.append(buffer, got);
  }
  return input;
}

// The Base64 characters of an envelope text as the library reads them: "%2B" is "+", and
// everything outside the alphabet and "=" is ignored.
std::string base64Characters(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (text.compare(i, 3, "%2B") == 0) {
      out += '+';
      i += 2;
    } else if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '+' || c == '/' || c == '=') {
      out += c;
    }
  }
  return out;
}

int fail(const std::string& message, int code) {
  std::cerr << "ipg envelope: " << message << "\n";
  return code;
}

int runEnvelope(const Args& args) {
  if (args.empty() || (args[0] != "seal" && args[0] != "open")) {
    std::cerr << kUsage;
    return 2;
  }
  const bool seal = args[0] == "seal";

  const qipg::Text key = merchantKey(args);
  if (!key) return fail("no key: give --key KEY or set QIPG_KEY", 2);
  if (!isAsciiText(*key)) return fail("the key must be ASCII text", 2);

  const std::optional<std::string> ivFlag = flagValue(args, "iv");
  if (ivFlag && flagValue(args, "env")) return fail("give --env or --iv, not both", 2);
  std::string iv;
  if (ivFlag) {
    if (ivFlag->size() != 16 || !isAsciiText(*ivFlag)) {
      return fail("--iv must be 16 ASCII characters", 2);
    }
    iv = *ivFlag;
  } else {
    std::string error;
    const std::optional<std::uint64_t> environment = environmentType(args, error);
    if (!environment) return fail(error, 2);
    iv = *environment == 1 ? kTestIV : kProductionIV;
  }

  PrivateDefaults store;
  if (!store.ready()) return fail("cannot create a private IV store in the temporary directory", 1);
  qipg::CommonUtilities::SetRandomIV(iv, std::string(kIVKey));
  if (qipg::CommonUtilities::getRandomIVforKey(std::string(kIVKey)) != iv) {
    return fail("cannot store the IV in the private store", 1);
  }

  std::optional<std::string> input = readInput();
  if (!input) return fail("input larger than 64 MiB", 1);

  if (seal) {
    if (!input->empty() && input->back() == '\n') input->pop_back();
    const std::string sealed = qipg::encryptTextWithEncKey(*input, key);
    if (sealed.empty()) return fail("cannot seal the message", 1);
    std::cout << sealed << "\n";
    return std::cout.flush() ? 0 : 1;
  }

  // The library answers "" both for text it cannot decode as Base64 and for the envelope of
  // an empty message; the latter is the one text that sealing "" gives (the IV is fixed).
  const std::string characters = base64Characters(*input);
  const qipg::Text plain = qipg::decryptTextWithDecryptionKey(*input, key);
  const bool emptyMessage =
      plain && plain->empty() &&
      characters == base64Characters(qipg::encryptTextWithEncKey(std::string(), key));
  if (characters.empty() || (plain && plain->empty() && !emptyMessage)) {
    return fail("cannot open: not Base64", 1);
  }
  if (!plain) return fail("cannot open: wrong key or IV, or damaged text", 1);
  std::cout << *plain << "\n";
  return std::cout.flush() ? 0 : 1;
}

const Registration registration{
    {"envelope", "seal or open a message envelope by hand", kUsage, &runEnvelope}};

}  // namespace
}  // namespace ipg
