/// @file
/// The requests of qipg::Client as plain aggregates, meant for designated initializers:
/// `client->refund({.orderID = "A1", .transactionRefNumber = "4100", .amount = "5.00"}, ...)`.
/// Plain values, not guarded. Every member has a default, so any may be left out of a designated
/// initializer.
#pragma once

#include <array>
#include <string>

namespace qipg {

/// What a payment asks of the card issuer.
enum class TransactionType {
  Sale,              ///< "S": authorise and capture at once; the money moves.
  PreAuthorisation,  ///< "P": authorise only; the amount is held until captured or cancelled.
};

/// The kind of card used in a card-capture payment.
enum class PaymentType {
  CreditCard,  ///< "CC"
  DebitCard,   ///< "DC"
};

/// Order and gateway reference of an earlier payment, for a status inquiry or a cancel.
struct TransactionQuery {
  std::string orderID{};
  /// The gateway's reference number of the payment (may be empty for a status inquiry).
  std::string transactionRefNumber{};
};

/// An earlier payment and the amount of it to give back.
struct RefundQuery {
  std::string orderID{};
  std::string transactionRefNumber{};
  /// In the payment's currency: greater than zero, at most two decimals ("5.00").
  std::string amount{};
};

/// The merchant's own fields carried with a payment; each may be empty.
using AdditionalFields = std::array<std::string, 10>;

/// A payment made on the gateway's hosted pages.
struct StandardPayment {
  std::string orderID{};
  /// Greater than zero, at most two decimals ("15.00").
  std::string amount{};
  std::string currency{};  ///< ISO 4217 code, e.g. "INR"
  TransactionType type = TransactionType::Sale;
  std::string description{};  ///< Required by the gateway's checks; not sent.
  AdditionalFields additionalFields{};
};

/// The card of a card-capture payment. Every field is a secret: the client wipes its copies.
struct Card {
  std::string number{};  ///< Digits only; must pass the Luhn check.
  std::string expiry{};  ///< MMYY, a real month not in the past.
  std::string cvv{};     ///< 3 or 4 digits.
  std::string holderName{};
};

/// A payment whose card data the merchant collected itself.
struct CardCapturePayment {
  std::string orderID{};
  std::string amount{};
  std::string currency{};
  TransactionType type = TransactionType::Sale;
  std::string description{};
  Card card{};
  PaymentType paymentType = PaymentType::CreditCard;
  AdditionalFields additionalFields{};
};

}  // namespace qipg
