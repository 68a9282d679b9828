#include "qipg/StringEncryption.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <string_view>

#include "common/Ascii.h"
#include "security/OpenSsl.h"

namespace qipg {
namespace {

constexpr std::size_t kKeyBufferSize = 34;  // AES-256 reads the first 32
constexpr std::size_t kIvBufferSize = 18;   // CBC reads the first 16
constexpr std::size_t kLongKey = 34;        // characters from which a key is cut
constexpr std::size_t kCutKeyTo = 32;

// The scratch buffers of one cipher call; wiped when the call ends.
struct KeyMaterial {
  unsigned char key[kKeyBufferSize] = {};
  unsigned char iv[kIvBufferSize] = {};
  KeyMaterial() = default;
  KeyMaterial(const KeyMaterial&) = delete;
  KeyMaterial& operator=(const KeyMaterial&) = delete;
  ~KeyMaterial() {
    OPENSSL_cleanse(key, sizeof key);
    OPENSSL_cleanse(iv, sizeof iv);
  }
};

// Copies `text` and a NUL into `buffer` when they fit; otherwise leaves it zero.
void copyWithNul(std::string_view text, unsigned char* buffer, std::size_t size) {
  if (text.size() + 1 > size) return;
  std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = 0;
}

void fillKeyMaterial(const Text& key, const Text& iv, KeyMaterial& m) {
  if (key) {
    const bool longKey = internal::utf16Length(*key) >= kLongKey;
    if (longKey) {
      std::string cut = internal::utf16Prefix(*key, kCutKeyTo);
      copyWithNul(cut, m.key, sizeof m.key);
      OPENSSL_cleanse(cut.data(), cut.size());
      m.key[0] = 0;
    } else {
      copyWithNul(*key, m.key, sizeof m.key);
    }
  }
  if (iv) copyWithNul(*iv, m.iv, sizeof m.iv);
}

std::optional<Bytes> runCipher(bool encrypting, const Bytes& input, const Text& key,
                               const Text& iv) {
  if (input.size() > static_cast<std::size_t>(INT_MAX) - 32) return std::nullopt;
  KeyMaterial m;
  fillKeyMaterial(key, iv, m);

  internal::CipherCtx ctx(EVP_CIPHER_CTX_new());
  if (!ctx) return std::nullopt;
  if (EVP_CipherInit_ex2(ctx.get(), internal::aes256Cbc(), m.key, m.iv, encrypting ? 1 : 0,
                         nullptr) != 1) {
    return std::nullopt;
  }

  Bytes out(input.size() + 16);
  int written = 0;
  int last = 0;
  if (EVP_CipherUpdate(ctx.get(), out.data(), &written, input.data(),
                       static_cast<int>(input.size())) != 1 ||
      EVP_CipherFinal_ex(ctx.get(), out.data() + written, &last) != 1) {
    OPENSSL_cleanse(out.data(), out.size());
    return std::nullopt;
  }
  out.resize(static_cast<std::size_t>(written) + static_cast<std::size_t>(last));
  return out;
}

constexpr char kHex[] = "0123456789abcdef";

std::string lowerHex(const unsigned char* bytes, std::size_t size) {
  std::string out(size * 2, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    out[2 * i] = kHex[bytes[i] >> 4];
    out[2 * i + 1] = kHex[bytes[i] & 0x0F];
  }
  return out;
}

// The bytes of `text` up to its first NUL.
std::string_view upToNul(const std::string& text) {
  return std::string_view(text.data(), std::strlen(text.c_str()));
}

}  // namespace

std::optional<Bytes> StringEncryption::encrypt(const Bytes& plainText, const Text& key,
                                               const Text& iv) const {
  return runCipher(true, plainText, key, iv);
}

std::optional<Bytes> StringEncryption::decrypt(const Bytes& cipherText, const Text& key,
                                               const Text& iv) const {
  return runCipher(false, cipherText, key, iv);
}

Text StringEncryption::md5(const Text& str) const {
  if (!str) return std::nullopt;
  const std::string_view bytes = upToNul(*str);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, internal::md5Digest(), nullptr) != 1) {
    return std::nullopt;
  }
  return lowerHex(digest, size);
}

Bytes StringEncryption::generateRandomIV(std::size_t length) const {
  Bytes out(length, 0);
  // A failing random source leaves the buffer as it stands, as documented.
  for (std::size_t done = 0; done < length;) {
    const int chunk = static_cast<int>(std::min<std::size_t>(length - done, INT_MAX));
    if (RAND_bytes(out.data() + done, chunk) != 1) break;
    done += static_cast<std::size_t>(chunk);
  }
  return out;
}

Text StringEncryption::sha256(const Text& key, std::size_t length) const {
  if (!key || !internal::isAscii(*key)) return std::nullopt;
  const std::string_view bytes = upToNul(*key);
  unsigned char digest[EVP_MAX_MD_SIZE] = {};
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, internal::sha256Digest(), nullptr) !=
      1) {
    return std::nullopt;
  }
  std::string hex = lowerHex(digest, size);
  OPENSSL_cleanse(digest, sizeof digest);  // a derived key, in the envelope's use
  if (length < hex.size()) {
    OPENSSL_cleanse(hex.data() + length, hex.size() - length);
    hex.resize(length);
  }
  return hex;
}

}  // namespace qipg
