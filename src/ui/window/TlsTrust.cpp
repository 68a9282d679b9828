#include "ui/window/TlsTrust.h"

#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <memory>

#include "common/Url.h"

namespace qipg::internal {
namespace {

template <auto Free>
struct Deleter {
  template <typename T>
  void operator()(T* p) const {
    Free(p);
  }
};
using Cert = std::unique_ptr<X509, Deleter<&X509_free>>;
using Store = std::unique_ptr<X509_STORE, Deleter<&X509_STORE_free>>;
using StoreCtx = std::unique_ptr<X509_STORE_CTX, Deleter<&X509_STORE_CTX_free>>;
void freeStack(STACK_OF(X509) * stack) { sk_X509_pop_free(stack, X509_free); }
using CertStack = std::unique_ptr<STACK_OF(X509), Deleter<&freeStack>>;

Cert fromDer(const std::string& der) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  return Cert(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
}

}  // namespace

bool certificateTrustedForHost(const std::vector<std::string>& chain, const std::string& caFile,
                               const std::string& trustedHost, const std::string& failingURL) {
  if (chain.empty() || caFile.empty() || trustedHost.empty()) return false;
  const std::string host = hostOf(failingURL);
  const bool ipv6 = trustedHost.find(':') != std::string::npos;
  if (host.empty() ||
      host != hostOf("https://" + (ipv6 ? "[" + trustedHost + "]" : trustedHost) + "/")) {
    return false;
  }

  Cert leaf = fromDer(chain.front());
  CertStack intermediates(sk_X509_new_null());
  Store store(X509_STORE_new());
  StoreCtx context(X509_STORE_CTX_new());
  if (!leaf || !intermediates || !store || !context ||
      X509_STORE_load_file(store.get(), caFile.c_str()) != 1) {
    return false;
  }
  for (std::size_t i = 1; i < chain.size(); ++i) {
    Cert cert = fromDer(chain[i]);
    if (!cert || sk_X509_push(intermediates.get(), cert.get()) == 0) return false;
    cert.release();
  }
  X509_VERIFY_PARAM* param = X509_STORE_get0_param(store.get());
  X509_VERIFY_PARAM_set_purpose(param, X509_PURPOSE_SSL_SERVER);
  const bool isAddress = X509_VERIFY_PARAM_set1_ip_asc(param, host.c_str()) == 1;
  if (!isAddress && X509_VERIFY_PARAM_set1_host(param, host.c_str(), host.size()) != 1) {
    return false;
  }
  if (X509_STORE_CTX_init(context.get(), store.get(), leaf.get(), intermediates.get()) != 1) {
    return false;
  }
  return X509_verify_cert(context.get()) == 1;
}

}  // namespace qipg::internal
