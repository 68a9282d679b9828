#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <string>

#include "qipg/StringEncryption.h"
#include "security/Wipe.h"

namespace qipg {
namespace {

// AES-256-CBC/PKCS #7 straight from OpenSSL, with the 32 key and 16 IV bytes spelled out.
Bytes reference(const Bytes& plain, std::string key32, std::string iv16) {
  key32.resize(32, '\0');
  iv16.resize(16, '\0');
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  Bytes out(plain.size() + 16);
  int n = 0, last = 0;
  EVP_EncryptInit_ex(ctx, EVP_aes_256_cbc(), nullptr,
                     reinterpret_cast<const unsigned char*>(key32.data()),
                     reinterpret_cast<const unsigned char*>(iv16.data()));
  EVP_EncryptUpdate(ctx, out.data(), &n, plain.data(), static_cast<int>(plain.size()));
  EVP_EncryptFinal_ex(ctx, out.data() + n, &last);
  EVP_CIPHER_CTX_free(ctx);
  out.resize(static_cast<std::size_t>(n + last));
  return out;
}

std::string repeat(const std::string& s, int n) {
  std::string out;
  while (n-- > 0) out += s;
  return out;
}

const std::string k32 = "0123456789abcdef0123456789ABCDEF";
const std::string iv = "4e9a1c07b3d58f26";

TEST(StringEncryption, KeyAndIvBuffers) {
  const std::string zero(1, '\0');
  struct Case {
    Text key, iv;
    std::string keyBytes, ivBytes;  // what the cipher must see (zero-padded)
  };
  const Case cases[] = {
      {k32, iv, k32, iv},
      {k32 + "X", iv, k32, iv},                    // 33: kept, 33rd not read
      {k32 + "XY", iv, zero + k32.substr(1), iv},  // 34: cut, first byte zeroed
      {"short", "short-iv", "short", "short-iv"},
      {std::nullopt, std::nullopt, "", ""},
      {repeat("\xC3\xA9", 10), iv, repeat("\xC3\xA9", 10), iv},  // 20 bytes fit
      {repeat("\xC3\xA9", 20), iv, "", iv},                      // 40 bytes do not: zeros
      {"\xC3\xA9" + k32, iv, "", iv},                            // 33 chars, 35 bytes: zeros
      {repeat("\xF0\x9F\x98\x80", 17), iv, "", iv},              // 34 units cut to 64 bytes
      {k32, iv + "X", k32, iv},                                  // 17 chars + NUL fit
      {k32, iv + "XY", k32, ""},                                 // 18 chars + NUL do not
  };
  const StringEncryption aes;
  const Bytes plain = {'p', 'a', 'y', '|', '1', '0', '0'};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.key.value_or("(absent)") + " / " + c.iv.value_or("(absent)"));
    const auto sealed = aes.encrypt(plain, c.key, c.iv);
    ASSERT_TRUE(sealed);
    EXPECT_EQ(*sealed, reference(plain, c.keyBytes, c.ivBytes));
    EXPECT_EQ(aes.decrypt(*sealed, c.key, c.iv), plain);
  }
}

TEST(StringEncryption, BlocksAndFailures) {
  const StringEncryption aes;
  const auto empty = aes.encrypt({}, k32, iv);
  ASSERT_EQ(empty->size(), 16u);
  EXPECT_EQ(aes.decrypt(*empty, k32, iv), Bytes{});
  const Bytes plain(40, 'x');
  const Bytes sealed = *aes.encrypt(plain, k32, iv);
  EXPECT_EQ(sealed.size(), 48u);
  EXPECT_NE(aes.decrypt(sealed, k32.substr(0, 31) + "g", iv), plain);
  EXPECT_NE(aes.decrypt(sealed, k32, "0000000000000000"), plain);
  EXPECT_EQ(aes.decrypt(Bytes(sealed.begin(), sealed.end() - 1), k32, iv), std::nullopt);
  EXPECT_EQ(aes.decrypt({}, k32, iv), std::nullopt);
  EXPECT_EQ(aes.generateRandomIV(0).size(), 0u);
  EXPECT_NE(aes.generateRandomIV(32), aes.generateRandomIV(32));
}

TEST(StringEncryption, Digests) {
  const StringEncryption aes;
  const std::string abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
  EXPECT_EQ(aes.sha256("abc", 32), abc.substr(0, 32));
  EXPECT_EQ(aes.sha256("abc", 100), abc);
  EXPECT_EQ(aes.sha256(std::string("abc\0def", 7), 64), abc);  // up to the first NUL
  EXPECT_EQ(aes.sha256("", 8), "e3b0c442");
  EXPECT_EQ(aes.sha256("\xC3\xA9", 32), std::nullopt);
  EXPECT_EQ(aes.md5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(aes.md5(std::string("abc\0x", 5)), "900150983cd24fb0d6963f7d28e17f72");
}

// A wiped secret leaves no byte of itself in the buffer it keeps, also past its length.
TEST(Wipe, OverwritesTheWholeBufferItKeeps) {
  std::string secret(40, 'k');
  secret.reserve(100);
  secret.resize(20);
  const char* buffer = secret.data();
  const std::size_t capacity = secret.capacity();
  internal::wipe(secret);
  EXPECT_TRUE(secret.empty());
  ASSERT_EQ(secret.data(), buffer);
  EXPECT_EQ(std::count(buffer, buffer + capacity, 'k'), 0);
}

}  // namespace
}  // namespace qipg
