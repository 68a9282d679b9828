// Small owners and shared algorithm handles for OpenSSL's EVP interface.
#pragma once

#include <openssl/evp.h>

#include <memory>

namespace qipg::internal {

struct CipherCtxDeleter {
  void operator()(EVP_CIPHER_CTX* ctx) const { EVP_CIPHER_CTX_free(ctx); }
};
// Owns an EVP_CIPHER_CTX (move-only; freeing also wipes the expanded key).
using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, CipherCtxDeleter>;

// Algorithms fetched once per process from the default library context and kept for the
// life of the process (an implicit fetch on every call costs a lock and a lookup). Each falls
// back to the built-in descriptor when the fetch fails. Thread-safe.
const EVP_CIPHER* aes256Cbc();
const EVP_MD* sha256Digest();
const EVP_MD* md5Digest();

}  // namespace qipg::internal
