// The envelope's IV, kept in the application's user defaults.

#include "qipg/CommonUtilities.h"
#include "security/UserDefaults.h"

namespace qipg {

void CommonUtilities::SetRandomIV(const Text& value, const Text& key) {
  if (!key) return;
  internal::UserDefaults& defaults = internal::UserDefaults::standard();
  // Replacing in one durable write has the end state of "remove, then store", without a
  // moment in which another thread or process reads no IV. The store holds the value in this
  // process's memory whether or not it reaches the file, so the IV is never lost, and writes
  // it through again at the next store or read until it is in the file; whether the file
  // holds it is told by QuandrelIPG::ivPersisted, not here.
  if (value) {
    defaults.setString(*key, *value);
  } else {
    defaults.removeObjectForKey(*key);
  }
}

Text CommonUtilities::getRandomIVforKey(const Text& key) {
  if (!key || key->empty()) return std::nullopt;
  return internal::UserDefaults::standard().stringForKey(*key);
}

}  // namespace qipg
