/// @file Cryptography.h
/// The message envelope: how every request message leaves the library and every management
/// answer comes back.
///
/// Envelope text = Base64 (CR LF after every 76 characters when more follow) of the
/// AES-256-CBC/PKCS #7 cipher text of the UTF-8 message, with every "+" written "%2B".
/// The AES key is the first 32 lower-case hex characters of SHA-256 of the merchant key, used
/// as ASCII bytes; the IV is the 16-character text stored under "randomIV" (see
/// CommonUtilities::SetRandomIV), which QuandrelIPG::create writes. Nothing travels but the
/// cipher text: no IV, salt or version prefix.
///
/// Thread-safe: no state of its own; the IV is read from the process-wide store at each call.
#pragma once

#include "qipg/Export.h"
#include "qipg/Types.h"

namespace qipg {

/// Seals `plainText` with the merchant key `encKey`. Returns the empty text when it cannot:
/// an absent merchant key or one with a character outside ASCII, or no IV stored yet (create
/// a QuandrelIPG first).
QIPG_EXPORT std::string encryptTextWithEncKey(const std::string& plainText, const Text& encKey);

/// Opens an envelope text as received (line breaks and other characters outside the Base64
/// alphabet are ignored; only the exact "%2B" is turned back into "+"). Returns an absent text
/// for an absent input; the empty text when the Base64 cannot be decoded; an absent text when
/// decryption fails (wrong key or IV, damaged text, no IV stored, a merchant key that is absent
/// or not ASCII) or the plain bytes are not UTF-8.
QIPG_EXPORT Text decryptTextWithDecryptionKey(const Text& envelopeText, const Text& decKey);

/// Decrypts `string` with the AES key text `password` and the IV text `IV` as they stand
/// (no hashing). Returns the plain text, or an absent text when decryption fails or the plain
/// bytes are not UTF-8.
QIPG_EXPORT Text getDecryptedDataWithPassword(const Text& password, const Text& IV,
                                              const Bytes& string);

}  // namespace qipg
