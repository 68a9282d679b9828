// The checks qipg::Client adds after the interface's own validation: each returns the message
// of the problem it finds, or nothing. Pure functions of their arguments; thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>

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

}  // namespace qipg::internal
