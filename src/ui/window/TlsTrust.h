// Whether a server certificate that failed the system's verification may be accepted because
// the host trusts a specific CA file for that one server. Both windows ask this when their
// web view reports a certificate error.
#pragma once

#include <string>
#include <vector>

namespace qipg::internal {

// True when the host asked for it (`caFile` and `trustedHost` both set), `failingURL`'s host
// is `trustedHost` (ASCII case ignored), and `chain` (DER certificates, the server's first,
// then the intermediates it sent) verifies against the CA file alone, now, for a TLS server
// named by that host (a DNS name or an IP address). Any problem reading the file or a
// certificate gives false.
bool certificateTrustedForHost(const std::vector<std::string>& chain, const std::string& caFile,
                               const std::string& trustedHost, const std::string& failingURL);

}  // namespace qipg::internal
