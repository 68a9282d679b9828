#include "Cards.h"

#include <cstdio>
#include <ctime>

#include "Sandbox.h"
#include "Text.h"

namespace qipg::sandbox::internal {
namespace {

bool passesLuhn(std::string_view digits) {
  int sum = 0;
  bool doubleIt = false;
  for (auto it = digits.rbegin(); it != digits.rend(); ++it) {
    int d = *it - '0';
    if (doubleIt) {
      d *= 2;
      if (d > 9) d -= 9;
    }
    sum += d;
    doubleIt = !doubleIt;
  }
  return sum % 10 == 0;
}

CardCheck invalid(std::string reason, std::string code) {
  CardCheck check;
  check.outcome = CardOutcome::kInvalid;
  check.reason = std::move(reason);
  check.responseCode = std::move(code);
  return check;
}

}  // namespace

CardCheck checkCard(std::string_view number, std::string_view expiryMMYY, std::string_view cvv,
                    std::string_view holder, int year, int month) {
  if (number.size() < 12 || number.size() > 19 || !isDigits(number) || !passesLuhn(number)) {
    return invalid("Invalid card number", "14");
  }
  if (expiryMMYY.size() != 4 || !isDigits(expiryMMYY)) return invalid("Invalid card expiry", "12");
  const int expiryMonth = (expiryMMYY[0] - '0') * 10 + (expiryMMYY[1] - '0');
  const int expiryYear = 2000 + (expiryMMYY[2] - '0') * 10 + (expiryMMYY[3] - '0');
  if (expiryMonth < 1 || expiryMonth > 12) return invalid("Invalid card expiry", "12");
  if (expiryYear < year || (expiryYear == year && expiryMonth < month)) {
    return invalid("Card expired", "54");
  }
  if (cvv.size() < 3 || cvv.size() > 4 || !isDigits(cvv)) return invalid("Invalid card CVV", "12");
  bool blank = true;
  for (char c : holder) blank = blank && (c == ' ' || c == '\t');
  if (blank) return invalid("Missing card holder name", "12");

  CardCheck check;
  check.last4 = std::string(number.substr(number.size() - 4));
  check.masked = std::string(number.size() - 4, '*') + check.last4;
  if (number == "4111111111111111" || number == "5555555555554444") {
    check.outcome = CardOutcome::kApproved;
    check.responseCode = "00";
  } else if (number == "4000000000000002") {
    check.outcome = CardOutcome::kDeclined;
    check.reason = "Declined by issuer";
    check.responseCode = "05";
  } else if (number == "4000000000009995") {
    check.outcome = CardOutcome::kGatewayError;
    check.reason = "Gateway error: the issuer did not answer";
    check.responseCode = "91";
  } else {
    check.outcome = CardOutcome::kUnknownCard;
    check.reason = "Declined: unknown test card";
    check.responseCode = "56";
  }
  return check;
}

CardCheck checkCard(std::string_view number, std::string_view expiryMMYY, std::string_view cvv,
                    std::string_view holder) {
  const std::time_t now = std::time(nullptr);
  std::tm tm{};
  gmtime_r(&now, &tm);
  return checkCard(number, expiryMMYY, cvv, holder, tm.tm_year + 1900, tm.tm_mon + 1);
}

std::string outcomeName(CardOutcome outcome) {
  switch (outcome) {
    case CardOutcome::kApproved:
      return "approved";
    case CardOutcome::kDeclined:
      return "declined";
    case CardOutcome::kGatewayError:
      return "error";
    case CardOutcome::kUnknownCard:
      return "unknown";
    case CardOutcome::kInvalid:
      break;
  }
  return "invalid";
}

CardOutcome outcomeFromName(std::string_view name) {
  if (name == "approved") return CardOutcome::kApproved;
  if (name == "declined") return CardOutcome::kDeclined;
  if (name == "error") return CardOutcome::kGatewayError;
  if (name == "unknown") return CardOutcome::kUnknownCard;
  return CardOutcome::kInvalid;
}

}  // namespace qipg::sandbox::internal

namespace qipg::sandbox {

const std::vector<TestCard>& testCards() {
  static const std::vector<TestCard> cards = {
      {"approve", "4111111111111111", "123", false, "S", "Transaction successful"},
      {"approve-mc", "5555555555554444", "321", false, "S", "Transaction successful"},
      {"decline", "4000000000000002", "123", false, "F", "Declined by issuer"},
      {"gateway-error", "4000000000009995", "123", false, "F",
       "Gateway error: the issuer did not answer"},
      {"unknown", "4242424242424242", "123", false, "F", "Declined: unknown test card"},
      {"invalid-number", "4111111111111112", "123", false, "F", "Invalid card number"},
      {"expired", "4111111111111111", "123", true, "F", "Card expired"},
  };
  return cards;
}

const TestCard* findTestCard(const std::string& name) {
  for (const TestCard& card : testCards()) {
    if (name == card.name) return &card;
  }
  return nullptr;
}

std::string testCardExpiry(const TestCard& card) {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[8];
  std::snprintf(text, sizeof text, "12%02d", (utc.tm_year + 1900 + (card.expired ? -2 : 3)) % 100);
  return text;
}

}  // namespace qipg::sandbox
