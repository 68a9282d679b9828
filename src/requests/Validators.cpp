// The character-set tests of CommonUtilities. The other roles of the class live with their
// subsystems: the parsers in src/responses, the IV store in src/security.
#include <string_view>

#include "qipg/CommonUtilities.h"

namespace qipg {
namespace {

constexpr std::string_view kNumeric = "0123456789.";
constexpr std::string_view kAlphaNumeric =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr std::string_view kAlphaNumericWithSpecialCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 @-/$%*[]&#.,";

// Every set is ASCII, so a byte-wise test is a test of UTF-16 code units too: every byte of a
// character outside ASCII is outside the set.
bool consistsOf(const Text& text, std::string_view allowed) {
  if (!text.has_value()) return false;
  for (char c : *text) {
    if (allowed.find(c) == std::string_view::npos) return false;
  }
  return true;
}

}  // namespace

bool CommonUtilities::isNumeric(const Text& text) const { return consistsOf(text, kNumeric); }

bool CommonUtilities::isAlphaNumeric(const Text& text) const {
  return consistsOf(text, kAlphaNumeric);
}

bool CommonUtilities::isAlphaNumericWithSpecialCharacters(const Text& text) const {
  return consistsOf(text, kAlphaNumericWithSpecialCharacters);
}

}  // namespace qipg
