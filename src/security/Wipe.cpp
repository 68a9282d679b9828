#include "security/Wipe.h"

#include <openssl/crypto.h>

namespace qipg::internal {

void wipe(std::string& text) {
  text.resize(text.capacity());
  OPENSSL_cleanse(text.data(), text.size());
  text.clear();
}

void wipe(Text& text) {
  if (text.has_value()) wipe(*text);
}

void replaceWiping(Text& field, Text& value) {
  wipe(field);
  if (value.has_value() && field.has_value()) {
    field->assign(*value);  // into the wiped buffer, so no copy is left behind elsewhere
  } else {
    field = value;
  }
  wipe(value);
}

}  // namespace qipg::internal
