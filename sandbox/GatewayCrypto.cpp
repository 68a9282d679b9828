#include "GatewayCrypto.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <array>
#include <memory>

namespace qipg::sandbox::internal {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kLineLength = 76;

struct CipherCtxDeleter {
  void operator()(EVP_CIPHER_CTX* ctx) const { EVP_CIPHER_CTX_free(ctx); }
};
using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, CipherCtxDeleter>;

// The 32 ASCII key bytes derived from a merchant key; wiped on release.
class MessageKey {
 public:
  explicit MessageKey(std::string_view merchantKey) : hex_(sha256Hex(merchantKey)) {}
  ~MessageKey() { wipe(hex_); }
  MessageKey(const MessageKey&) = delete;
  MessageKey& operator=(const MessageKey&) = delete;
  const unsigned char* bytes() const { return reinterpret_cast<const unsigned char*>(hex_.data()); }

 private:
  std::string hex_;  // 64 characters; the first 32 are the key
};

int alphabetIndex(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

std::optional<std::vector<std::uint8_t>> runCipher(bool encrypt, const std::uint8_t* data,
                                                   std::size_t size, std::string_view merchantKey,
                                                   std::string_view iv) {
  if (iv.size() != 16) return std::nullopt;
  if (size > static_cast<std::size_t>(INT32_MAX) - 32) return std::nullopt;
  MessageKey key(merchantKey);
  CipherCtx ctx(EVP_CIPHER_CTX_new());
  if (!ctx) return std::nullopt;
  const auto* ivBytes = reinterpret_cast<const unsigned char*>(iv.data());
  if (EVP_CipherInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, key.bytes(), ivBytes,
                        encrypt ? 1 : 0) != 1) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> out(size + 32);
  int written = 0;
  int finalLength = 0;
  if (EVP_CipherUpdate(ctx.get(), out.data(), &written, data, static_cast<int>(size)) != 1 ||
      EVP_CipherFinal_ex(ctx.get(), out.data() + written, &finalLength) != 1) {
    OPENSSL_cleanse(out.data(), out.size());
    return std::nullopt;
  }
  out.resize(static_cast<std::size_t>(written + finalLength));
  return out;
}

}  // namespace

std::string sha256Hex(std::string_view data) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
    return {};
  }
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(length * 2);
  for (unsigned int i = 0; i < length; ++i) {
    hex.push_back(kHex[digest[i] >> 4]);
    hex.push_back(kHex[digest[i] & 0x0f]);
  }
  OPENSSL_cleanse(digest.data(), digest.size());
  return hex;
}

std::string base64Encode(const std::vector<std::uint8_t>& bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t group = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
    out.push_back(kAlphabet[(group >> 18) & 63]);
    out.push_back(kAlphabet[(group >> 12) & 63]);
    out.push_back(kAlphabet[(group >> 6) & 63]);
    out.push_back(kAlphabet[group & 63]);
  }
  const std::size_t rest = bytes.size() - i;
  if (rest > 0) {
    std::uint32_t group = bytes[i] << 16;
    if (rest == 2) group |= bytes[i + 1] << 8;
    out.push_back(kAlphabet[(group >> 18) & 63]);
    out.push_back(kAlphabet[(group >> 12) & 63]);
    out.push_back(rest == 2 ? kAlphabet[(group >> 6) & 63] : '=');
    out.push_back('=');
  }
  return out;
}

std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text) {
  std::string compact;
  compact.reserve(text.size());
  for (char c : text) {
    if (c == '\r' || c == '\n' || c == ' ' || c == '\t') continue;
    compact.push_back(c);
  }
  if (compact.size() % 4 != 0) return std::nullopt;
  std::vector<std::uint8_t> out;
  out.reserve(compact.size() / 4 * 3);
  for (std::size_t i = 0; i < compact.size(); i += 4) {
    const bool last = i + 4 == compact.size();
    int values[4];
    int padding = 0;
    for (int j = 0; j < 4; ++j) {
      const char c = compact[i + j];
      if (c == '=') {
        // Padding only at the end of the last group: "xx==" or "xxx=".
        if (!last || j < 2) return std::nullopt;
        ++padding;
        values[j] = 0;
        continue;
      }
      if (padding > 0) return std::nullopt;
      values[j] = alphabetIndex(c);
      if (values[j] < 0) return std::nullopt;
    }
    const std::uint32_t group =
        (values[0] << 18) | (values[1] << 12) | (values[2] << 6) | values[3];
    out.push_back(static_cast<std::uint8_t>(group >> 16));
    if (padding < 2) out.push_back(static_cast<std::uint8_t>(group >> 8));
    if (padding < 1) out.push_back(static_cast<std::uint8_t>(group));
  }
  return out;
}

std::string sealEnvelope(std::string_view plain, std::string_view merchantKey,
                         std::string_view iv) {
  auto cipher = runCipher(true, reinterpret_cast<const std::uint8_t*>(plain.data()), plain.size(),
                          merchantKey, iv);
  if (!cipher) return {};
  const std::string base64 = base64Encode(*cipher);
  std::string out;
  out.reserve(base64.size() + base64.size() / kLineLength * 2 + base64.size() / 8);
  for (std::size_t i = 0; i < base64.size(); ++i) {
    if (i > 0 && i % kLineLength == 0) out += "\r\n";
    if (base64[i] == '+') {
      out += "%2B";
    } else {
      out.push_back(base64[i]);
    }
  }
  return out;
}

std::optional<std::string> openEnvelope(std::string_view envelope, std::string_view merchantKey,
                                        std::string_view iv) {
  std::string restored;
  restored.reserve(envelope.size());
  for (std::size_t i = 0; i < envelope.size(); ++i) {
    if (envelope.compare(i, 3, "%2B") == 0) {
      restored.push_back('+');
      i += 2;
    } else {
      restored.push_back(envelope[i]);
    }
  }
  auto cipher = base64Decode(restored);
  if (!cipher || cipher->empty()) return std::nullopt;
  auto plain = runCipher(false, cipher->data(), cipher->size(), merchantKey, iv);
  if (!plain) return std::nullopt;
  std::string text(plain->begin(), plain->end());
  OPENSSL_cleanse(plain->data(), plain->size());
  if (!isUtf8(text)) {
    wipe(text);
    return std::nullopt;
  }
  return text;
}

bool isUtf8(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    const auto c = static_cast<unsigned char>(text[i]);
    std::size_t extra = 0;
    std::uint32_t cp = 0;
    if (c < 0x80) {
      ++i;
      continue;
    } else if (c >= 0xc2 && c <= 0xdf) {
      extra = 1;
      cp = c & 0x1f;
    } else if (c >= 0xe0 && c <= 0xef) {
      extra = 2;
      cp = c & 0x0f;
    } else if (c >= 0xf0 && c <= 0xf4) {
      extra = 3;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (i + extra >= text.size()) return false;
    for (std::size_t k = 1; k <= extra; ++k) {
      const auto cc = static_cast<unsigned char>(text[i + k]);
      if ((cc & 0xc0) != 0x80) return false;
      cp = (cp << 6) | (cc & 0x3f);
    }
    if ((extra == 2 && cp < 0x800) || (extra == 3 && cp < 0x10000) || cp > 0x10ffff ||
        (cp >= 0xd800 && cp <= 0xdfff)) {
      return false;
    }
    i += extra + 1;
  }
  return true;
}

std::string randomHex(std::size_t length) {
  std::vector<unsigned char> bytes(length);
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) return {};
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  for (unsigned char b : bytes) {
    out.push_back(kHex[b >> 4]);
    out.push_back(kHex[b & 0x0f]);
  }
  return out;
}

std::string randomDigits(std::size_t count) {
  std::string out;
  while (out.size() < count) {
    unsigned char b = 0;
    if (RAND_bytes(&b, 1) != 1) return {};
    if (b < 250) out.push_back(static_cast<char>('0' + b % 10));  // no modulo bias
  }
  return out;
}

void wipe(std::string& secret) {
  if (!secret.empty()) OPENSSL_cleanse(secret.data(), secret.size());
  secret.clear();
}

void wipe(std::vector<std::string>& secrets) {
  for (std::string& s : secrets) wipe(s);
  secrets.clear();
}

}  // namespace qipg::sandbox::internal
