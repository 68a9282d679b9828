// The ipg tool's envelope commands, run as a user runs them, and checked against the OpenSSL
// command-line tool as an outside implementation of the same cipher.
#include <string>

#include "unit/client/ClientSupport.h"
#include "qipg/CommonUtilities.h"

namespace qipg_test {
namespace {

std::string hexOf(const std::string& bytes) {
  static const char* digits = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) out += {digits[c >> 4], digits[c & 15]};
  return out;
}

class EnvelopeCommand : public ClientTest {
 protected:
  void SetUp() override {
    ClientTest::SetUp();
    ASSERT_TRUE(std::filesystem::exists(ipgProgram())) << "build the ipg target first";
    tmp_ = dir() / "tmp";
    std::filesystem::create_directory(tmp_);
    env_.push_back(std::make_unique<ScopedEnv>("TMPDIR", tmp_.string()));
    env_.push_back(std::make_unique<ScopedEnv>("QIPG_KEY", std::nullopt));
  }
  void TearDown() override {
    env_.clear();
    ClientTest::TearDown();
  }

  // Runs ipg with `key` in QIPG_KEY (none when empty).
  ProcessRun ipg(const std::string& arguments, const std::string& input,
                 const std::string& key = "") {
    return shell((key.empty() ? "" : "QIPG_KEY=" + quoted(key) + " ") +
                     quoted(ipgProgram().string()) + " " + arguments,
                 input);
  }

  std::filesystem::path tmp_;
  std::vector<std::unique_ptr<ScopedEnv>> env_;
};

TEST_F(EnvelopeCommand, RefusalsSayWhyNeverShowTheKeyAndLeaveNothingBehind) {
  qipg::CommonUtilities::SetRandomIV(std::string("userIV0123456789"), std::string("randomIV"));
  const std::string key = "SecretKey77";
  const ProcessRun sealed = ipg("envelope seal --env test", "hello", key);
  ASSERT_EQ(sealed.exitCode, 0);
  const std::string wrong = "ipg envelope: cannot open: wrong key or IV, or damaged text\n";
  const std::string notBase64 = "ipg envelope: cannot open: not Base64\n";
  const std::string open = "envelope open --env test";
  const std::string help = "Run with --help for more information.\n";
  const struct {
    std::string arguments, input, key;
    int exitCode;
    std::string err;
  } rows[] = {
      {open, sealed.out, "OtherKey", 1, wrong},
      {open, sealed.out.substr(0, 20), key, 1, wrong},
      {open, "!!! ???\n", key, 1, notBase64},
      {open, "\n", key, 1, notBase64},
      {"envelope seal --iv short", "x", key, 2, "ipg envelope: --iv must be 16 ASCII characters\n"},
      {"envelope seal --iv 0123456789abcdef --env test", "x", key, 2,
       "--env excludes --iv\n" + help},
      {"envelope seal --env staging", "x", key, 2,
       "--env: staging not in {test,production}\n" + help},
      {"envelope seal", "x", "", 2, "ipg envelope: no key: set QIPG_KEY or give --key-file FILE\n"},
      // Never from the command line, where every user sees it; the key itself is not echoed.
      {"envelope seal --key " + key, "x", "", 2,
       "--key: a key on the command line is visible to other users in the process list; use "
       "$QIPG_KEY, --key-file FILE or the prompt\n" +
           help},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.arguments);
    const ProcessRun run = ipg(row.arguments, row.input, row.key);
    EXPECT_EQ(run.exitCode, row.exitCode);
    EXPECT_EQ(run.err, row.err);
    EXPECT_EQ(run.out.empty(), row.exitCode != 0);
    EXPECT_EQ(run.err.find(key), std::string::npos);
  }
  EXPECT_EQ(qipg::CommonUtilities::getRandomIVforKey(std::string("randomIV")), "userIV0123456789");
  EXPECT_TRUE(std::filesystem::is_empty(tmp_));
}

TEST_F(EnvelopeCommand, InteroperatesWithTheOpenSslTool) {
  const std::string key = "MerchantKey42";
  // The AES key from outside the library: the first 32 hex characters of the merchant key's
  // SHA-256, as ASCII bytes.
  const ProcessRun digest = shell("openssl dgst -sha256 -r", key);
  ASSERT_EQ(digest.exitCode, 0) << digest.err;
  const std::string keyHex = hexOf(digest.out.substr(0, 32));
  const std::string message = "M123|O1|10.50|INR|Books|S|-|-|-|U|" + std::string(80, 'z');
  const std::pair<const char*, const char*> rows[] = {
      {"--env test", "4e9a1c07b3d58f26"},
      {"--env production", "d2071f8be64c395a"},
      {"--iv ABCDEFGHabcdefgh", "ABCDEFGHabcdefgh"}};
  for (const auto& [ipgChoice, iv] : rows) {
    SCOPED_TRACE(ipgChoice);
    const std::string openssl =
        "openssl enc -aes-256-cbc -K " + keyHex + " -iv " + hexOf(iv) + " -base64 -A";

    // ipg seals, openssl opens: undo the line breaks and the "%2B" first.
    const ProcessRun sealed = ipg(std::string("envelope seal ") + ipgChoice, message, key);
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
    const ProcessRun opened = shell(openssl + " -d", base64);
    EXPECT_EQ(opened.exitCode, 0) << opened.err;
    EXPECT_EQ(opened.out, message);

    // openssl seals, ipg opens.
    const ProcessRun foreign = shell(openssl, message);
    ASSERT_EQ(foreign.exitCode, 0) << foreign.err;
    const ProcessRun back = ipg(std::string("envelope open ") + ipgChoice, foreign.out, key);
    EXPECT_EQ(back.exitCode, 0) << back.err;
    EXPECT_EQ(back.out, message + "\n");
  }
}

}  // namespace
}  // namespace qipg_test
