#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
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
  using Encoder = std::function<std::string(const Bytes&)>;
  const Encoder lines = [](const Bytes& b) { return base64EncodedString(b); };
  const Encoder oneLine = [](const Bytes& b) {
    return base64EncodedStringWithSeparateLines(b, false);
  };
  const Encoder envelope = [](const Bytes& b) { return envelopeBase64Encode(b); };
  struct Case {
    const Encoder& encode;
    std::size_t size, length;
    std::vector<std::size_t> breaks;  // where each CR LF stands
  };
  const Case cases[] = {{lines, 48, 64, {}},      {lines, 49, 70, {64}},
                        {lines, 96, 130, {64}},   {lines, 97, 136, {64, 130}},
                        {oneLine, 100, 136, {}},  {envelope, 57, 76, {}},
                        {envelope, 58, 82, {76}}, {envelope, 114, 154, {76}}};
  for (const Case& c : cases) {
    const std::string text = c.encode(Bytes(c.size, 0));
    std::vector<std::size_t> breaks;
    for (auto at = text.find("\r\n"); at != std::string::npos; at = text.find("\r\n", at + 1)) {
      breaks.push_back(at);
    }
    EXPECT_EQ(text.size(), c.length) << c.size;
    EXPECT_EQ(breaks, c.breaks) << c.size;
  }
  EXPECT_EQ(base64EncodedString(Bytes(49, 0)).substr(66), "AA==");
}

TEST(Base64, LibraryDecoderQuirks) {
  const std::pair<std::string, Bytes> cases[] = {
      {"QUJD", bytes("ABC")},
      {"QUJD\r\n", bytes("AB")},  // a final pass gathering nothing drops the last byte
      {"QUJD=", bytes("AB")},
      {"QUJDQUJD\r\n", bytes("ABCAB")},
      {"QQ==", bytes("A")},
      {"QUI=", bytes("AB")},
      {"QQ==QUJD", Bytes{0x41, 0x04, 0x14, 0x24}},  // "=" skipped: QQQU, then JD
      {"QU JD\r\nQUJD", bytes("ABCABC")},
      {"QUJDQ", bytes("ABC")},  // one value: nothing written, nothing dropped
      {"Q", {}},
      {"====", {}},          // no alphabet character at all
      {"QUJD\xC3\xA9", {}},  // not ASCII
  };
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(dataFromBase64String(text), expected) << text;
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
