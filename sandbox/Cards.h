// The sandbox's test cards: what happens when a card is charged.
//
//   4111111111111111, 5555555555554444  approved
//   4000000000000002                    declined by the issuer        (response code 05)
//   4000000000009995                    gateway error, issuer silent  (response code 91)
//   any other well-formed number        declined as unknown           (response code 56)
//
// A well-formed number is 12 to 19 digits passing the Luhn check (else 14); the expiry is
// MMYY, a month 01-12, not before the current month (else 12 or, when past, 54); the CVV 3 or 4
// digits (else 12); the holder name must not be empty (else 12).
//
// Thread-safe: no state. The card number and CVV are never kept: only the last four digits and
// a masked form leave this unit.
#pragma once

#include <string>
#include <string_view>

namespace qipg::sandbox::internal {

enum class CardOutcome { kApproved, kDeclined, kGatewayError, kUnknownCard, kInvalid };

struct CardCheck {
  CardOutcome outcome = CardOutcome::kInvalid;
  std::string reason;        // the status description of a failure; empty when approved
  std::string responseCode;  // ISO 8583 style: "00" approved, "05", "91", "56", "14", "54", "12"
  std::string last4;         // last four digits of a well-formed number, else empty
  std::string masked;        // "************1111", else empty
};

// Checks a card against the test-card table, as of the given UTC year and month.
CardCheck checkCard(std::string_view number, std::string_view expiryMMYY, std::string_view cvv,
                    std::string_view holder, int year, int month);

// The same as of now.
CardCheck checkCard(std::string_view number, std::string_view expiryMMYY, std::string_view cvv,
                    std::string_view holder);

// Text forms for the transaction store: "approved", "declined", "error", "unknown", "invalid".
std::string outcomeName(CardOutcome outcome);
CardOutcome outcomeFromName(std::string_view name);

}  // namespace qipg::sandbox::internal
