// The sandbox's own TLS certificates: a small certificate authority and a server certificate
// for the loopback address it signs (subjectAltName IP:127.0.0.1 and DNS:localhost, plus the
// listening host when that is another name), both on EC P-256 keys.
//
// Not thread-safe with respect to the files: one sandbox per data directory.
#pragma once

#include <string>

namespace qipg::sandbox::internal {

struct CertificateFiles {
  std::string caFile;    // the CA certificate (PEM) for clients to trust
  std::string certFile;  // the server certificate (PEM)
  std::string keyFile;   // the server's private key (PEM, mode 0600)
};

// Makes sure `dataDir` holds a CA certificate and a server certificate and key for `host` that
// belong together and stay valid for at least another day; makes all three anew otherwise.
// The CA's private key is never written: a new server certificate comes with a new CA.
// Every file is written owner-only (0600), through a temporary file and a rename.
bool ensureCertificates(const std::string& dataDir, const std::string& host,
                        CertificateFiles* files, std::string* error);

}  // namespace qipg::sandbox::internal
