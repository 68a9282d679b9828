#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "qipg/Base64.h"
#include "security/EnvelopeBase64.h"

namespace qipg {
namespace {

using internal::envelopeBase64Decode;
using internal::envelopeBase64Encode;

Bytes bytes(std::string_view s) { return Bytes(s.begin(), s.end()); }

// RFC 4648, section 10, through both profiles; then random sizes round-trip through both.
TEST(Base64, KnownAnswersAndRoundTrips) {
  const std::pair<const char*, const char*> rfc4648[] = {{"", ""},
                                                         {"f", "Zg=="},
                                                         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},
                                                         {"foob", "Zm9vYg=="},
                                                         {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : rfc4648) {
    EXPECT_EQ(base64EncodedString(bytes(plain)), encoded);
    EXPECT_EQ(envelopeBase64Encode(bytes(plain)), encoded);
    EXPECT_EQ(dataFromBase64String(std::string(encoded)), bytes(plain));
    EXPECT_EQ(envelopeBase64Decode(encoded), bytes(plain));
  }
  std::mt19937 rng(7);
  for (std::size_t n = 0; n <= 200; ++n) {
    Bytes data(n);
    for (auto& b : data) b = static_cast<std::uint8_t>(rng());
    EXPECT_EQ(dataFromBase64String(base64EncodedString(data)), data) << n;
    EXPECT_EQ(dataFromBase64String(base64EncodedStringWithSeparateLines(data, false)), data) << n;
    EXPECT_EQ(envelopeBase64Decode(envelopeBase64Encode(data)), data) << n;
  }
}

TEST(Base64, LineBreaksOnlyBetweenLines) {
  // Encoder 0: the library's, 64 characters a line; 1: the same on one line; 2: the envelope's,
  // 76 characters a line.
  const auto encode = [](int encoder, const Bytes& b) {
    return encoder == 0   ? base64EncodedString(b)
           : encoder == 1 ? base64EncodedStringWithSeparateLines(b, false)
                          : envelopeBase64Encode(b);
  };
  const struct {
    int encoder;
    std::size_t size, length;
    std::vector<std::size_t> breaks;  // where each CR LF stands
  } cases[] = {{0, 48, 64, {}},   {0, 49, 70, {64}}, {0, 96, 130, {64}}, {0, 97, 136, {64, 130}},
               {1, 100, 136, {}}, {2, 57, 76, {}},   {2, 58, 82, {76}},  {2, 114, 154, {76}}};
  for (const auto& c : cases) {
    const std::string text = encode(c.encoder, Bytes(c.size, 0));
    std::vector<std::size_t> breaks;
    for (auto at = text.find("\r\n"); at != std::string::npos; at = text.find("\r\n", at + 1)) {
      breaks.push_back(at);
    }
    EXPECT_EQ(text.size(), c.length) << c.size;
    EXPECT_EQ(breaks, c.breaks) << c.size;
  }
  EXPECT_EQ(base64EncodedString(Bytes(49, 0)).substr(66), "AA==");
}

// The library's decoder: a final pass gathering nothing drops the last byte written; "=" is
// skipped like any other character outside the alphabet; a single leftover value writes
// nothing and drops nothing; text without any alphabet character or not ASCII decodes to none.
TEST(Base64, LibraryDecoderQuirks) {
  const std::pair<std::string, std::string> cases[] = {{"QUJD", "ABC"},
                                                       {"QUJD\r\n", "AB"},
                                                       {"QUJD=", "AB"},
                                                       {"QUJDQUJD\r\n", "ABCAB"},
                                                       {"QQ==", "A"},
                                                       {"QUI=", "AB"},
                                                       {"QQ==QUJD", "A\x04\x14$"},
                                                       {"QU JD\r\nQUJD", "ABCABC"},
                                                       {"QUJDQ", "ABC"},
                                                       {"Q", ""},
                                                       {"====", ""},
                                                       {"QUJD\xC3\xA9", ""}};
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(dataFromBase64String(text), bytes(expected)) << text;
  EXPECT_EQ(dataFromBase64String(std::nullopt), Bytes{});
}

TEST(EnvelopeBase64, LenientDecoding) {
  const std::pair<std::string, std::optional<Bytes>> cases[] = {
      {"", Bytes{}},           {"\r\n \t*", Bytes{}},     {"Q!U@J#D", bytes("ABC")},
      {"QQ==", bytes("A")},    {"QU\r\nI=", bytes("AB")}, {"QUJ", std::nullopt},
      {"QQ=", std::nullopt},   {"Q===", std::nullopt},    {"QU=D", std::nullopt},
      {"QUJD=", std::nullopt}, {"QQ==QUJD", std::nullopt}};
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(envelopeBase64Decode(text), expected) << text;
}

}  // namespace
}  // namespace qipg
