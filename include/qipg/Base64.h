/// @file Base64.h
/// The library's own Base64 codec, published for the host application's use.
///
/// Standard alphabet (RFC 4648) with "=" padding. The codec keeps a few deliberate quirks
/// that hosts may depend on; see each function. All functions are thread-safe (no state).
#pragma once

#include <cstddef>
#include <string>

#include "qipg/Export.h"
#include "qipg/Types.h"

namespace qipg {

/// Encodes `length` bytes. With `separateLines`, a CR LF stands between 64-character lines
/// (48 input bytes each), never after the last line. Returns a NUL-terminated buffer that the
/// caller owns and releases with std::free, or nullptr when it cannot be allocated (then
/// `outputLength` is left untouched). `outputLength` (may be null) receives the text's length
/// without the NUL.
QIPG_EXPORT char* NewBase64Encode(const void* buffer, std::size_t length, bool separateLines,
                                  std::size_t* outputLength);

/// Decodes `length` characters; a length of SIZE_MAX means `inputBuffer` is NUL-terminated.
/// Every byte outside the alphabet, "=" included, is skipped wherever it stands, and "=" does
/// not end decoding; a group of 4 may be formed across skipped bytes. 4 values give 3 bytes;
/// at the end of the input 3 values give 2 bytes, 2 give 1, and 1 gives none. A trailing run
/// of skipped bytes after the last complete group (a final line break, or "=" after a full
/// group) drops the last decoded byte. A non-empty input without any alphabet character gives
/// length 0. Never reads outside `inputBuffer` whatever its bytes are (bytes above 0x7F are
/// skipped like any other). Returns a buffer that the caller owns and releases with std::free
/// (nullptr only when it cannot be allocated); `outputLength` (may be null) receives the
/// number of bytes in it.
QIPG_EXPORT void* NewBase64Decode(const char* inputBuffer, std::size_t length,
                                  std::size_t* outputLength);

/// The three byte-buffer operations on top of the codec.

/// Text to bytes. A text with any character outside ASCII, or an absent text, gives empty
/// data; so does a text that holds no alphabet character at all.
QIPG_EXPORT Bytes dataFromBase64String(const Text& aString);

/// Bytes to text with line separation on (64-character lines joined by CR LF).
QIPG_EXPORT std::string base64EncodedString(const Bytes& data);

/// Bytes to text; `separateLines` off gives one line of any length.
QIPG_EXPORT std::string base64EncodedStringWithSeparateLines(const Bytes& data, bool separateLines);

}  // namespace qipg
