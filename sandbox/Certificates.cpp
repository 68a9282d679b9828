#include "Certificates.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string_view>

#include "DataDir.h"

namespace qipg::sandbox::internal {
namespace {

struct Free {
  void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
  void operator()(X509* p) const { X509_free(p); }
  void operator()(X509_EXTENSION* p) const { X509_EXTENSION_free(p); }
  void operator()(BIGNUM* p) const { BN_free(p); }
  void operator()(std::FILE* p) const { std::fclose(p); }
};
using Key = std::unique_ptr<EVP_PKEY, Free>;
using Cert = std::unique_ptr<X509, Free>;
using Extension = std::unique_ptr<X509_EXTENSION, Free>;
using BigNum = std::unique_ptr<BIGNUM, Free>;
using File = std::unique_ptr<std::FILE, Free>;

constexpr long kDay = 24L * 60 * 60;

bool isIpAddress(const std::string& host) {
  unsigned char buffer[16];
  return inet_pton(AF_INET, host.c_str(), buffer) == 1 ||
         inet_pton(AF_INET6, host.c_str(), buffer) == 1;
}

bool addExtension(X509* cert, X509* issuer, int nid, const std::string& value) {
  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
  Extension ext(X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str()));
  return ext && X509_add_ext(cert, ext.get(), -1) == 1;
}

bool setName(X509* cert, const char* commonName) {
  X509_NAME* name = X509_get_subject_name(cert);
  const auto* org = reinterpret_cast<const unsigned char*>("Quandrel IPG sandbox");
  const auto* cn = reinterpret_cast<const unsigned char*>(commonName);
  return X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, org, -1, -1, 0) == 1 &&
         X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, cn, -1, -1, 0) == 1;
}

// A certificate with a random serial and the given validity; subject set by the caller.
Cert newCertificate(EVP_PKEY* publicKey, long days) {
  Cert cert(X509_new());
  if (!cert) return nullptr;
  BigNum serial(BN_new());
  if (!serial || BN_rand(serial.get(), 63, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) != 1 ||
      !BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(cert.get())) ||
      X509_set_version(cert.get(), 2) != 1 ||
      !X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600) ||
      !X509_gmtime_adj(X509_getm_notAfter(cert.get()), days * kDay) ||
      X509_set_pubkey(cert.get(), publicKey) != 1) {
    return nullptr;
  }
  return cert;
}

// Opens `path` for reading without following a symbolic link.
File openForReading(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) return nullptr;
  File file(::fdopen(fd, "r"));
  if (!file) ::close(fd);
  return file;
}

Cert readCertificate(const std::string& path) {
  File file = openForReading(path);
  if (!file) return nullptr;
  return Cert(PEM_read_X509(file.get(), nullptr, nullptr, nullptr));
}

Key readKey(const std::string& path) {
  File file = openForReading(path);
  if (!file) return nullptr;
  return Key(PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr));
}

// True when the three files exist, belong together, cover `host` and stay valid for a day.
bool usable(const CertificateFiles& files, const std::string& host) {
  Cert ca = readCertificate(files.caFile);
  Cert cert = readCertificate(files.certFile);
  Key key = readKey(files.keyFile);
  if (!ca || !cert || !key) return false;
  if (X509_check_private_key(cert.get(), key.get()) != 1) return false;
  if (X509_verify(cert.get(), X509_get0_pubkey(ca.get())) != 1) return false;
  const std::time_t tomorrow = std::time(nullptr) + kDay;
  for (X509* c : {ca.get(), cert.get()}) {
    if (X509_cmp_time(X509_get0_notAfter(c), const_cast<std::time_t*>(&tomorrow)) <= 0) {
      return false;
    }
  }
  const int matches = isIpAddress(host)
                          ? X509_check_ip_asc(cert.get(), host.c_str(), 0)
                          : X509_check_host(cert.get(), host.c_str(), host.size(), 0, nullptr);
  return matches == 1;
}

bool generate(const CertificateFiles& files, const std::string& host, std::string* error) {
  Key caKey(EVP_EC_gen("P-256"));
  Key serverKey(EVP_EC_gen("P-256"));
  if (!caKey || !serverKey) {
    *error = "cannot generate the certificate keys";
    return false;
  }

  Cert ca = newCertificate(caKey.get(), 3650);
  if (!ca || !setName(ca.get(), "Quandrel IPG sandbox CA") ||
      X509_set_issuer_name(ca.get(), X509_get_subject_name(ca.get())) != 1 ||
      !addExtension(ca.get(), ca.get(), NID_basic_constraints, "critical,CA:TRUE,pathlen:0") ||
      !addExtension(ca.get(), ca.get(), NID_key_usage, "critical,keyCertSign,cRLSign") ||
      !addExtension(ca.get(), ca.get(), NID_subject_key_identifier, "hash") ||
      X509_sign(ca.get(), caKey.get(), EVP_sha256()) == 0) {
    *error = "cannot make the CA certificate";
    return false;
  }

  std::string altNames = "IP:127.0.0.1,DNS:localhost";
  if (host != "127.0.0.1" && host != "localhost") {
    altNames += (isIpAddress(host) ? ",IP:" : ",DNS:") + host;
  }
  Cert cert = newCertificate(serverKey.get(), 825);
  if (!cert || !setName(cert.get(), "localhost") ||
      X509_set_issuer_name(cert.get(), X509_get_subject_name(ca.get())) != 1 ||
      !addExtension(cert.get(), ca.get(), NID_basic_constraints, "critical,CA:FALSE") ||
      !addExtension(cert.get(), ca.get(), NID_key_usage, "critical,digitalSignature") ||
      !addExtension(cert.get(), ca.get(), NID_ext_key_usage, "serverAuth") ||
      !addExtension(cert.get(), ca.get(), NID_subject_alt_name, altNames) ||
      !addExtension(cert.get(), ca.get(), NID_subject_key_identifier, "hash") ||
      !addExtension(cert.get(), ca.get(), NID_authority_key_identifier, "keyid:always") ||
      X509_sign(cert.get(), caKey.get(), EVP_sha256()) == 0) {
    *error = "cannot make the server certificate";
    return false;
  }

  // Key first: a certificate on disk without its key would be useless.
  const bool written =
      replaceFile(files.keyFile,
                  [&](std::FILE* f) {
                    return PEM_write_PrivateKey(f, serverKey.get(), nullptr, nullptr, 0, nullptr,
                                                nullptr) == 1;
                  }) &&
      replaceFile(files.certFile,
                  [&](std::FILE* f) { return PEM_write_X509(f, cert.get()) == 1; }) &&
      replaceFile(files.caFile, [&](std::FILE* f) { return PEM_write_X509(f, ca.get()) == 1; });
  if (!written) *error = "cannot write the certificate files in the data directory";
  return written;
}

}  // namespace

bool ensureCertificates(const std::string& dataDir, const std::string& host,
                        CertificateFiles* files, std::string* error) {
  std::string scratch;
  if (error == nullptr) error = &scratch;
  files->caFile = dataDir + "/ca.pem";
  files->certFile = dataDir + "/server-cert.pem";
  files->keyFile = dataDir + "/server-key.pem";
  if (usable(*files, host)) return true;
  return generate(*files, host, error);
}

}  // namespace qipg::sandbox::internal
