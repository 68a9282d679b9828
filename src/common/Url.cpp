#include "common/Url.h"

#include <arpa/inet.h>

#include <algorithm>

namespace qipg::internal {

UrlHandle parseURL(const std::string& url, unsigned flags) {
  UrlHandle handle(curl_url());
  if (handle && curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), flags) != CURLUE_OK) {
    handle.reset();
  }
  return handle;
}

Text urlPart(const UrlHandle& url, CURLUPart which, unsigned flags) {
  char* raw = nullptr;
  if (!url || curl_url_get(url.get(), which, &raw, flags) != CURLUE_OK || raw == nullptr) {
    return std::nullopt;
  }
  std::string out = raw;
  curl_free(raw);
  return out;
}

namespace {

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; });
  return text;
}

// True when `handle` holds an http or https URL.
bool isWeb(const UrlHandle& handle) {
  const Text scheme = urlPart(handle, CURLUPART_SCHEME);
  return scheme && (lower(*scheme) == "http" || lower(*scheme) == "https");
}

std::string canonicalOnce(const std::string& url) {
  // Only web addresses have a canonical form; any other text stays as it is.
  if (url.find('\0') != std::string::npos) return url;
  UrlHandle handle = parseURL(url);
  const Text host = urlPart(handle, CURLUPART_HOST);
  if (!isWeb(handle) || !host) return url;
  curl_url_set(handle.get(), CURLUPART_HOST, lower(*host).c_str(), 0);
  return urlPart(handle, CURLUPART_URL, CURLU_NO_DEFAULT_PORT).value_or(url);
}

// The host of the URL in `handle` in lower case, without an IPv6 address's brackets.
std::string hostIn(const UrlHandle& handle) {
  std::string out = lower(urlPart(handle, CURLUPART_HOST).value_or(""));
  if (out.size() > 1 && out.front() == '[' && out.back() == ']')
    out = out.substr(1, out.size() - 2);
  return out;
}

}  // namespace

std::string canonicalURL(const std::string& url) {
  // Twice: a host libcurl decodes (say "%33") may take its final spelling ("0.0.0.3") only
  // when the text is read again.
  return canonicalOnce(canonicalOnce(url));
}

std::string returnURL(const std::string& baseURL) {
  return canonicalURL(baseURL) + "paymentInvoice";
}

std::string hostOf(const std::string& url) { return hostIn(parseURL(url)); }

bool hasLoopbackHost(const std::string& url) {
  if (url.find('\0') != std::string::npos) return false;
  const UrlHandle handle = parseURL(url);
  if (!isWeb(handle)) return false;
  const std::string host = hostIn(handle);
  if (host == "localhost") return true;
  in6_addr v6{};
  if (inet_pton(AF_INET6, host.c_str(), &v6) == 1) {
    return IN6_IS_ADDR_LOOPBACK(&v6) || (IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[12] == 127);
  }
  // libcurl writes a numeric IPv4 host as a dotted quad, whatever the spelling it was given.
  in_addr v4{};
  return inet_pton(AF_INET, host.c_str(), &v4) == 1 && (ntohl(v4.s_addr) >> 24) == 127;
}

}  // namespace qipg::internal
