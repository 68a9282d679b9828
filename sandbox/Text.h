// Small text helpers of the sandbox: form bodies, amounts, HTML escaping, message fields.
//
// Thread-safe: no state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qipg::sandbox::internal {

// One "name=value" pair of an application/x-www-form-urlencoded body, still encoded.
struct RawField {
  std::string name;
  std::string value;
};

// Splits a form body at "&" and each pair at its first "=". Nothing is decoded: the values of
// the gateway's own forms are decoded by the caller, the way each value needs.
//
// The envelope texts that the client library posts are not URL-encoded apart from "+" written
// "%2B"; they carry "/", "=" and CR LF as they are but never "&" (outside the Base64
// alphabet), so the value of merchantReqStrT or merchantRequest ends exactly where the "&mid="
// or "&MID=" part starts.
std::vector<RawField> splitForm(std::string_view body);

// The raw value of the first field named exactly `name`.
std::optional<std::string> rawField(const std::vector<RawField>& fields, std::string_view name);

// Decodes %XX escapes ("%" not followed by two hex digits stays as it is). With
// `plusIsSpace`, "+" is read as a blank, as browsers encode blanks.
std::string percentDecode(std::string_view text, bool plusIsSpace);

// The decoded value of the first field named `name` (browser forms: "+" is a blank).
std::optional<std::string> formValue(const std::vector<RawField>& fields, std::string_view name);

// Splits at every "|"; n separators give n + 1 fields.
std::vector<std::string> splitPipes(std::string_view text);

// A message slot's value: "-" stands for the empty text.
std::string slotValue(const std::string& slot);

// An amount as decimal text: 1 to 13 digits, optionally "." and 1 or 2 digits. Returns the
// amount in minor units (hundredths); nothing for anything else.
std::optional<std::int64_t> parseAmount(std::string_view text);

// Minor units as decimal text with two fraction digits: 1050 -> "10.50".
std::string formatAmount(std::int64_t minor);

// True for 1 to `maxLength` ASCII letters and digits.
bool isAlphanumeric(std::string_view text, std::size_t maxLength);

// True for one or more ASCII digits.
bool isDigits(std::string_view text);

// Escapes &, <, >, " and ' for HTML text and attribute values.
std::string htmlEscape(std::string_view text);

// The current UTC time as "YYYY-MM-DD HH:MM:SS".
std::string utcNow();

}  // namespace qipg::sandbox::internal
