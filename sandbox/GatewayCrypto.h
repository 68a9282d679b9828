// The gateway's side of the message envelope, written on OpenSSL alone so that it doubles as
// an independent check of the client library's envelope.
//
// Envelope text: Base64 of the AES-256-CBC (PKCS #7) cipher text of the UTF-8 message, with a
// CR LF after every 76 characters when more follow and every "+" written "%2B". The AES key is
// the first 32 lower-case hex characters of SHA-256 of the merchant key, used as ASCII bytes;
// the IV is the environment's 16-character text, used as ASCII bytes.
//
// Thread-safe: no state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qipg::sandbox::internal {

// The environments' IV texts.
inline constexpr std::string_view kTestIV = "4e9a1c07b3d58f26";
inline constexpr std::string_view kProductionIV = "d2071f8be64c395a";

// Lower-case hex SHA-256 of `data` (64 characters).
std::string sha256Hex(std::string_view data);

// Standard Base64 ("+", "/", "=" padding), one line.
std::string base64Encode(const std::vector<std::uint8_t>& bytes);

// Strict standard Base64: CR, LF, blanks and tabs are skipped; any other character outside
// the alphabet, a wrong length or misplaced padding gives nothing.
std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text);

// Seals `plain` for the merchant key `merchantKey` and IV text `iv` (16 characters).
// Returns the empty text only when OpenSSL fails.
std::string sealEnvelope(std::string_view plain, std::string_view merchantKey, std::string_view iv);

// Opens an envelope text as received: "%2B" is read as "+", line breaks and blanks are
// ignored. Nothing when the Base64 is malformed, decryption fails (wrong key or IV, damaged
// text) or the plain bytes are not UTF-8.
std::optional<std::string> openEnvelope(std::string_view envelope, std::string_view merchantKey,
                                        std::string_view iv);

// True when `text` is well-formed UTF-8.
bool isUtf8(std::string_view text);

// `length` random bytes as lower-case hex; random decimal digits. Both use the OpenSSL DRBG.
std::string randomHex(std::size_t length);
std::string randomDigits(std::size_t count);

// Overwrites a string's characters before it is released.
void wipe(std::string& secret);
void wipe(std::vector<std::string>& secrets);

}  // namespace qipg::sandbox::internal
