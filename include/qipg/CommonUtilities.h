/// @class qipg::CommonUtilities
/// One class with three roles: the character-set validators the request builders use, the
/// parsers that turn the gateway's answers into PaymentResponse records, and the store of the
/// envelope's IV.
///
/// No state: every operation is thread-safe. The IV store is process-wide and persistent
/// (a SQLite user-defaults file, see docs/DESIGN.md), shared by every client in the process
/// and kept across runs.
#pragma once

#include "qipg/Export.h"
#include "qipg/PaymentResponse.h"
#include "qipg/Types.h"

namespace qipg {

class QIPG_EXPORT CommonUtilities {
 public:
  /// @name Validators
  /// True when every character of the text is in the set; the empty text is true, an absent
  /// text false. Characters are UTF-16 code units: anything outside ASCII, a tab or a line
  /// break is outside every set. Lengths and emptiness are the caller's.
  /// @{

  /// "0123456789."
  bool isNumeric(const Text& text) const;
  /// ASCII letters and digits.
  bool isAlphaNumeric(const Text& text) const;
  /// ASCII letters and digits, blank and @-/$%*[]&#.,
  bool isAlphaNumericWithSpecialCharacters(const Text& text) const;
  /// @}

  /// @name Parsers
  /// Fields are split at every "|" with no quoting; empty fields stay empty texts. A text
  /// that is absent or has the wrong number of fields gives a record with statusCode "F" and
  /// every other property absent. Never fail, never throw.
  /// @{

  /// The payment result read from the gateway's final page: exactly 22 fields, field 0 (the
  /// order id) with every quotation mark and blank removed.
  PaymentResponse getPaymentResponseFromString(const Text& responseString) const;

  /// The answer to a status inquiry: 22 fields or more, field 0 (the reference number) with
  /// every quotation mark removed.
  PaymentResponse getResponseFromString(const Text& responseString) const;

  /// The answer to a cancel or refund request: 16 fields or more; amount, rrn,
  /// transactionDateTime, authnCode, authzCode and captureStatus are set to the empty text.
  PaymentResponse getCancelOrRefundPaymentResponse(const Text& responseString) const;
  /// @}

  /// @name IV store
  /// @{

  /// Stores `value` under `key`, durably, replacing what was there (an absent `value` removes
  /// it; an absent `key` does nothing). The value is kept in this process's memory, and this
  /// process reads it from there from then on, whatever the defaults file holds. When the file
  /// cannot take it (locked by another process for more than 3 s, unwritable), nothing is
  /// reported: the value is kept in memory only, and written to the file again at the next
  /// store or read until it is there (QuandrelIPG::ivPersisted tells whether the file holds
  /// it). Any text may be stored under any key, "" included.
  static void SetRandomIV(const Text& value, const Text& key);

  /// The text this process last stored under `key` (from memory); for a key it never stored,
  /// the text in the defaults file. Absent for an empty or absent key, when nothing is stored,
  /// or when the file cannot be read.
  static Text getRandomIVforKey(const Text& key);
  /// @}
};

}  // namespace qipg
