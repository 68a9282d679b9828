#include "cxx/ClientChecks.h"

#include <algorithm>

namespace qipg::internal {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool allDigits(std::string_view text) { return std::all_of(text.begin(), text.end(), isDigit); }

bool isLetterOrDigit(char c) {
  return isDigit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// A refusal in the request validators' words, followed by the rule that failed.
std::string refusal(const char* validatorMessage, const std::string& rule) {
  return std::string(validatorMessage) + ": " + rule;
}

constexpr char kInvalidAmount[] = "Invalid Transaction Amount Input";
constexpr char kInvalidCardNumber[] = "Invalid Card Number Input";
constexpr char kInvalidExpiry[] = "Invalid Card Expiry Input";
constexpr char kInvalidCvv[] = "Invalid Card CVV Input";

}  // namespace

std::optional<std::string> amountProblem(std::string_view amount) {
  const std::size_t dot = amount.find('.');
  const std::string_view whole = amount.substr(0, dot);
  const std::string_view decimals =
      dot == std::string_view::npos ? std::string_view{} : amount.substr(dot + 1);
  if (whole.empty() || !allDigits(whole) || !allDigits(decimals) || decimals.size() > 2 ||
      (dot != std::string_view::npos && decimals.empty())) {
    return refusal(kInvalidAmount, "digits with at most two decimals, like 15.00");
  }
  const auto isZero = [](std::string_view digits) {
    return std::all_of(digits.begin(), digits.end(), [](char c) { return c == '0'; });
  };
  if (isZero(whole) && isZero(decimals)) {
    return refusal(kInvalidAmount, "must be greater than zero");
  }
  return std::nullopt;
}

std::optional<std::string> cardNumberProblem(std::string_view number) {
  if (number.size() < 12 || number.size() > 19 || !allDigits(number)) {
    return refusal(kInvalidCardNumber, "must be 12 to 19 digits");
  }
  int sum = 0;
  bool doubled = false;
  for (auto it = number.rbegin(); it != number.rend(); ++it, doubled = !doubled) {
    int digit = *it - '0';
    if (doubled && (digit *= 2) > 9) digit -= 9;
    sum += digit;
  }
  if (sum % 10 != 0) return refusal(kInvalidCardNumber, "fails the Luhn check (mistyped?)");
  return std::nullopt;
}

std::optional<std::string> expiryProblem(std::string_view expiry, int currentYear,
                                         int currentMonth) {
  if (expiry.size() != 4 || !allDigits(expiry)) {
    return refusal(kInvalidExpiry, "must be MMYY, like 0130");
  }
  const int month = (expiry[0] - '0') * 10 + (expiry[1] - '0');
  if (month < 1 || month > 12) return refusal(kInvalidExpiry, "the month must be 01 to 12");
  // Two-digit years are taken in the current century.
  const int year = currentYear - currentYear % 100 + (expiry[2] - '0') * 10 + (expiry[3] - '0');
  if (year < currentYear || (year == currentYear && month < currentMonth)) {
    return refusal(kInvalidExpiry, "the card has expired");
  }
  return std::nullopt;
}

std::optional<std::string> cvvProblem(std::string_view cvv) {
  if ((cvv.size() != 3 && cvv.size() != 4) || !allDigits(cvv)) {
    return refusal(kInvalidCvv, "must be 3 or 4 digits");
  }
  return std::nullopt;
}

std::optional<std::string> merchantKeyProblem(std::string_view key) {
  constexpr char kRule[] = "the merchant key must be 32 letters and digits";
  if (!std::all_of(key.begin(), key.end(), isLetterOrDigit)) {
    return std::string(kRule) + "; the one given has other characters";
  }
  if (key.size() != 32) {
    return std::string(kRule) + "; the one given has " + std::to_string(key.size());
  }
  return std::nullopt;
}

std::optional<std::string> placeholderProblem(const GatewayConfig& config, bool test) {
  const GatewayConfig builtIn;
  const std::string& base = test ? config.testBaseURL : config.productionBaseURL;
  const std::string& placeholder = test ? builtIn.testBaseURL : builtIn.productionBaseURL;
  if (GatewayConfig::canonicalBaseURL(base) != Text(placeholder)) return std::nullopt;
  const std::string which = test ? "test" : "production";
  return "no base URL is set for the " + which + " gateway (the built-in placeholder " +
         placeholder + " is no real gateway): set ClientOptions::gateway." + which +
         "BaseURL, or " + (test ? "QIPG_TEST_BASE_URL" : "QIPG_PRODUCTION_BASE_URL");
}

}  // namespace qipg::internal
