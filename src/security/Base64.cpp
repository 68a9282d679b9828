// The library's own Base64 codec (the host-facing one). Its quirks are kept on purpose:
// hosts that stored its output, or feed it their own text, rely on them.

#include "qipg/Base64.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "common/Ascii.h"

namespace qipg {
namespace {

constexpr char kEncodeTable[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Value of a byte that is not an alphabet character ("=", blanks, line breaks, anything else).
constexpr std::uint8_t kSkip = 65;

constexpr std::array<std::uint8_t, 256> makeDecodeTable() {
  std::array<std::uint8_t, 256> table{};
  for (auto& v : table) v = kSkip;
  for (std::uint8_t i = 0; i < 64; ++i) table[static_cast<unsigned char>(kEncodeTable[i])] = i;
  return table;
}

constexpr std::array<std::uint8_t, 256> kDecodeTable = makeDecodeTable();

constexpr std::size_t kBinaryUnit = 3;
constexpr std::size_t kBase64Unit = 4;
constexpr std::size_t kInputBytesPerLine = 48;  // 64 output characters

}  // namespace

char* NewBase64Encode(const void* buffer, std::size_t length, bool separateLines,
                      std::size_t* outputLength) {
  const auto* input = static_cast<const std::uint8_t*>(buffer);

  // Capacity: 4 characters per started 3-byte unit, 2 per full 64-character line, and the NUL.
  const std::size_t units = length / kBinaryUnit + (length % kBinaryUnit != 0 ? 1 : 0);
  if (units > (SIZE_MAX - 1) / 5) return nullptr;  // keeps the sums below from wrapping
  std::size_t size = units * kBase64Unit;
  if (separateLines) size += (size / 64) * 2;
  size += 1;

  auto* output = static_cast<char*>(std::malloc(size));
  if (output == nullptr) return nullptr;
  if (length > 0 && input == nullptr) {  // nothing to read: treat as empty input
    length = 0;
  }

  const std::size_t lineLength = separateLines ? kInputBytesPerLine : length;
  std::size_t i = 0;
  std::size_t j = 0;
  std::size_t lineEnd = lineLength;
  while (true) {
    const bool lastLine = lineEnd >= length;
    if (lastLine) lineEnd = length;
    for (; i + kBinaryUnit - 1 < lineEnd; i += kBinaryUnit) {
      output[j++] = kEncodeTable[(input[i] & 0xFC) >> 2];
      output[j++] = kEncodeTable[((input[i] & 0x03) << 4) | ((input[i + 1] & 0xF0) >> 4)];
      output[j++] = kEncodeTable[((input[i + 1] & 0x0F) << 2) | ((input[i + 2] & 0xC0) >> 6)];
      output[j++] = kEncodeTable[input[i + 2] & 0x3F];
    }
    if (lastLine) break;
    output[j++] = '\r';
    output[j++] = '\n';
    lineEnd += lineLength;
  }

  if (i + 1 < length) {  // two bytes left
    output[j++] = kEncodeTable[(input[i] & 0xFC) >> 2];
    output[j++] = kEncodeTable[((input[i] & 0x03) << 4) | ((input[i + 1] & 0xF0) >> 4)];
    output[j++] = kEncodeTable[(input[i + 1] & 0x0F) << 2];
    output[j++] = '=';
  } else if (i < length) {  // one byte left
    output[j++] = kEncodeTable[(input[i] & 0xFC) >> 2];
    output[j++] = kEncodeTable[(input[i] & 0x03) << 4];
    output[j++] = '=';
    output[j++] = '=';
  }
  output[j] = '\0';

  if (outputLength != nullptr) *outputLength = j;
  return output;
}

void* NewBase64Decode(const char* inputBuffer, std::size_t length, std::size_t* outputLength) {
  if (inputBuffer == nullptr) length = 0;
  if (length == SIZE_MAX) length = std::strlen(inputBuffer);

  // Room for 3 bytes per started group of 4 input characters; never less than one byte, so
  // that an empty result is still a buffer the caller can free.
  const std::size_t groups = length / kBase64Unit + (length % kBase64Unit != 0 ? 1 : 0);
  if (groups > SIZE_MAX / kBinaryUnit) return nullptr;
  const std::size_t size = groups * kBinaryUnit;
  auto* output = static_cast<std::uint8_t*>(std::malloc(size == 0 ? 1 : size));
  if (output == nullptr) return nullptr;

  const auto* input = reinterpret_cast<const unsigned char*>(inputBuffer);
  std::size_t i = 0;
  // Output length as the passes grow it. Kept signed: a pass that gathers nothing lowers it
  // by one (dropping the last decoded byte), and only such a final pass can do so, so it
  // can go below zero only when no alphabet character was seen at all.
  std::ptrdiff_t j = 0;
  while (i < length) {
    std::uint8_t gathered[kBase64Unit];
    std::size_t count = 0;
    while (i < length) {
      const std::uint8_t value = kDecodeTable[input[i++]];
      if (value != kSkip) {
        gathered[count++] = value;
        if (count == kBase64Unit) break;
      }
    }
    // Every pass but the last gathers 4 values, so `j` is a multiple of 3 here and the
    // writes below stay within `size` (see the capacity above).
    if (count >= 2) output[j] = static_cast<std::uint8_t>((gathered[0] << 2) | (gathered[1] >> 4));
    if (count >= 3) {
      output[j + 1] = static_cast<std::uint8_t>((gathered[1] << 4) | (gathered[2] >> 2));
    }
    if (count >= 4) output[j + 2] = static_cast<std::uint8_t>((gathered[2] << 6) | gathered[3]);
    j += static_cast<std::ptrdiff_t>(count) - 1;
  }

  if (outputLength != nullptr) *outputLength = j < 0 ? 0 : static_cast<std::size_t>(j);
  return output;
}

Bytes dataFromBase64String(const Text& aString) {
  if (!aString || !internal::isAscii(*aString)) return {};
  std::size_t length = 0;
  void* decoded = NewBase64Decode(aString->data(), aString->size(), &length);
  if (decoded == nullptr) return {};
  const auto* bytes = static_cast<const std::uint8_t*>(decoded);
  Bytes result(bytes, bytes + length);
  std::free(decoded);
  return result;
}

std::string base64EncodedStringWithSeparateLines(const Bytes& data, bool separateLines) {
  std::size_t length = 0;
  char* encoded = NewBase64Encode(data.data(), data.size(), separateLines, &length);
  if (encoded == nullptr) return {};
  std::string result(encoded, length);
  std::free(encoded);
  return result;
}

std::string base64EncodedString(const Bytes& data) {
  return base64EncodedStringWithSeparateLines(data, true);
}

}  // namespace qipg
