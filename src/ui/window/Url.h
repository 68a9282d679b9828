// Addresses as both payment windows compare them: one canonical spelling (libcurl's URL API),
// so that a base URL written "HTTPS://Host:443/ipg/" and the address a web view reports for
// the same page compare equal.
#pragma once

#include <string>

#include "qipg/GatewayConfig.h"

namespace qipg::internal {

// `url` with scheme and host in lower case and the scheme's default port dropped; the path,
// query and fragment as they stand. Any other text (not an http or https URL libcurl can
// parse) comes back unchanged.
std::string canonicalURL(const std::string& url);

// `config` with both base URLs in canonical form.
GatewayConfig canonicalGateway(GatewayConfig config);

// The host of `url` in lower case (an IPv6 address without its brackets); "" when none.
std::string hostOf(const std::string& url);

}  // namespace qipg::internal
