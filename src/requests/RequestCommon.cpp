#include "requests/RequestCommon.h"

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

}  // namespace qipg::internal
