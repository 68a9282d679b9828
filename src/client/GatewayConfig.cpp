#include "qipg/GatewayConfig.h"

#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "common/Ascii.h"
#include "common/Url.h"

namespace qipg {
namespace {

// A URL as it can stand in a one-line message: control characters become "?", and a text
// too long for a line is cut.
std::string printable(std::string_view text) {
  constexpr std::size_t kLongest = 200;
  std::string out(text.substr(0, kLongest));
  if (text.size() > kLongest) out += "...";
  for (char& c : out) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) c = '?';
  }
  return out;
}

std::string asciiLower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

// A base URL as libcurl's URL parser reads it: its canonical form, or why it is refused.
struct BaseURL {
  Text canonical;
  Text problem;
};

// `which` names the URL in the message ("test").
BaseURL readBaseURL(std::string_view which, const std::string& url) {
  const std::string name = std::string(which) + " base URL";
  const auto refuse = [&](const std::string& why) { return BaseURL{std::nullopt, name + why}; };
  if (url.empty()) return refuse(" is empty");
  const std::string shown = printable(url);
  // Printable ASCII only, without the characters a web view would percent-encode in a path.
  for (const char c : url) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte <= ' ' || byte >= 0x7F ||
        std::string_view("\"<>`{}|^").find(c) != std::string_view::npos) {
      return refuse(" is not a valid URL: " + shown);
    }
  }

  // Any scheme is read, so that "ftp://..." is refused for its scheme, not as malformed.
  const internal::UrlHandle handle = internal::parseURL(url, CURLU_NON_SUPPORT_SCHEME);
  if (!handle) return refuse(" is not a valid URL: " + shown);
  const Text scheme = internal::urlPart(handle, CURLUPART_SCHEME);
  const Text host = internal::urlPart(handle, CURLUPART_HOST);
  if (!scheme) return refuse(" is not a valid URL: " + shown);
  if (!host || host->empty()) return refuse(" has no host: " + shown);
  // Not shown: it may hold a password.
  if (internal::urlPart(handle, CURLUPART_USER) || internal::urlPart(handle, CURLUPART_PASSWORD)) {
    return refuse(" must not carry a user name or password");
  }
  if (url.find('\\') != std::string::npos) return refuse(" must not contain a backslash: " + shown);
  // An escaped dot segment ("%2e%2e/") is one to a web view and none to curl.
  if (url.find('%') != std::string::npos) {
    return refuse(" must not contain percent-escapes: " + shown);
  }
  if (internal::urlPart(handle, CURLUPART_QUERY)) return refuse(" must not have a query: " + shown);
  if (internal::urlPart(handle, CURLUPART_FRAGMENT))
    return refuse(" must not have a fragment: " + shown);

  // Longer names are no DNS names; resolving them would only fail later and slower.
  constexpr std::size_t kLongestHost = 253;
  if (host->size() > kLongestHost) {
    return refuse(" has a host name longer than " + std::to_string(kLongestHost) +
                  " characters: " + shown);
  }
  if (internal::urlPart(handle, CURLUPART_PORT) == "0") return refuse(" has port 0: " + shown);
  if (*scheme != "https" && !(*scheme == "http" && internal::hasLoopbackHost(url))) {
    return refuse(" must use https (http is allowed only on a loopback host): " + shown);
  }
  if (url.back() != '/') {
    return refuse(" must end with \"/\" (endpoint names are appended to it): " + shown);
  }
  // The text must be its canonical form, but for the case of scheme and host and a default
  // port: anything else (dot segments, another spelling of an address or a port) reads
  // differently.
  const std::string canonical = internal::canonicalURL(url);
  const std::string origin = *scheme + "://" + asciiLower(*host);
  bool same =
      canonical.starts_with(origin) && url.size() >= origin.size() &&
      internal::equalsIgnoringAsciiCase(std::string_view(url).substr(0, origin.size()), origin);
  if (same) {
    std::string_view written = std::string_view(url).substr(origin.size());
    const std::string_view rest = std::string_view(canonical).substr(origin.size());
    const std::string defaultPort = *scheme == "https" ? ":443" : ":80";
    if (rest.starts_with('/') && written.starts_with(defaultPort + "/")) {
      written.remove_prefix(defaultPort.size());
    }
    same = written == rest;
  }
  if (!same) {
    return refuse(" reads as " + canonical + "; write it so: " + shown);
  }
  return BaseURL{canonical, std::nullopt};
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

Text GatewayConfig::canonicalBaseURL(const std::string& url) {
  return readBaseURL("", url).canonical;
}

GatewayConfig GatewayConfig::canonical() const {
  GatewayConfig copy = *this;
  for (std::string* url : {&copy.testBaseURL, &copy.productionBaseURL}) {
    if (Text canonical = canonicalBaseURL(*url)) *url = std::move(*canonical);
  }
  return copy;
}

Text GatewayConfig::problem() const {
  if (Text p = readBaseURL("test", testBaseURL).problem) return p;
  if (Text p = readBaseURL("production", productionBaseURL).problem) return p;
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
