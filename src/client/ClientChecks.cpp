#include "client/ClientChecks.h"

#include <algorithm>

namespace qipg::internal {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool allDigits(std::string_view text) { return std::all_of(text.begin(), text.end(), isDigit); }

}  // namespace

std::optional<std::string> amountProblem(std::string_view amount) {
  const std::size_t dot = amount.find('.');
  const std::string_view whole = amount.substr(0, dot);
  const std::string_view decimals =
      dot == std::string_view::npos ? std::string_view{} : amount.substr(dot + 1);
  if (whole.empty() || !allDigits(whole) || !allDigits(decimals) || decimals.size() > 2 ||
      (dot != std::string_view::npos && decimals.empty())) {
    return "the amount must be a number with at most two decimals, like 15.00";
  }
  const auto isZero = [](std::string_view digits) {
    return std::all_of(digits.begin(), digits.end(), [](char c) { return c == '0'; });
  };
  if (isZero(whole) && isZero(decimals)) return "the amount must be greater than zero";
  return std::nullopt;
}

std::optional<std::string> cardNumberProblem(std::string_view number) {
  if (number.size() < 12 || number.size() > 19 || !allDigits(number)) {
    return "the card number must be 12 to 19 digits";
  }
  int sum = 0;
  bool doubled = false;
  for (auto it = number.rbegin(); it != number.rend(); ++it, doubled = !doubled) {
    int digit = *it - '0';
    if (doubled && (digit *= 2) > 9) digit -= 9;
    sum += digit;
  }
  if (sum % 10 != 0) return "the card number is not valid (it fails the Luhn check; mistyped?)";
  return std::nullopt;
}

std::optional<std::string> expiryProblem(std::string_view expiry, int currentYear,
                                         int currentMonth) {
  if (expiry.size() != 4 || !allDigits(expiry)) return "the card expiry must be MMYY, like 0130";
  const int month = (expiry[0] - '0') * 10 + (expiry[1] - '0');
  if (month < 1 || month > 12) return "the card expiry must name a month from 01 to 12";
  // Two-digit years are taken in the current century.
  const int year = currentYear - currentYear % 100 + (expiry[2] - '0') * 10 + (expiry[3] - '0');
  if (year < currentYear || (year == currentYear && month < currentMonth)) {
    return "the card has expired";
  }
  return std::nullopt;
}

std::optional<std::string> cvvProblem(std::string_view cvv) {
  if ((cvv.size() != 3 && cvv.size() != 4) || !allDigits(cvv)) {
    return "the CVV must be 3 or 4 digits";
  }
  return std::nullopt;
}

}  // namespace qipg::internal
