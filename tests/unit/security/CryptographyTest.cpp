#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "TempStore.h"
#include "common/Ascii.h"
#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"
#include "qipg/StringEncryption.h"
#include "security/EnvelopeBase64.h"

namespace qipg {
namespace {

using internal::replaceAll;

const std::string kIv = "4e9a1c07b3d58f26";

class Envelope : public ::testing::Test {
 protected:
  void SetUp() override { CommonUtilities::SetRandomIV(kIv, "randomIV"); }
  testing::TempStore store;
};

// The envelope as plain single-line Base64: "%2B" undone, line breaks dropped.
std::string plainBase64(const std::string& envelope) {
  return replaceAll(replaceAll(envelope, "%2B", "+"), "\r\n", "");
}

TEST_F(Envelope, PlusIsEscapedAndOnlyTheExactEscapeIsRestored) {
  std::string message, sealed;
  for (int i = 0; sealed.find("%2B") == std::string::npos; ++i) {
    message = "message " + std::to_string(i);
    sealed = encryptTextWithEncKey(message, "key");
  }
  EXPECT_EQ(sealed.find('+'), std::string::npos);
  EXPECT_EQ(decryptTextWithDecryptionKey(sealed, "key"), message);
  EXPECT_EQ(decryptTextWithDecryptionKey(replaceAll(sealed, "%2B", "+"), "key"), message);
  const Text lower = decryptTextWithDecryptionKey(replaceAll(sealed, "%2B", "%2b"), "key");
  EXPECT_TRUE(!lower || lower->empty()) << *lower;
}

TEST_F(Envelope, ReceivedTexts) {
  const std::string message(60, 'q');
  const std::string sealed = encryptTextWithEncKey(message, "key");
  std::string noisy;
  for (char c : sealed) noisy += std::string(1, c) + (c == 'A' ? " \t*" : "");
  EXPECT_EQ(decryptTextWithDecryptionKey(noisy, "key"), message);
  EXPECT_EQ(replaceAll(sealed, "%2B", "+").find("\r\n"), 76u);  // 64 bytes: 88 characters
  EXPECT_EQ(decryptTextWithDecryptionKey(encryptTextWithEncKey(message, ""), ""), message);
  EXPECT_EQ(decryptTextWithDecryptionKey("QUJ", "key"), "");         // not whole groups
  EXPECT_EQ(decryptTextWithDecryptionKey("", "key"), std::nullopt);  // no block to decrypt
  EXPECT_EQ(decryptTextWithDecryptionKey(std::nullopt, "key"), std::nullopt);
  EXPECT_EQ(decryptTextWithDecryptionKey(sealed, "cl\xC3\xA9"), std::nullopt);
  EXPECT_NE(decryptTextWithDecryptionKey(sealed, "other key"), message);
  EXPECT_EQ(encryptTextWithEncKey("m", "cl\xC3\xA9"), "");

  // Plain bytes that are not UTF-8 give no text.
  const StringEncryption aes;
  const Text key = aes.sha256("key", 32);
  const Bytes notUtf8 = *aes.encrypt(Bytes{0xFF, 'a'}, key, kIv);
  EXPECT_EQ(decryptTextWithDecryptionKey(internal::envelopeBase64Encode(notUtf8), "key"),
            std::nullopt);

  // Another IV stored since: the envelope no longer opens to its message. None stored:
  // nothing seals or opens.
  CommonUtilities::SetRandomIV("d2071f8be64c395a", "randomIV");
  EXPECT_NE(decryptTextWithDecryptionKey(sealed, "key"), message);
  CommonUtilities::SetRandomIV(std::nullopt, "randomIV");
  EXPECT_EQ(encryptTextWithEncKey("m", "key"), "");
  EXPECT_EQ(decryptTextWithDecryptionKey(sealed, "key"), std::nullopt);
}

// ---- interoperability with the OpenSSL command-line tool

std::string run(const std::string& command) {
  std::string out;
  if (FILE* p = popen((command + " 2>/dev/null").c_str(), "r")) {
    char buffer[4096];
    for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, p)) > 0;) out.append(buffer, n);
    if (pclose(p) != 0) return "(failed)";
  }
  if (!out.empty() && out.back() == '\n') out.pop_back();
  return out;
}

std::string hex(const std::string& s) {
  std::string out;
  for (unsigned char c : s) out += {"0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
  return out;
}

TEST_F(Envelope, InteroperatesWithOpensslTool) {
  if (run("openssl version").rfind("OpenSSL", 0) != 0) GTEST_SKIP() << "no openssl tool";
  const std::string merchantKey = "Merchant-Key/with+odd chars 0123456789";
  const std::string in = store.dir.file("in");
  std::ofstream(in) << merchantKey;
  // The message key from the tool's own SHA-256: its first 32 hex digits, used as ASCII.
  const std::string messageKey = run("openssl dgst -sha256 -r " + in).substr(0, 32);
  const std::string cipher =
      "openssl enc -aes-256-cbc -K " + hex(messageKey) + " -iv " + hex(kIv) + " -base64 -A";

  for (const std::string& message : {std::string("ORD-1|TXN-9|250.00|LKR"), std::string(),
                                     std::string(48, 'm'), std::string(200, 'x') + "|\xC3\xA9"}) {
    const std::string sealed = encryptTextWithEncKey(message, merchantKey);
    std::ofstream(in, std::ios::binary) << message;
    const std::string fromTool = run(cipher + " -in " + in);
    EXPECT_EQ(plainBase64(sealed), fromTool);  // byte for byte
    EXPECT_EQ(decryptTextWithDecryptionKey(fromTool, merchantKey), message);
    EXPECT_EQ(decryptTextWithDecryptionKey(replaceAll(fromTool, "+", "%2B"), merchantKey), message);
    std::ofstream(in, std::ios::binary) << plainBase64(sealed);
    EXPECT_EQ(run(cipher + " -d -in " + in), message);
  }
}

}  // namespace
}  // namespace qipg
