// The sandbox's text helpers on arbitrary request text: form splitting, percent-decoding,
// message slots, amounts and HTML escaping. Each reading must keep what it promises about the
// text it was given, whatever the bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <unordered_set>

#include "Text.h"

namespace {

using namespace qipg::sandbox::internal;

void expect(bool holds) {
  if (!holds) std::abort();
}

std::size_t count(std::string_view text, char c) {
  std::size_t n = 0;
  for (const char x : text) n += x == c ? 1 : 0;
  return n;
}

// Every byte as %XX, alternating upper- and lower-case hex digits.
std::string escapeAll(std::string_view text) {
  static constexpr char kUpper[] = "0123456789ABCDEF";
  static constexpr char kLower[] = "0123456789abcdef";
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto b = static_cast<unsigned char>(text[i]);
    const char* hex = i % 2 == 0 ? kUpper : kLower;
    out.push_back('%');
    out.push_back(hex[b >> 4]);
    out.push_back(hex[b & 0x0f]);
  }
  return out;
}

// The way a browser encodes a form value: letters and digits as they are, blanks as "+",
// anything else as %XX.
std::string browserEncode(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (const char c : text) {
    const auto b = static_cast<unsigned char>(c);
    if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) {
      out.push_back(c);
    } else if (c == ' ') {
      out.push_back('+');
    } else {
      out.push_back('%');
      out.push_back(kHex[b >> 4]);
      out.push_back(kHex[b & 0x0f]);
    }
  }
  return out;
}

void checkForm(std::string_view text) {
  const auto fields = splitForm(text);
  expect(fields.size() <= count(text, '&') + 1);
  std::size_t kept = 0;
  std::unordered_set<std::string> seen;
  for (const RawField& f : fields) {
    expect(f.name.find('&') == std::string::npos && f.name.find('=') == std::string::npos);
    expect(f.value.find('&') == std::string::npos);
    kept += f.name.size() + f.value.size();
    // The first field of a name wins.
    if (seen.size() < 64 && seen.insert(f.name).second) {
      expect(rawField(fields, f.name) == f.value);
    }
  }
  expect(kept <= text.size());

  // An envelope carries no "&": its value ends exactly where the MID part starts, whatever
  // "=", "%" or line breaks it holds.
  std::string envelope(text);
  envelope.erase(std::remove(envelope.begin(), envelope.end(), '&'), envelope.end());
  const auto posted = splitForm("merchantReqStrT=" + envelope + "&mid=QIPGTEST0001");
  expect(rawField(posted, "merchantReqStrT") == envelope);
  expect(rawField(posted, "mid") == std::string("QIPGTEST0001"));

  // A browser-encoded value decodes back to the bytes, and a name is found in its encoded form.
  const auto form = splitForm("cvv=1&holder%20name=" + browserEncode(text) + "&holder=x");
  expect(formValue(form, "holder name") == std::string(text));
  expect(formValue(form, "missing") == std::nullopt);
}

void checkPercentDecode(std::string_view text) {
  const std::string plain = percentDecode(text, false);
  const std::string form = percentDecode(text, true);
  expect(plain.size() <= text.size());
  if (text.find('%') == std::string_view::npos) expect(plain == text);
  // Reading "+" as a blank changes nothing else.
  expect(form.size() == plain.size());
  for (std::size_t i = 0; i < plain.size(); ++i) {
    expect(form[i] == plain[i] || (form[i] == ' ' && plain[i] == '+'));
  }
  expect(percentDecode(escapeAll(text), false) == text);
  expect(percentDecode(escapeAll(text), true) == text);
}

void checkPipes(std::string_view text) {
  const auto slots = splitPipes(text);
  expect(slots.size() == count(text, '|') + 1);
  std::string joined;
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (i > 0) joined.push_back('|');
    joined += slots[i];
    expect(slotValue(slots[i]) == (slots[i] == "-" ? "" : slots[i]));
  }
  expect(joined == text);
}

void checkAmount(std::string_view text) {
  const auto minor = parseAmount(text);
  if (!minor) return;
  expect(*minor >= 0 && *minor <= 999999999999999LL);
  expect(count(text, '.') <= 1);
  for (const char c : text) expect(c == '.' || (c >= '0' && c <= '9'));
  expect(parseAmount(formatAmount(*minor)) == minor);
}

void checkFormat(std::int64_t minor) {
  const std::string text = formatAmount(minor);
  const std::size_t dot = text.find('.');
  expect(dot != std::string::npos && dot + 3 == text.size());
  expect(isDigits(text.substr(dot + 1)));
  const std::string_view whole = std::string_view(text).substr(0, dot);
  expect(isDigits(minor < 0 ? whole.substr(1) : whole));
  expect((minor < 0) == (text[0] == '-'));
  if (minor >= 0 && minor <= 999999999999999LL) expect(parseAmount(text) == minor);
}

void checkEscape(std::string_view text) {
  const std::string escaped = htmlEscape(text);
  expect(escaped.find_first_of("<>\"'") == std::string::npos);
  // Undo the entities; every "&" must start one of them.
  static constexpr std::string_view kEntities[][2] = {
      {"&amp;", "&"}, {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}};
  std::string back;
  for (std::size_t i = 0; i < escaped.size();) {
    if (escaped[i] != '&') {
      back.push_back(escaped[i++]);
      continue;
    }
    bool known = false;
    for (const auto& entity : kEntities) {
      if (escaped.compare(i, entity[0].size(), entity[0]) == 0) {
        back += entity[1];
        i += entity[0].size();
        known = true;
        break;
      }
    }
    expect(known);
  }
  expect(back == text);
}

void checkCharacterClasses(std::string_view text) {
  if (isDigits(text)) expect(isAlphanumeric(text, text.size()));
  for (const std::size_t max : {std::size_t{1}, std::size_t{15}, std::size_t{30}}) {
    if (isAlphanumeric(text, max)) expect(!text.empty() && text.size() <= max);
  }
  expect(!isAlphanumeric(text, 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  checkForm(text);
  checkPercentDecode(text);
  checkPipes(text);
  checkAmount(text);
  checkEscape(text);
  checkCharacterClasses(text);
  std::int64_t minor = 0;
  std::memcpy(&minor, data, std::min(size, sizeof minor));
  checkFormat(minor);
  checkFormat(std::numeric_limits<std::int64_t>::min());
  return 0;
}
