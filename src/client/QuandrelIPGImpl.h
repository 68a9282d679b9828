// What a QuandrelIPG holds, for the files that implement it (and qipg::Client, which posts
// through its transport).
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "net/Events.h"
#include "qipg/CommonUtilities.h"
#include "qipg/GatewayConfig.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/QuandrelIPG.h"
#include "qipg/StringEncryption.h"

namespace qipg {

struct QuandrelIPG::Impl {
  StringEncryption aesHelper_;
  std::string shaPublicKey_;
  CommonUtilities commonUtilities_;
  mutable std::mutex credentialsMutex_;
  Text merchantIDString_;
  Text encryptionKeyString_;
  std::string CurrentDomainURL_;
  std::weak_ptr<IPGResponseDelegate> quandrelIPGDelegate_;
  GatewayConfig config_;
  std::shared_ptr<internal::Transport> transport_;
  mutable std::mutex eventsMutex_;
  EventHook eventHook_;                          // guarded by eventsMutex_
  std::shared_ptr<internal::EventSink> events_;  // guarded by eventsMutex_; nullptr: off
};

}  // namespace qipg
