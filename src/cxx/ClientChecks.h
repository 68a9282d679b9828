// The checks qipg::Client adds to the interface's own validation: each returns the message of
// the problem it finds, or nothing. A field's refusal is worded as the request validators word
// it, followed by the rule that failed ("Invalid Transaction Amount Input: must be greater than
// zero"). Pure functions of their arguments; thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "qipg/GatewayConfig.h"

namespace qipg::internal {

// Digits with at most two decimals after one ".", greater than zero.
std::optional<std::string> amountProblem(std::string_view amount);

// 12 to 19 digits that pass the Luhn check.
std::optional<std::string> cardNumberProblem(std::string_view number);

// MMYY, a month 01 to 12, not before `currentYear`/`currentMonth` (four-digit year, 1..12).
std::optional<std::string> expiryProblem(std::string_view expiry, int currentYear,
                                         int currentMonth);

// 3 or 4 digits.
std::optional<std::string> cvvProblem(std::string_view cvv);

// 32 ASCII letters and digits: what every request validator takes. Never quotes the key.
std::optional<std::string> merchantKeyProblem(std::string_view key);

// The selected gateway's base URL (`test`: the test one) is still the built-in placeholder,
// which names no real gateway: what to set instead.
std::optional<std::string> placeholderProblem(const GatewayConfig& config, bool test);

}  // namespace qipg::internal
