#include "qipg/Version.h"

namespace qipg {

const char* runtimeVersion() noexcept { return QIPG_VERSION_STRING; }

}  // namespace qipg
