// What every request builder uses: the verdict texts reported by builders of different
// families, the field tests of the validations, the slot layout of the pipe-separated
// messages, and the wiping of key material and card data.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "qipg/Types.h"
#include "security/Wipe.h"

namespace qipg::internal {

// ---- verdict texts shared by more than one family of builders
inline constexpr char kSuccess[] = "Success";
inline constexpr char kInvalidOrderIDInput[] = "Invalid Order ID Input";
inline constexpr char kInvalidTransactionAmountInput[] = "Invalid Transaction Amount Input";

// A validation's answer: `failure` when there is one, else "Success".
inline std::string verdict(const char* failure) { return failure ? failure : kSuccess; }

// Present and not the empty text ("missing" means the opposite).
inline bool isFilled(const Text& value) { return value.has_value() && !value->empty(); }

// Present and the empty text.
inline bool isEmptyText(const Text& value) { return value.has_value() && value->empty(); }

// Present and at most `maxUnits` UTF-16 code units long.
bool fitsLength(const Text& value, std::size_t maxUnits);

// Present and exactly `units` UTF-16 code units long.
bool hasLength(const Text& value, std::size_t units);

// ---- message layout

// One slot of a request message: the field's value and the field's name (for the error).
struct Slot {
  const Text* value;
  std::string_view name;
};

// The names of the ten additional fields, "addField1" ... "addField10".
extern const std::array<std::string_view, 10> kAddFieldNames;

// Joins the slots with "|" (none before the first or after the last), each slot the field's
// value unchanged or "-" when it is the empty text. Throws std::invalid_argument("<name> is
// absent") for the first absent slot, before anything is built.
std::string joinSlots(std::span<const Slot> slots);


}  // namespace qipg::internal
