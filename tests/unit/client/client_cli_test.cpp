// The ipg tool's envelope commands, run as a user runs them, and checked against the OpenSSL
// command-line tool as an outside implementation of the same cipher.
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "client_support.h"
#include "qipg/CommonUtilities.h"

namespace qipg_test {
namespace {

struct Outcome {
  int exitCode = -1;
  std::string out;
  std::string err;
};

std::string quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

std::string hexOf(const std::string& bytes) {
  static const char* digits = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) {
    out += digits[c >> 4];
    out += digits[c & 15];
  }
  return out;
}

class EnvelopeCommand : public ClientTest {
 protected:
  void SetUp() override {
    ClientTest::SetUp();
    const char* binDir = std::getenv("IPG_BIN_DIR");
    ipg_ = binDir != nullptr && *binDir != '\0'
               ? std::filesystem::path(binDir) / "ipg"
               : std::filesystem::read_symlink("/proc/self/exe").parent_path() / "ipg";
    ASSERT_TRUE(std::filesystem::exists(ipg_)) << ipg_ << ": build the ipg target first";
    tmp_ = dir() / "tmp";
    std::filesystem::create_directory(tmp_);
    env_ = std::make_unique<ScopedEnv>("TMPDIR", tmp_.string());
    unsetKey_ = std::make_unique<ScopedEnv>("QIPG_KEY", std::nullopt);
  }

  void TearDown() override {
    env_.reset();
    unsetKey_.reset();
    ClientTest::TearDown();
  }

  std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream all;
    all << in.rdbuf();
    return all.str();
  }

  // Runs a shell command line with `input` on standard input.
  Outcome shell(const std::string& commandLine, const std::string& input) {
    const auto in = dir() / "stdin", out = dir() / "stdout", err = dir() / "stderr";
    writeFile(in, input);
    const std::string line = commandLine + " < " + quoted(in.string()) + " > " +
                             quoted(out.string()) + " 2> " + quoted(err.string());
    const int status = std::system(line.c_str());
    Outcome run;
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.out = readFile(out);
    run.err = readFile(err);
    return run;
  }

  // The AES key of a merchant key, from outside the library: the first 32 hex characters of
  // its SHA-256, as ASCII bytes, written in hex for `openssl enc -K`.
  std::string opensslKeyHex(const std::string& merchantKey) {
    const Outcome digest = shell("openssl dgst -sha256 -r", merchantKey);
    EXPECT_EQ(digest.exitCode, 0) << digest.err;
    EXPECT_GE(digest.out.size(), 32u);
    return hexOf(digest.out.substr(0, 32));
  }

  Outcome ipg(const std::string& arguments, const std::string& input) {
    return shell(quoted(ipg_.string()) + " " + arguments, input);
  }

  std::filesystem::path ipg_;
  std::filesystem::path tmp_;
  std::unique_ptr<ScopedEnv> env_;
  std::unique_ptr<ScopedEnv> unsetKey_;
};

TEST_F(EnvelopeCommand, SealThenOpenGivesTheMessageBack) {
  const std::string messages[] = {
      "M123|O1|10.50|INR|-|S|-|-|-|U|-|-|-|-|-|-|-|-|-|-",
      "",
      std::string(120, 'x'),  // several lines of envelope text
      "caf\xC3\xA9 \xE2\x82\xAC",
      "ends in a newline\n",  // only one trailing newline is taken off the input
  };
  const std::string choices[] = {"", "--env test", "--env production", "--iv 0123456789abcdef"};
  for (const std::string& choice : choices) {
    for (const std::string& message : messages) {
      SCOPED_TRACE(choice + " / " + message);
      const Outcome sealed = ipg("envelope seal --key Key123 " + choice, message + "\n");
      ASSERT_EQ(sealed.exitCode, 0) << sealed.err;
      ASSERT_FALSE(sealed.out.empty());
      EXPECT_EQ(sealed.out.back(), '\n');
      EXPECT_EQ(sealed.out.find('+'), std::string::npos);
      for (std::size_t i = 1; i + 1 < sealed.out.size(); ++i) {
        if (sealed.out[i] == '\n') {
          EXPECT_EQ(sealed.out[i - 1], '\r') << "bare newline at " << i;
        }
      }
      const Outcome opened = ipg("envelope open --key Key123 " + choice, sealed.out);
      EXPECT_EQ(opened.exitCode, 0) << opened.err;
      EXPECT_EQ(opened.out, message + "\n");
    }
  }
}

TEST_F(EnvelopeCommand, RefusalsSayWhyAndNeverShowTheKey) {
  const Outcome sealed = ipg("envelope seal --key SecretKey77", "hello");
  ASSERT_EQ(sealed.exitCode, 0);
  const std::string wrong = "ipg envelope: cannot open: wrong key or IV, or damaged text\n";
  struct Row {
    std::string arguments;
    std::string input;
    int exitCode;
    std::string err;
  };
  const Row rows[] = {
      {"envelope open --key OtherKey", sealed.out, 1, wrong},
      {"envelope open --key SecretKey77 --env production", sealed.out, 1, wrong},
      {"envelope open --key SecretKey77", sealed.out.substr(0, 20), 1, wrong},
      {"envelope open --key SecretKey77", "!!! ???\n", 1,
       "ipg envelope: cannot open: not Base64\n"},
      {"envelope open --key SecretKey77", sealed.out.substr(0, 21), 1,
       "ipg envelope: cannot open: not Base64\n"},
      {"envelope open --key SecretKey77", "\n", 1, "ipg envelope: cannot open: not Base64\n"},
      {"envelope seal --key SecretKey77 --iv short", "x", 2,
       "ipg envelope: --iv must be 16 ASCII characters\n"},
      {"envelope seal --key SecretKey77 --iv 0123456789abcdef --env test", "x", 2,
       "ipg envelope: give --env or --iv, not both\n"},
      {"envelope seal --key SecretKey77 --env staging", "x", 2,
       "ipg envelope: --env must be test or production, not \"staging\"\n"},
      {"envelope seal", "x", 2, "ipg envelope: no key: give --key KEY or set QIPG_KEY\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.arguments);
    const Outcome run = ipg(row.arguments, row.input);
    EXPECT_EQ(run.exitCode, row.exitCode);
    EXPECT_EQ(run.err, row.err);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err.find("SecretKey77"), std::string::npos);
  }
  EXPECT_EQ(ipg("envelope", "").exitCode, 2);
}

TEST_F(EnvelopeCommand, LeavesTheStoredIVAndNoTemporaryFilesBehind) {
  qipg::CommonUtilities::SetRandomIV(std::string("userIV0123456789"), std::string("randomIV"));
  ASSERT_EQ(ipg("envelope seal --key Key123 --env production", "x").exitCode, 0);
  ASSERT_EQ(ipg("envelope open --key Key123", "!!").exitCode, 1);
  EXPECT_EQ(qipg::CommonUtilities::getRandomIVforKey(std::string("randomIV")), "userIV0123456789");
  EXPECT_TRUE(std::filesystem::is_empty(tmp_));
}

TEST_F(EnvelopeCommand, InteroperatesWithTheOpenSslTool) {
  const std::string key = "MerchantKey42";
  const std::string keyHex = opensslKeyHex(key);
  const std::string message = "M123|O1|10.50|INR|Books|S|-|-|-|U|" + std::string(80, 'z');
  struct Row {
    const char* ipgChoice;
    const char* iv;
  };
  const Row rows[] = {{"--env test", "4e9a1c07b3d58f26"},
                      {"--env production", "d2071f8be64c395a"},
                      {"--iv ABCDEFGHabcdefgh", "ABCDEFGHabcdefgh"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.ipgChoice);
    const std::string openssl =
        "openssl enc -aes-256-cbc -K " + keyHex + " -iv " + hexOf(row.iv) + " -base64 -A";

    // ipg seals, openssl opens: undo the line breaks and the "%2B" first.
    const Outcome sealed = ipg("envelope seal --key " + key + " " + row.ipgChoice, message);
    ASSERT_EQ(sealed.exitCode, 0) << sealed.err;
    std::string base64;
    for (std::size_t i = 0; i < sealed.out.size(); ++i) {
      if (sealed.out.compare(i, 3, "%2B") == 0) {
        base64 += '+';
        i += 2;
      } else if (sealed.out[i] != '\r' && sealed.out[i] != '\n') {
        base64 += sealed.out[i];
      }
    }
    const Outcome opened = shell(openssl + " -d", base64);
    EXPECT_EQ(opened.exitCode, 0) << opened.err;
    EXPECT_EQ(opened.out, message);

    // openssl seals, ipg opens.
    const Outcome foreign = shell(openssl, message);
    ASSERT_EQ(foreign.exitCode, 0) << foreign.err;
    const Outcome back = ipg("envelope open --key " + key + " " + row.ipgChoice, foreign.out);
    EXPECT_EQ(back.exitCode, 0) << back.err;
    EXPECT_EQ(back.out, message + "\n");
  }
}

}  // namespace
}  // namespace qipg_test
