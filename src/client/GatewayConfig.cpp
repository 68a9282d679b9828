#include "qipg/GatewayConfig.h"

#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "common/Ascii.h"

namespace qipg {
namespace {

// Owner of a libcurl URL handle.
struct UrlHandleDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlHandleDeleter>;

// Owner of a text that libcurl allocated.
struct CurlTextDeleter {
  void operator()(char* text) const { curl_free(text); }
};
using CurlText = std::unique_ptr<char, CurlTextDeleter>;

// A URL as it can stand in a one-line message: control characters become "?".
std::string printable(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) c = '?';
  }
  return out;
}

// True for a dotted quad whose first part is 127: four decimal parts of at most three digits,
// each at most 255, nothing else. "127.0.0.1.evil.com" is a host name, not an address.
bool isIPv4Loopback(std::string_view host) {
  int parts[4];
  int count = 0;
  std::size_t i = 0;
  while (count < 4) {
    std::size_t digits = 0;
    int value = 0;
    while (i < host.size() && host[i] >= '0' && host[i] <= '9' && digits < 4) {
      value = value * 10 + (host[i] - '0');
      ++i;
      ++digits;
    }
    if (digits == 0 || digits > 3 || value > 255) return false;
    parts[count++] = value;
    if (count < 4) {
      if (i >= host.size() || host[i] != '.') return false;
      ++i;
    }
  }
  return i == host.size() && parts[0] == 127;
}

// "::1" in any of its spellings inside brackets: "[::1]", "[0:0:0:0:0:0:0:1]", ...
bool isIPv6Loopback(std::string_view host) {
  if (host.size() < 2 || host.front() != '[' || host.back() != ']') return false;
  std::string_view inner = host.substr(1, host.size() - 2);
  // Expand into eight groups and require 0,...,0,1.
  unsigned groups[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  const std::size_t gap = inner.find("::");
  auto parseGroups = [](std::string_view text, unsigned* out, int max) -> int {
    if (text.empty()) return 0;
    int count = 0;
    std::size_t start = 0;
    while (true) {
      const std::size_t end = text.find(':', start);
      const std::string_view group =
          text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
      if (group.empty() || group.size() > 4 || count == max) return -1;
      unsigned value = 0;
      for (char c : group) {
        int digit;
        if (c >= '0' && c <= '9') {
          digit = c - '0';
        } else if (c >= 'a' && c <= 'f') {
          digit = c - 'a' + 10;
        } else if (c >= 'A' && c <= 'F') {
          digit = c - 'A' + 10;
        } else {
          return -1;
        }
        value = value * 16 + static_cast<unsigned>(digit);
      }
      out[count++] = value;
      if (end == std::string_view::npos) return count;
      start = end + 1;
    }
  };
  if (gap == std::string_view::npos) {
    if (parseGroups(inner, groups, 8) != 8) return false;
  } else {
    unsigned head[8];
    unsigned tail[8];
    const int headCount = parseGroups(inner.substr(0, gap), head, 7);
    const int tailCount = parseGroups(inner.substr(gap + 2), tail, 7);
    if (headCount < 0 || tailCount < 0 || headCount + tailCount > 7) return false;
    for (int k = 0; k < headCount; ++k) groups[k] = head[k];
    for (int k = 0; k < tailCount; ++k) groups[8 - tailCount + k] = tail[k];
  }
  for (int k = 0; k < 7; ++k) {
    if (groups[k] != 0) return false;
  }
  return groups[7] == 1;
}

bool isLoopbackHost(std::string_view host) {
  return internal::equalsIgnoringAsciiCase(host, "localhost") || isIPv4Loopback(host) ||
         isIPv6Loopback(host);
}

// The problem of one base URL, or absent. `which` names it in the message ("test").
Text baseURLProblem(std::string_view which, const std::string& url) {
  const std::string name = std::string(which) + " base URL";
  if (url.empty()) return name + " is empty";
  const std::string shown = printable(url);

  UrlHandle handle(curl_url());
  if (!handle) return name + " cannot be checked (out of memory): " + shown;
  // Parse any scheme, so that "ftp://..." is refused for its scheme, not as malformed.
  if (curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), CURLU_NON_SUPPORT_SCHEME) !=
      CURLUE_OK) {
    return name + " is not a valid URL: " + shown;
  }
  char* rawScheme = nullptr;
  char* rawHost = nullptr;
  if (curl_url_get(handle.get(), CURLUPART_SCHEME, &rawScheme, 0) != CURLUE_OK) {
    return name + " is not a valid URL: " + shown;
  }
  CurlText scheme(rawScheme);
  if (curl_url_get(handle.get(), CURLUPART_HOST, &rawHost, 0) != CURLUE_OK) {
    return name + " has no host: " + shown;
  }
  CurlText host(rawHost);
  if (host == nullptr || *host == '\0') return name + " has no host: " + shown;

  const std::string_view schemeText(scheme.get());
  const bool https = internal::equalsIgnoringAsciiCase(schemeText, "https");
  const bool http = internal::equalsIgnoringAsciiCase(schemeText, "http");
  if (!https && !(http && isLoopbackHost(host.get()))) {
    return name + " must use https (http is allowed only on a loopback host): " + shown;
  }
  if (url.back() != '/') {
    return name + " must end with \"/\" (endpoint names are appended to it): " + shown;
  }
  return std::nullopt;
}

// The environment variable's value; absent when it is unset or empty.
Text environmentValue(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::string(value);
}

}  // namespace

GatewayConfig GatewayConfig::fromEnvironment() {
  GatewayConfig config;
  if (Text value = environmentValue("QIPG_TEST_BASE_URL")) config.testBaseURL = *value;
  if (Text value = environmentValue("QIPG_PRODUCTION_BASE_URL")) config.productionBaseURL = *value;
  if (Text value = environmentValue("QIPG_CA_FILE")) config.caFile = *value;
  return config;
}

Text GatewayConfig::problem() const {
  if (Text p = baseURLProblem("test", testBaseURL)) return p;
  if (Text p = baseURLProblem("production", productionBaseURL)) return p;
  if (!caFile.empty()) {
    std::error_code error;
    std::FILE* file = std::filesystem::is_regular_file(caFile, error)
                          ? std::fopen(caFile.c_str(), "rb")
                          : nullptr;
    if (file == nullptr) return "CA file is not a readable file: " + printable(caFile);
    std::fclose(file);
  }
  if (connectTimeoutMs < 0) return "connect time-out must not be negative";
  return std::nullopt;
}

}  // namespace qipg
