// Wiping of secrets (merchant keys, card data, plain messages) held in texts.
#pragma once

#include <string>
#include <utility>

#include "qipg/Types.h"

namespace qipg::internal {

// Overwrites the whole buffer of `text` (its spare capacity included) and empties it.
void wipe(std::string& text);
// The same for a present text; an absent one is left absent.
void wipe(Text& text);
// Replaces `field` by `value`, wiping the old value and the argument's buffer.
void replaceWiping(Text& field, Text& value);

// Wipes the text it watches when the scope ends.
class WipeOnExit {
 public:
  explicit WipeOnExit(Text& text) : text_(text) {}
  ~WipeOnExit() { wipe(text_); }
  WipeOnExit(const WipeOnExit&) = delete;
  WipeOnExit& operator=(const WipeOnExit&) = delete;

 private:
  Text& text_;
};

// A secret (a merchant key) kept while a call is under way, wiped when it is released.
class SecretText {
 public:
  explicit SecretText(Text value) : value_(std::move(value)) {}
  ~SecretText() { wipe(value_); }
  SecretText(const SecretText&) = delete;
  SecretText& operator=(const SecretText&) = delete;
  const Text& value() const { return value_; }

 private:
  Text value_;
};

}  // namespace qipg::internal
