// Deciding whether a server certificate that failed the system's verification may be accepted
// because the host trusts a specific CA file for that server.
#pragma once

#include <gio/gio.h>

#include <string>

namespace qipg::internal {

// True when `certificate` (with the intermediates it carries) chains up to a certificate
// authority in the PEM file `caFile`, is valid now, and names `host` (a DNS name or an IP
// address) for port `port`. Any problem reading the file or building the chain gives false.
bool certificateTrustedByCAFile(GTlsCertificate* certificate, const std::string& caFile,
                                const std::string& host, guint16 port);

}  // namespace qipg::internal
