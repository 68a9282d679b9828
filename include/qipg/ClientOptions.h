/// @file
/// What qipg::Client::create needs: the gateway, the merchant's credentials and where
/// callbacks run.
#pragma once

#include <functional>
#include <string>

#include "qipg/Events.h"
#include "qipg/GatewayConfig.h"

namespace qipg {

/// Which of the two gateways a client talks to.
enum class Environment { Test, Production };

/// Runs a callback somewhere: the host's main loop, a thread pool... It is given each callback
/// once and must run it exactly once (on any thread, later or at once) and must not throw: a
/// callback it drops or throws away is lost. It is called from the library's threads.
using CallbackExecutor = std::function<void(std::function<void()>)>;

/// The settings of one qipg::Client: a plain aggregate, read once by Client::create (later
/// changes to it have no effect on a client already made). Not guarded: fill it on one thread.
struct ClientOptions {
  Environment environment = Environment::Test;  ///< The gateway to talk to; test by default.
  /// Base URLs, CA file, pinned key and time-outs. The one of `environment` is used.
  GatewayConfig gateway = GatewayConfig::fromEnvironment();
  /// The merchant's ID at the gateway. Empty: both the ID and the key are read once, at
  /// creation, from Info.plist ("merchantID", "encryptionKey"), as QuandrelIPG does.
  std::string merchantID{};
  /// The merchant key (32 characters). A secret: the client keeps its own copy and wipes it when
  /// it is destroyed; wiping this one is the caller's business.
  std::string encryptionKey{};
  /// Where callbacks run. Empty: on the client's completion threads (never on the network
  /// thread, never on the thread that made the call).
  CallbackExecutor callbackExecutor{};
  /// The outcome journal's file (see qipg::Journal); empty: none. With one, every cancel and
  /// refund is written to it, durably, before its request leaves, and its end when it ends;
  /// Client::reconcile() settles what a crash left open.
  std::string journalPath{};
  /// Receives every call's events (see <qipg/Events.h>); empty: no events. Runs on a thread
  /// of the client's own that runs nothing else.
  EventHook eventHook{};
};

}  // namespace qipg
