#include "ui/window/Url.h"

namespace qipg::internal {

GatewayConfig canonicalGateway(GatewayConfig config) {
  config.testBaseURL = canonicalURL(config.testBaseURL);
  config.productionBaseURL = canonicalURL(config.productionBaseURL);
  return config;
}

}  // namespace qipg::internal
