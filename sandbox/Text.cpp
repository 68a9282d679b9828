#include "Text.h"

#include <ctime>

namespace qipg::sandbox::internal {
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::vector<RawField> splitForm(std::string_view body) {
  std::vector<RawField> fields;
  std::size_t start = 0;
  while (start <= body.size()) {
    std::size_t end = body.find('&', start);
    if (end == std::string_view::npos) end = body.size();
    const std::string_view pair = body.substr(start, end - start);
    if (!pair.empty()) {
      const std::size_t eq = pair.find('=');
      if (eq == std::string_view::npos) {
        fields.push_back({std::string(pair), std::string()});
      } else {
        fields.push_back({std::string(pair.substr(0, eq)), std::string(pair.substr(eq + 1))});
      }
    }
    start = end + 1;
  }
  return fields;
}

std::optional<std::string> rawField(const std::vector<RawField>& fields, std::string_view name) {
  for (const RawField& f : fields) {
    if (f.name == name) return f.value;
  }
  return std::nullopt;
}

std::string percentDecode(std::string_view text, bool plusIsSpace) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '%' && i + 2 < text.size()) {
      const int hi = hexValue(text[i + 1]);
      const int lo = hexValue(text[i + 2]);
      if (hi >= 0 && lo >= 0) {
        out.push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
        continue;
      }
    }
    out.push_back(plusIsSpace && c == '+' ? ' ' : c);
  }
  return out;
}

std::optional<std::string> formValue(const std::vector<RawField>& fields, std::string_view name) {
  for (const RawField& f : fields) {
    if (percentDecode(f.name, true) == name) return percentDecode(f.value, true);
  }
  return std::nullopt;
}

std::vector<std::string> splitPipes(std::string_view text) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (true) {
    const std::size_t bar = text.find('|', start);
    if (bar == std::string_view::npos) {
      out.emplace_back(text.substr(start));
      return out;
    }
    out.emplace_back(text.substr(start, bar - start));
    start = bar + 1;
  }
}

std::string slotValue(const std::string& slot) { return slot == "-" ? std::string() : slot; }

std::optional<std::int64_t> parseAmount(std::string_view text) {
  const std::size_t dot = text.find('.');
  const std::string_view whole = text.substr(0, dot);
  const std::string_view fraction =
      dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
  if (whole.empty() || whole.size() > 13 || !isDigits(whole)) return std::nullopt;
  if (dot != std::string_view::npos &&
      (fraction.empty() || fraction.size() > 2 || !isDigits(fraction))) {
    return std::nullopt;
  }
  std::int64_t minor = 0;
  for (char c : whole) minor = minor * 10 + (c - '0');
  std::int64_t cents = 0;
  for (std::size_t i = 0; i < 2; ++i) {
    cents = cents * 10 + (i < fraction.size() ? fraction[i] - '0' : 0);
  }
  return minor * 100 + cents;
}

std::string formatAmount(std::int64_t minor) {
  const bool negative = minor < 0;
  const std::uint64_t magnitude =
      negative ? 0 - static_cast<std::uint64_t>(minor) : static_cast<std::uint64_t>(minor);
  std::string cents = std::to_string(magnitude % 100);
  if (cents.size() < 2) cents.insert(0, "0");
  return (negative ? "-" : "") + std::to_string(magnitude / 100) + "." + cents;
}

bool isAlphanumeric(std::string_view text, std::size_t maxLength) {
  if (text.empty() || text.size() > maxLength) return false;
  for (char c : text) {
    const bool ok = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    if (!ok) return false;
  }
  return true;
}

bool isDigits(std::string_view text) {
  if (text.empty()) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

std::string htmlEscape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out.push_back(c);
    }
  }
  return out;
}

std::string utcNow() {
  const std::time_t now = std::time(nullptr);
  std::tm tm{};
  gmtime_r(&now, &tm);
  char buffer[32];
  std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &tm);
  return buffer;
}

}  // namespace qipg::sandbox::internal
