#include "common/Url.h"

#include <arpa/inet.h>
#include <curl/curl.h>

#include <algorithm>
#include <memory>

namespace qipg::internal {
namespace {

using UrlHandle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

UrlHandle parse(const std::string& url) {
  UrlHandle handle(curl_url(), &curl_url_cleanup);
  if (handle && curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), CURLU_NON_SUPPORT_SCHEME) !=
                    CURLUE_OK) {
    handle.reset();
  }
  return handle;
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; });
  return text;
}

// True when `handle` holds an http or https URL.
bool isWeb(const UrlHandle& handle) {
  char* scheme = nullptr;
  if (!handle || curl_url_get(handle.get(), CURLUPART_SCHEME, &scheme, 0) != CURLUE_OK) {
    return false;
  }
  const std::string name = lower(scheme);
  curl_free(scheme);
  return name == "http" || name == "https";
}

std::string canonicalOnce(const std::string& url) {
  // Only web addresses have a canonical form; any other text stays as it is.
  if (url.find('\0') != std::string::npos) return url;
  UrlHandle handle = parse(url);
  char* host = nullptr;
  if (!isWeb(handle) || curl_url_get(handle.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK) {
    return url;
  }
  curl_url_set(handle.get(), CURLUPART_HOST, lower(host).c_str(), 0);
  curl_free(host);
  char* text = nullptr;
  if (curl_url_get(handle.get(), CURLUPART_URL, &text, CURLU_NO_DEFAULT_PORT) != CURLUE_OK) {
    return url;
  }
  std::string out = text;
  curl_free(text);
  return out;
}

// The host of the URL in `handle` in lower case, without an IPv6 address's brackets.
std::string hostIn(const UrlHandle& handle) {
  char* host = nullptr;
  if (!handle || curl_url_get(handle.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK) return "";
  std::string out = lower(host);
  curl_free(host);
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

std::string hostOf(const std::string& url) { return hostIn(parse(url)); }

bool hasLoopbackHost(const std::string& url) {
  if (url.find('\0') != std::string::npos) return false;
  const UrlHandle handle = parse(url);
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
