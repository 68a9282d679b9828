// The canonical form of web addresses, read with libcurl's URL API. Base URLs are kept in this
// form (GatewayConfig), and every address we build from one (the return address of a payment)
// is built from it, so that "HTTPS://Host:443/ipg/" and "https://host/ipg/" are one gateway
// everywhere. Addresses we read (a web view's) are never rewritten. Thread-safe.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "qipg/Types.h"

namespace qipg::internal {

// Owner of a libcurl URL handle.
struct UrlHandleDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlHandleDeleter>;

// `url` read by libcurl's URL parser (with `flags`, e.g. CURLU_NON_SUPPORT_SCHEME); empty when
// it does not parse or there is no memory.
UrlHandle parseURL(const std::string& url, unsigned flags = CURLU_NON_SUPPORT_SCHEME);

// One part of a parsed URL as libcurl writes it; absent when the URL has none.
Text urlPart(const UrlHandle& url, CURLUPart which, unsigned flags = 0);

// `url` with scheme and host in lower case, the scheme's default port dropped and dot segments
// of the path resolved; user info, the rest of the path, query and fragment as they stand. Any
// other text (not an http or https URL libcurl can parse) comes back unchanged. The canonical
// form of a canonical form is itself.
std::string canonicalURL(const std::string& url);

// The payment's return address under `baseURL`: the canonical base URL followed by
// "paymentInvoice". The one derivation of it, for the address a payment message names and the
// address the payment page takes for the final page.
std::string returnURL(const std::string& baseURL);

// The host of `url` in lower case (an IPv6 address without its brackets); "" when none.
std::string hostOf(const std::string& url);

// The one loopback rule of the library and its tools: true when `url` is an http or https URL
// (read by libcurl's URL parser) and its host is "localhost" in any letter case, an IPv4 address in
// 127.0.0.0/8, or the IPv6 loopback ::1 (also as an IPv4-mapped 127.x address). Names under
// "localhost." and other names that merely resolve to this machine are not loopback: what a name
// resolves to can change, the address cannot. Such a host may be reached over plain http and never
// through a proxy.
bool hasLoopbackHost(const std::string& url);

}  // namespace qipg::internal
