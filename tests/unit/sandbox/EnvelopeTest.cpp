// The sandbox's envelope against vectors made with the OpenSSL command-line tool, and against
// the client library's envelope in both directions.
#include <gtest/gtest.h>
#include <qipg/Cryptography.h>

#include "GatewayCrypto.h"
#include "SandboxTestSupport.h"

namespace qipg::sandbox::internal {
namespace {

// Made with: printf '%s' MSG | openssl enc -aes-256-cbc -base64 -A
//   -K $(printf '%s' KEY | sha256sum | cut -c1-32 | xxd -p -c 64) -iv $(printf IV | xxd -p)
// then a CR LF after 76 characters and "+" written "%2B".
struct Vector {
  const char* message;
  const char* key;
  std::string_view iv;
  const char* envelope;
};

const Vector kVectors[] = {
    {"QIPGTEST0001|ORD1|410000000001|3.00|-|-|-|-|-|-|-|-|-|-", "qipgSandboxTestKey0123456789ABCD",
     kTestIV,
     "z7vK4RpxI6ar7qImi6YlGQEprVrRcZARFB/1jXomIJnfybi33gyu0ZBrfmnBPANQJIeH8uYZlUup\r\n"
     "zrOkbCU5SA=="},
    {"QIPGTEST0001|ORD1|||||||||||||", "shortkey", kTestIV,
     "Zq134UWDNL6xIRKzK0MbeCw8H1ys00OGH9B%2B8TBNni4="},
    {"M1|O1|99|||||||||||", "shortkey", kTestIV, "Exe6UzNgAk8e%2BSmPMgVwU/skmK11mzQ84pKe85nVWLA="},
    {"M1|O1|99|||||||||||", "qipgSandboxTestKey0123456789ABCD", kProductionIV,
     "UqOOlD3pLq%2BxRExtz/Go5YFvBbjRY/oVZZ6Oi1FqQjY="},
};

TEST(GatewayEnvelope, SealsAndOpensKnownVectors) {
  for (const Vector& v : kVectors) {
    SCOPED_TRACE(v.message);
    EXPECT_EQ(sealEnvelope(v.message, v.key, v.iv), v.envelope);
    EXPECT_EQ(openEnvelope(v.envelope, v.key, v.iv), v.message);
  }
}

// Wrong keys and the browser's encodings of a form reach it through the server's tests.
TEST(GatewayEnvelope, OpensBareLineFeedsButNothingDamagedAndOnlyTheRightIV) {
  const Vector& v = kVectors[0];
  std::string lfOnly = v.envelope;
  lfOnly.erase(lfOnly.find('\r'), 1);
  EXPECT_EQ(openEnvelope(lfOnly, v.key, v.iv), v.message);
  std::string damaged = v.envelope;  // a changed last block spoils the padding
  damaged[damaged.size() - 5] = damaged[damaged.size() - 5] == 'A' ? 'B' : 'A';
  for (const std::string& bad : {damaged, std::string(v.envelope).substr(0, 44), std::string()}) {
    EXPECT_EQ(openEnvelope(bad, v.key, v.iv), std::nullopt) << bad;
  }
  // The other environment's IV garbles only the first block, into ASCII (both IVs are ASCII).
  const auto otherIV = openEnvelope(v.envelope, v.key, kProductionIV);
  ASSERT_TRUE(otherIV.has_value());
  EXPECT_NE(otherIV->substr(0, 16), std::string(v.message).substr(0, 16));
  EXPECT_EQ(otherIV->substr(16), std::string(v.message).substr(16));
}

TEST(GatewayEnvelope, InteroperatesWithTheClientLibrary) {
  testing::useTestIV();
  const std::string messages[] = {"",
                                  "M1|O1|99|||||||||||",
                                  std::string(47, 'x'),
                                  std::string(48, 'y'),
                                  "QIPGTEST0001|ORDER7|10.50|INR|-|S|-|-|-|https://127.0.0.1:1/ipg/"
                                  "paymentInvoice|-|-|-|-|-|-|-|-|-|-|CC|4111111111111111|1230|123"
                                  "|Jane Doe|NA",
                                  "caf\xc3\xa9 \xe2\x82\xac"};
  for (const char* key : {"qipgSandboxTestKey0123456789ABCD", "k", "eightchr"}) {
    for (const std::string& m : messages) {
      SCOPED_TRACE(std::string(key) + " / " + m);
      EXPECT_EQ(openEnvelope(qipg::encryptTextWithEncKey(m, std::string(key)), key, kTestIV), m);
      EXPECT_EQ(qipg::decryptTextWithDecryptionKey(sealEnvelope(m, key, kTestIV), std::string(key)),
                m);
    }
  }
}

TEST(GatewayEnvelope, RejectsPlainBytesThatAreNotUtf8) {
  // A cipher text of bytes that are not UTF-8, sealed by hand.
  const std::string sealed = sealEnvelope("\xff\xfe", "k", kTestIV);
  EXPECT_EQ(openEnvelope(sealed, "k", kTestIV), std::nullopt);
  EXPECT_TRUE(isUtf8("plain \xc3\xa9 \xf0\x9f\x98\x80"));
  for (const char* bad : {"\xc0\xaf", "\xed\xa0\x80", "\xe2\x82", "\xf4\x90\x80\x80", "\x80"}) {
    EXPECT_FALSE(isUtf8(bad)) << bad;
  }
}

}  // namespace
}  // namespace qipg::sandbox::internal
