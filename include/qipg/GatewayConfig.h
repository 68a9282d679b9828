/// @file
/// Where the gateways are and how to trust them.
#pragma once

#include <string>

#include "qipg/Export.h"
#include "qipg/Types.h"

namespace qipg {

/// Where the gateways are and how to trust them: a plain value, copy it freely. Not
/// synchronised: share a copy between threads only for reading.
///
/// Base URLs. Endpoint names are appended to a base URL without a separator, so the test base
/// URL ends in "/ipg/" and the production one in "/". A base URL must use https, except when
/// its host is a loopback address (127.0.0.0/8, [::1] or "localhost"), where http is allowed
/// for local development. It is read once, by libcurl's URL parser, and must be written as
/// that parser reads it: no user name or password, backslash, percent-escape, query or
/// fragment, and nothing the parser would rewrite (dot segments, another spelling of an
/// address or a port). Only the case of scheme and host and a default port may differ from the
/// canonical form that every component then uses: scheme and host in lower case, no default
/// port, the path as written. "HTTPS://Example.COM:443/ipg/" and "https://example.com/ipg/"
/// are the same base URL.
///
/// QuandrelIPG::create refuses (returns nullptr for) a configuration whose problem() is not
/// absent, and keeps canonical() of one it accepts.
struct QIPG_EXPORT GatewayConfig {
  /// The test gateway's base URL; a placeholder until the host sets the real one.
  std::string testBaseURL = "https://test.ipg.quandrel.example/ipg/";
  /// The production gateway's base URL; a placeholder until the host sets the real one.
  std::string productionBaseURL = "https://ipg.quandrel.example/";

  /// A PEM file of certificate authorities to trust instead of the system's; empty: the
  /// system's trust store. TLS peer and host verification are always on.
  std::string caFile;

  /// An optional pinned public key in libcurl's form ("sha256//BASE64" or a PEM/DER file);
  /// empty: no pinning.
  std::string pinnedPublicKey;

  /// Proxies: the management calls honour a proxy named by the environment (`https_proxy`,
  /// `http_proxy`, `no_proxy`, read as libcurl reads them) on the way to the real gateway. A
  /// loopback host (localhost, 127.0.0.0/8, ::1) is always reached directly, never through a
  /// proxy.
  ///
  /// Time limits of the management calls. Every call ends: by default a connection must be
  /// made within 10 s and an answer must keep coming (no 60 s without a byte, the idle limit),
  /// with no overall limit. A call that runs out of time is answered like any transport
  /// failure. 0 is "no limit" and only ever an explicit choice.
  ///
  /// Connect time-out in milliseconds; 0: none of the library's own (libcurl's built-in
  /// 300 s connect limit still applies).
  long connectTimeoutMs = 10000;

  /// Idle limit in milliseconds, counted in whole seconds (rounded up): a transfer that moves
  /// less than one byte a second for this long, while waiting for the answer too, ends with a
  /// time-out. 0 (or less): none.
  long idleTimeoutMs = 60000;

  /// Overall time limit in milliseconds for each call, from connecting to the last byte of
  /// the answer, whatever moves meanwhile; 0 (or less): none.
  long requestTimeoutMs = 0;

  /// Defaults, with QIPG_TEST_BASE_URL, QIPG_PRODUCTION_BASE_URL and QIPG_CA_FILE from the
  /// environment where they are set to a non-empty value (an empty variable counts as unset).
  static GatewayConfig fromEnvironment();

  /// Whether the configuration is usable.
  /// @return absent when it is; else a one-line reason naming the URL or file, e.g.
  ///   "test base URL must use https (http is allowed only on a loopback host): http://x/ipg/".
  ///   Checked in this order: each base URL (test first) is not empty, holds only printable
  ///   ASCII that a web view keeps as it stands (no space, ", <, >, `, {, }, |, ^), parses as
  ///   a URL with a host, carries no user name or password (the reason then does not repeat
  ///   the URL), has no backslash, percent-escape, query or fragment, uses https (or http on
  ///   a loopback host), ends with "/" and is written as it reads; a non-empty caFile is a
  ///   readable regular file; connectTimeoutMs is not negative.
  Text problem() const;

  /// The canonical form of a base URL (see the class comment).
  /// @param url a base URL as the host wrote it.
  /// @return the canonical form, e.g. "https://example.com/ipg/" for
  ///   "HTTPS://Example.COM:443/ipg/"; absent when problem() would refuse `url`. The canonical
  ///   form of a canonical form is itself.
  static Text canonicalBaseURL(const std::string& url);

  /// A copy with both base URLs in canonical form; a base URL that problem() refuses is
  /// copied as it stands.
  GatewayConfig canonical() const;
};

}  // namespace qipg
