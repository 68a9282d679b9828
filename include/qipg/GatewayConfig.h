// Where the gateways are and how to trust them. A plain value; copy it freely.
//
// Base URLs: endpoint names are appended to them without a separator, so the test base URL
// ends in "/ipg/" and the production one in "/". A base URL must use https, except when its
// host is a loopback address (127.0.0.0/8, ::1 or "localhost"), where http is allowed for
// local development. QuandrelIPG::create refuses (returns nullptr for) a configuration whose
// problem() is not absent; problem() says why in one line.
#pragma once

#include <string>

#include "qipg/Export.h"
#include "qipg/Types.h"

namespace qipg {

struct QIPG_EXPORT GatewayConfig {
  // Placeholders until the host sets the real addresses.
  std::string testBaseURL = "https://test.ipg.quandrel.example/ipg/";
  std::string productionBaseURL = "https://ipg.quandrel.example/";

  // A PEM file of certificate authorities to trust instead of the system's; empty: the
  // system's trust store. TLS peer and host verification are always on.
  std::string caFile;

  // An optional pinned public key in libcurl's form ("sha256//BASE64" or a PEM/DER file);
  // empty: no pinning.
  std::string pinnedPublicKey;

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

  // Defaults, with QIPG_TEST_BASE_URL, QIPG_PRODUCTION_BASE_URL and QIPG_CA_FILE from the
  // environment where they are set to a non-empty value (an empty variable counts as unset).
  static GatewayConfig fromEnvironment();

  // Absent when the configuration is usable; else a one-line reason naming the URL or file,
  // e.g. "test base URL must use https (http is allowed only on a loopback host): http://x/ipg/".
  // Checked in this order: each base URL (test first) is not empty, parses as a URL with a
  // host, uses https (or http on a loopback host) and ends with "/"; a non-empty caFile is a
  // readable regular file; connectTimeoutMs is not negative.
  Text problem() const;
};

}  // namespace qipg
