#include "qipg/QuandrelIPG.h"

#include <exception>
#include <utility>

#include "client/InfoPlist.h"
#include "client/QuandrelIPGImpl.h"
#include "net/Transport.h"
#include "security/UserDefaults.h"
#include "security/Wipe.h"

namespace qipg {
namespace {

// The built-in values of each gateway: the constant hashed into shaPublicKey and the
// envelope IV stored under "randomIV".
constexpr const char* kTestPublicKeyConstant = "7c1e94b0d25a6f83e07b19c4a58d2f61";
constexpr const char* kTestIV = "4e9a1c07b3d58f26";
constexpr const char* kProductionPublicKeyConstant = "b84f2d07c9e15a3674d0e2b91f6c8a35";
constexpr const char* kProductionIV = "d2071f8be64c395a";
constexpr const char* kIVKey = "randomIV";

bool isMissing(const Text& value) { return !value || value->empty(); }

// Replaces `field` with `value`, wiping the old text and what is left of the argument.
void replaceWiped(Text& field, Text value) { internal::replaceWiping(field, value); }

}  // namespace

std::shared_ptr<QuandrelIPG> QuandrelIPG::create() { return create(IPGEnvironmentTest); }

std::shared_ptr<QuandrelIPG> QuandrelIPG::create(std::uint64_t environmentType,
                                                 GatewayConfig config) {
  try {
    if (config.problem()) return nullptr;
    config = config.canonical();
    std::shared_ptr<internal::Transport> transport = internal::Transport::create(config);
    if (!transport) return nullptr;
    return std::shared_ptr<QuandrelIPG>(
        new QuandrelIPG(environmentType, std::move(config), std::move(transport)));
  } catch (const std::exception&) {
    // Out of memory, or a transport that could not start its thread.
    return nullptr;
  }
}

QuandrelIPG::QuandrelIPG(std::uint64_t environmentType, GatewayConfig config,
                         std::shared_ptr<internal::Transport> transport)
    : impl_(std::make_unique<Impl>()) {
  impl_->config_ = std::move(config);
  impl_->transport_ = std::move(transport);
  const bool test = environmentType == IPGEnvironmentTest;
  impl_->CurrentDomainURL_ = test ? impl_->config_.testBaseURL : impl_->config_.productionBaseURL;
  impl_->shaPublicKey_ =
      impl_->aesHelper_.sha256(test ? kTestPublicKeyConstant : kProductionPublicKeyConstant, 32)
          .value_or("");
  CommonUtilities::SetRandomIV(std::string(test ? kTestIV : kProductionIV), std::string(kIVKey));
}

QuandrelIPG::~QuandrelIPG() {
  shutdown();
  std::lock_guard lock(impl_->credentialsMutex_);
  replaceWiped(impl_->merchantIDString_, std::nullopt);
  replaceWiped(impl_->encryptionKeyString_, std::nullopt);
}

const std::string& QuandrelIPG::shaPublicKey() const { return impl_->shaPublicKey_; }

const std::string& QuandrelIPG::CurrentDomainURL() const { return impl_->CurrentDomainURL_; }

const GatewayConfig& QuandrelIPG::config() const { return impl_->config_; }

bool QuandrelIPG::ivPersisted() const {
  return internal::UserDefaults::standard().fileHolds(kIVKey);
}

Text QuandrelIPG::merchantIDString() const {
  std::lock_guard lock(impl_->credentialsMutex_);
  return impl_->merchantIDString_;
}

Text QuandrelIPG::encryptionKeyString() const {
  std::lock_guard lock(impl_->credentialsMutex_);
  return impl_->encryptionKeyString_;
}

void QuandrelIPG::setMerchantIDString(Text value) {
  std::lock_guard lock(impl_->credentialsMutex_);
  replaceWiped(impl_->merchantIDString_, std::move(value));
}

void QuandrelIPG::setEncryptionKeyString(Text value) {
  std::lock_guard lock(impl_->credentialsMutex_);
  replaceWiped(impl_->encryptionKeyString_, std::move(value));
}

std::shared_ptr<IPGResponseDelegate> QuandrelIPG::quandrelIPGDelegate() const {
  std::lock_guard lock(impl_->credentialsMutex_);
  return impl_->quandrelIPGDelegate_.lock();
}

void QuandrelIPG::setQuandrelIPGDelegate(const std::shared_ptr<IPGResponseDelegate>& delegate) {
  std::lock_guard lock(impl_->credentialsMutex_);
  impl_->quandrelIPGDelegate_ = delegate;
}

void QuandrelIPG::getMerchantIDandEncryptionKeyFromPList(
    const std::function<void(const Text& merchantID, const Text& encryptionKey)>& completion)
    const {
  internal::PListCredentials values = internal::readInfoPlistCredentials();
  if (completion) completion(values.merchantID, values.encryptionKey);
  replaceWiped(values.encryptionKey, std::nullopt);
}

void QuandrelIPG::checkForMIDandEncString(const Text& mid, const Text& encString) {
  if (!isMissing(mid) || !isMissing(encString)) return;
  Text listMID = "";
  Text listKey = "";
  getMerchantIDandEncryptionKeyFromPList([&](const Text& merchantID, const Text& encryptionKey) {
    listMID = merchantID;
    listKey = encryptionKey;
  });
  std::lock_guard lock(impl_->credentialsMutex_);
  replaceWiped(impl_->merchantIDString_, std::move(listMID));
  replaceWiped(impl_->encryptionKeyString_, std::move(listKey));
}

std::pair<Text, Text> QuandrelIPG::storeAndResolveCredentials(const Text& mid, const Text& key) {
  Text resolvedMID = mid;
  Text resolvedKey = key;
  if (isMissing(mid) && isMissing(key)) {
    resolvedMID = "";
    resolvedKey = "";
    getMerchantIDandEncryptionKeyFromPList([&](const Text& merchantID, const Text& encryptionKey) {
      resolvedMID = merchantID;
      resolvedKey = encryptionKey;
    });
  }
  std::lock_guard lock(impl_->credentialsMutex_);
  replaceWiped(impl_->merchantIDString_, resolvedMID);
  replaceWiped(impl_->encryptionKeyString_, resolvedKey);
  return {std::move(resolvedMID), std::move(resolvedKey)};
}

}  // namespace qipg
