// Screenshots' file handling, the same for both windows: a picture of the payment page may
// show what the customer typed, so it is written owner-only.
#pragma once

#include <cstddef>
#include <string>

namespace qipg::internal {

// Writes `size` bytes to `path`, created (or truncated) with mode 0600, the mode set again in
// case the file existed. False on any failure.
bool writeOwnerOnly(const std::string& path, const void* data, std::size_t size);

}  // namespace qipg::internal
