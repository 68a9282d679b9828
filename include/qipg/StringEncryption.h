/// @class qipg::StringEncryption
/// Cipher, digest and secure-random primitives on OpenSSL.
///
/// Stateless: every operation may run on any thread at the same time as any other.
/// Keys and IVs are used as text: their characters (UTF-8 bytes) are the key and IV bytes,
/// nothing is hex-decoded. Key bytes are wiped from memory after each call.
///
/// Key and IV buffers (kept from the gateway's reference client so that both sides agree):
///  - the key goes into a 34-byte zeroed buffer as UTF-8 plus NUL, of which AES-256 reads the
///    first 32 bytes: shorter keys are padded with zero bytes, a 33-character key is kept
///    whole (its 33rd character is not read), and a key of 34 or more characters (UTF-16 code
///    units) is cut to its first 32 characters and then has its first byte set to zero;
///  - the IV goes into an 18-byte zeroed buffer as UTF-8 plus NUL, of which the first 16
///    bytes are read: shorter IVs are padded with zero bytes.
/// Cases the reference client leaves undefined, defined here:
///  - a key or IV whose UTF-8 form plus NUL does not fit its buffer (only possible with
///    characters outside ASCII), or an absent key or IV, leaves that buffer all zero bytes;
///  - decrypt clears its key buffer exactly as encrypt does, so both directions agree;
///  - sha256 and md5 of an absent text give an absent result; sha256 of a text with any
///    character outside ASCII gives an absent result too (it has no ASCII form), so the
///    envelope refuses such a merchant key instead of hashing something else.
#pragma once

#include <cstddef>

#include "qipg/Export.h"
#include "qipg/Types.h"

namespace qipg {

class QIPG_EXPORT StringEncryption {
 public:
  /// AES-256-CBC with PKCS #7 padding. Returns the cipher bytes, or nothing on failure.
  std::optional<Bytes> encrypt(const Bytes& plainText, const Text& key, const Text& iv) const;

  /// The reverse. Returns nothing when the input is not a whole number of blocks or the
  /// padding is wrong after decryption (typically a wrong key or IV).
  std::optional<Bytes> decrypt(const Bytes& cipherText, const Text& key, const Text& iv) const;

  /// MD5 of the text's UTF-8 bytes up to its first NUL: 32 lower-case hex characters.
  Text md5(const Text& str) const;

  /// `length` bytes from the system's secure random source (raw bytes, not hex).
  Bytes generateRandomIV(std::size_t length) const;

  /// The lower-case hex SHA-256 of the text's ASCII bytes up to its first NUL, cut to its
  /// first `length` characters (all 64 when `length` is larger). Absent for an absent text
  /// or one with a character outside ASCII.
  Text sha256(const Text& key, std::size_t length) const;
};

}  // namespace qipg
