#include <gtest/gtest.h>

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

}  // namespace
}  // namespace qipg
