#include "qipg/Cryptography.h"

#include <openssl/crypto.h>

#include "common/Ascii.h"
#include "qipg/CommonUtilities.h"
#include "qipg/StringEncryption.h"
#include "security/EnvelopeBase64.h"

namespace qipg {
namespace {

constexpr char kIvKey[] = "randomIV";
constexpr std::size_t kMessageKeyLength = 32;

// Wipes a buffer that held a key or a plain message (which may carry card data) when it goes.
template <typename Buffer>
class Wiped {
 public:
  explicit Wiped(Buffer value) : value_(std::move(value)) {}
  ~Wiped() {
    if (value_) OPENSSL_cleanse(value_->data(), value_->size());
  }
  Wiped(const Wiped&) = delete;
  Wiped& operator=(const Wiped&) = delete;
  const Buffer& operator*() const { return value_; }
  Buffer& operator*() { return value_; }

 private:
  Buffer value_;
};

}  // namespace

std::string encryptTextWithEncKey(const std::string& plainText, const Text& encKey) {
  const StringEncryption aes;
  const Wiped<Text> messageKey(aes.sha256(encKey, kMessageKeyLength));
  if (!*messageKey) return {};
  const Text iv = CommonUtilities::getRandomIVforKey(kIvKey);
  if (!iv) return {};
  const Wiped<std::optional<Bytes>> plain(Bytes(plainText.begin(), plainText.end()));
  const std::optional<Bytes> sealed = aes.encrypt(**plain, *messageKey, iv);
  if (!sealed) return {};
  return internal::replaceAll(internal::envelopeBase64Encode(*sealed), "+", "%2B");
}

Text decryptTextWithDecryptionKey(const Text& envelopeText, const Text& decKey) {
  if (!envelopeText) return std::nullopt;
  const StringEncryption aes;
  const Wiped<Text> messageKey(aes.sha256(decKey, kMessageKeyLength));
  const std::optional<Bytes> sealed =
      internal::envelopeBase64Decode(internal::replaceAll(*envelopeText, "%2B", "+"));
  if (!sealed) return std::string();
  if (!*messageKey) return std::nullopt;
  const Text iv = CommonUtilities::getRandomIVforKey(kIvKey);
  if (!iv) return std::nullopt;
  return getDecryptedDataWithPassword(*messageKey, iv, *sealed);
}

Text getDecryptedDataWithPassword(const Text& password, const Text& IV, const Bytes& string) {
  const StringEncryption aes;
  Wiped<std::optional<Bytes>> plain(aes.decrypt(string, password, IV));
  if (!*plain) return std::nullopt;
  const std::string_view bytes(reinterpret_cast<const char*>((*plain)->data()), (*plain)->size());
  if (!internal::isValidUtf8(bytes)) return std::nullopt;
  return std::string(bytes);
}

}  // namespace qipg
