// Wiping of secrets (merchant keys, card data, plain messages) held in texts.
#pragma once

#include <string>

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

}  // namespace qipg::internal
