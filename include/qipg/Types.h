/// @file Types.h
/// The value types every part of the public API uses.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The library's public API. What is not public lives in qipg::internal and is never
/// included by a public header.
namespace qipg {

/// A text that may be absent. Absent (std::nullopt) and empty ("") are different values
/// everywhere in this library. Present texts are UTF-8.
using Text = std::optional<std::string>;

/// A byte buffer.
using Bytes = std::vector<std::uint8_t>;

}  // namespace qipg
