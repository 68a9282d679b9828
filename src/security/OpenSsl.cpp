#include "security/OpenSsl.h"

namespace qipg::internal {

// The fetched handles are deliberately never freed: they stay reachable through these
// statics until exit, where freeing them could race OpenSSL's own clean-up.

const EVP_CIPHER* aes256Cbc() {
  static const EVP_CIPHER* const cipher = [] {
    const EVP_CIPHER* fetched = EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr);
    return fetched != nullptr ? fetched : EVP_aes_256_cbc();
  }();
  return cipher;
}

const EVP_MD* sha256Digest() {
  static const EVP_MD* const md = [] {
    const EVP_MD* fetched = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return fetched != nullptr ? fetched : EVP_sha256();
  }();
  return md;
}

const EVP_MD* md5Digest() {
  static const EVP_MD* const md = [] {
    const EVP_MD* fetched = EVP_MD_fetch(nullptr, "MD5", nullptr);
    return fetched != nullptr ? fetched : EVP_md5();
  }();
  return md;
}

}  // namespace qipg::internal
