// The envelope's IV, kept in the application's user defaults.

#include "qipg/CommonUtilities.h"
#include "security/UserDefaults.h"

namespace qipg {

void CommonUtilities::SetRandomIV(const Text& value, const Text& key) {
  if (!key) return;
  internal::UserDefaults& defaults = internal::UserDefaults::standard();
  // Replacing in one durable write has the end state of "remove, then store", without a
  // moment in which another thread or process reads no IV, and without losing the old one
  // when a busy store refuses the second write.
  if (value) {
    defaults.setString(*key, *value);
  } else {
    defaults.removeObjectForKey(*key);
  }
  defaults.synchronize();
}

Text CommonUtilities::getRandomIVforKey(const Text& key) {
  if (!key || key->empty()) return std::nullopt;
  return internal::UserDefaults::standard().stringForKey(*key);
}

}  // namespace qipg
