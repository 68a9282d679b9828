// ipg envelope seal|open: the message envelope by hand, for comparing with a gateway's logs.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
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

struct EnvelopeOptions {
  GatewayOptions key;  // --key, --key-file
  std::string env;
  std::string iv;
  bool seal = false;
};

int runEnvelope(const EnvelopeOptions& o) {
  std::string error;
  MerchantCredentials credentials;
  if (!merchantCredentials(o.key, credentials, error)) return fail(error, 2);
  const qipg::Text& key = credentials.key;
  if (!key) return fail("no key: set QIPG_KEY or give --key-file FILE", 2);
  if (!isAsciiText(*key)) return fail("the key must be ASCII text", 2);

  std::string iv;
  if (!o.iv.empty()) {
    if (o.iv.size() != 16 || !isAsciiText(o.iv)) return fail("--iv must be 16 ASCII characters", 2);
    iv = o.iv;
  } else {
    iv = o.env == "production" ? kProductionIV : kTestIV;
  }

  PrivateDefaults store;
  if (!store.ready()) return fail("cannot create a private IV store in the temporary directory", 1);
  qipg::CommonUtilities::SetRandomIV(iv, std::string(kIVKey));
  if (qipg::CommonUtilities::getRandomIVforKey(std::string(kIVKey)) != iv) {
    return fail("cannot store the IV in the private store", 1);
  }

  std::optional<std::string> input = readInput();
  if (!input) return fail("input larger than 64 MiB", 1);

  if (o.seal) {
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

}  // namespace

Command addEnvelopeCommand(CLI::App& app) {
  auto o = std::make_shared<EnvelopeOptions>();
  CLI::App* sub = app.add_subcommand("envelope", "seal or open a message envelope by hand");
  sub->footer(
      "Seals a plain message the way the library seals a request, or opens an envelope text\n"
      "the way it opens a gateway's answer, for comparing with a gateway's logs. The IV is kept\n"
      "in a private temporary store for the run; the IV stored for other programs is left as\n"
      "it is. The key ($QIPG_KEY, else --key-file) is never printed.\n");
  sub->require_subcommand(1);
  CLI::App* seal = sub->add_subcommand(
      "seal",
      "read the plain message on standard input (ONE trailing newline is not part of it); print\n"
      "the envelope text (Base64, CR LF after every 76 characters, \"+\" written \"%2B\")");
  CLI::App* open = sub->add_subcommand(
      "open",
      "read an envelope text on standard input (line breaks and blanks ignored); print the\n"
      "plain text, or exit 1 with \"cannot open: not Base64\" or \"cannot open: wrong key or\n"
      "IV, or damaged text\". A wrong IV spoils only the first 16 bytes of a longer message");
  for (CLI::App* mode : {seal, open}) {
    mode->add_option("--key-file", o->key.keyFile,
                     "file with the key on its first line (owner-only)");
    addRefusedKeyOption(*mode);
    auto* env = mode->add_option("--env", o->env, "use that gateway's built-in IV (default test)")
                    ->check(CLI::IsMember({"test", "production"}));
    mode->add_option("--iv", o->iv, "use this 16-character IV text instead")->excludes(env);
  }
  seal->callback([o] { o->seal = true; });
  return {sub, [o] { return runEnvelope(*o); }};
}

}  // namespace ipg
