#include "requests/RequestCommon.h"

#include <openssl/crypto.h>

#include <stdexcept>

#include "common/Ascii.h"

namespace qipg::internal {

bool fitsLength(const Text& value, std::size_t maxUnits) {
  return value.has_value() && utf16Length(*value) <= maxUnits;
}

bool hasLength(const Text& value, std::size_t units) {
  return value.has_value() && utf16Length(*value) == units;
}

const std::array<std::string_view, 10> kAddFieldNames = {
    "addField1", "addField2", "addField3", "addField4", "addField5",
    "addField6", "addField7", "addField8", "addField9", "addField10"};

std::string joinSlots(std::span<const Slot> slots) {
  // Size first, so that an absent slot is refused before any text exists and the message
  // (which may hold card data) is built in one buffer that is never reallocated.
  std::size_t size = slots.empty() ? 0 : slots.size() - 1;
  for (const Slot& slot : slots) {
    if (!slot.value->has_value()) {
      throw std::invalid_argument(std::string(slot.name) + " is absent");
    }
    size += (*slot.value)->empty() ? 1 : (*slot.value)->size();
  }
  std::string message;
  message.reserve(size);
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (i != 0) message += '|';
    const std::string& value = **slots[i].value;
    message += value.empty() ? std::string_view("-") : std::string_view(value);
  }
  return message;
}

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
