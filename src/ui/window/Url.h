// Addresses as both payment windows compare them: in canonical form (common/Url.h), so that a
// base URL written "HTTPS://Host:443/ipg/" and the address a web view reports for the same page
// compare equal.
#pragma once

#include "common/Url.h"
#include "qipg/GatewayConfig.h"

namespace qipg::internal {

// `config` with both base URLs in canonical form.
GatewayConfig canonicalGateway(GatewayConfig config);

}  // namespace qipg::internal
