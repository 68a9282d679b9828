/// @file
/// The client a merchant's application creates and calls.
///
/// A client is fixed at creation to the test or the production gateway. Creating one stores
/// that gateway's envelope IV under "randomIV" in the process-wide store, so the client
/// created last decides the IV for every later encryption and decryption, by any client.
///
/// Thread-safety: every operation may be called from any thread. The credential fields are
/// rewritten by every call (last writer wins) and guarded. Management answers arrive on one of
/// the client's completion threads (a few, so a slow delegate holds back no other answer);
/// input errors and payment failures on the caller's thread.
/// Always shared-owned: a request under way keeps its client and its delegate alive until its
/// completion has run.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "qipg/CommonUtilities.h"
#include "qipg/Events.h"
#include "qipg/Export.h"
#include "qipg/GatewayConfig.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/StringEncryption.h"
#include "qipg/TransportError.h"
#include "qipg/Types.h"
#include "qipg/URLRequest.h"

namespace qipg {

namespace internal {
class Transport;
enum class Operation;
}  // namespace internal

/// Environment values for QuandrelIPG::create: 1 is the test gateway, any other value
/// production.
enum IPGEnvironment : std::uint64_t {
  IPGEnvironmentProduction = 0,  ///< the production gateway (so is every value but 1)
  IPGEnvironmentTest = 1,        ///< the test gateway
};

/// The gateway client of the system's interface: environments, credentials, the five
/// operations. See the file comment for threads and ownership; qipg::Client (<qipg/Client.h>)
/// is the same client with request structs, futures and typed errors.
class QIPG_EXPORT QuandrelIPG : public std::enable_shared_from_this<QuandrelIPG> {
 public:
  /// A client for the test gateway with GatewayConfig::fromEnvironment().
  /// @return the client, or nullptr when that configuration is refused (see create(std::uint64_t,
  /// GatewayConfig)).
  static std::shared_ptr<QuandrelIPG> create();

  /// A client for one gateway. Stores the gateway's IV under "randomIV" (process-wide: held in
  /// this process's memory and written through to the defaults file, see ivPersisted()) and
  /// starts the transport. Never throws.
  /// @param environmentType 1: test, anything else: production.
  /// @param config the gateways; the client keeps `config.canonical()` and uses the selected
  ///   gateway's canonical base URL as CurrentDomainURL().
  /// @return the client, shared-owned; nullptr, having stored nothing, when `config.problem()`
  ///   is not absent or the transport cannot start.
  static std::shared_ptr<QuandrelIPG> create(
      std::uint64_t environmentType, GatewayConfig config = GatewayConfig::fromEnvironment());

  /// Shuts the client down (see shutdown()).
  ~QuandrelIPG();
  QuandrelIPG(const QuandrelIPG&) = delete;
  QuandrelIPG& operator=(const QuandrelIPG&) = delete;

  /// SHA-256 text of the environment's built-in constant, computed at creation.
  const std::string& shaPublicKey() const;
  /// The selected gateway's base URL in canonical form; endpoint names are appended to it.
  const std::string& CurrentDomainURL() const;
  /// The configuration the client was created with, base URLs in canonical form.
  const GatewayConfig& config() const;

  /// Whether the defaults file holds, now, the envelope IV this process stored last: the file
  /// is read back. The IV a process stored is held in its memory and read from there,
  /// whatever the file does, so this process's calls work either way; this tells what the
  /// next run of the program finds in the file. An IV that has not reached the file yet is
  /// tried there again first (without waiting for another process's lock); reading it back
  /// waits up to 3 s for such a lock.
  /// @return true when the file holds this process's IV; false when it could not be written
  ///   there (the defaults file is a directory, in an unwritable place, read-only, or kept
  ///   locked by another process) or cannot be read, and when another process has stored its
  ///   own IV there since.
  bool ivPersisted() const;

  /// The MID in force for the current (or last) call.
  Text merchantIDString() const;
  /// The merchant key in force for the current (or last) call.
  Text encryptionKeyString() const;
  /// Replaces the MID field (every operation does so too; last writer wins).
  void setMerchantIDString(Text value);
  /// Replaces the merchant key field (every operation does so too; last writer wins).
  void setEncryptionKeyString(Text value);

  /// The host's delegate, held weakly: kept for the host's use; the operations call the
  /// delegate given to each call. nullptr once it is gone.
  std::shared_ptr<IPGResponseDelegate> quandrelIPGDelegate() const;
  /// Sets the host's delegate, held weakly (keep it alive yourself).
  void setQuandrelIPGDelegate(const std::shared_ptr<IPGResponseDelegate>& delegate);

  /// Reads "merchantID" and "encryptionKey" from Info.plist (XML or binary) in
  /// $QIPG_BUNDLE_DIR, else beside the executable, and calls `completion` once, synchronously,
  /// with the two values (each absent when the file or the key is missing or not a string, and
  /// both absent when the file is larger than 1 MiB, nested deeper than 32 or malformed).
  /// Reads the file anew at each call.
  void getMerchantIDandEncryptionKeyFromPList(
      const std::function<void(const Text& merchantID, const Text& encryptionKey)>& completion)
      const;

  /// When both `mid` and `encString` are missing (absent or ""), replaces the client's two
  /// credential fields with the property list's values (absent ones included); otherwise
  /// changes nothing. The operations call it with the values they have just stored.
  void checkForMIDandEncString(const Text& mid, const Text& encString);

  /// Posts `parameters` (a form body) to `url` and calls `completion` exactly once on one of
  /// the client's completion threads (never before this returns) with the answer text (absent
  /// or empty when there is none or it is not UTF-8, or it exceeds 1 MiB) and the error
  /// (absent on success).
  void sendPostRequestWithURL(
      const Text& url, const std::string& parameters,
      std::function<void(const Text& answer, const std::optional<TransportError>& error)>
          completion);

  /// The POST request for the gateway's payment page (not sent): body
  /// "merchantRequest=" reqMsg "&MID=" andMID "&iosEnc=true", inserted as they stand (an absent
  /// text counts as ""); URL CurrentDomainURL() + "doMEPayRequest" for type 0,
  /// + "doMEPayRequestCard" for type 1, absent for any other type; method "POST"; one header,
  /// "Content-Length" (the body's byte count); cache policy ReloadIgnoringLocalCacheData; the
  /// default time-out. The library keeps no URL cache, so there is none to empty first.
  URLRequest getURLRequestforTransaction(const Text& reqMsg, const Text& andMID,
                                         std::uint64_t txnRequesttype);

  /// Status inquiry of a transaction. Resolves the credentials, validates (on failure
  /// `statusResponseDelegate` gets didReceiveInputError synchronously and nothing is sent),
  /// seals the message with `encryptionString` as given, posts it and hands the parsed answer to
  /// didReceivePaymentResponse on a completion thread; a transport failure gives an "F" record.
  /// The delegate is held strongly until its answer has been delivered.
  void getTransactionStatus(const Text& orderID, const Text& transactionRefNumber,
                            const Text& merchantID, const Text& encryptionString,
                            const std::shared_ptr<IPGResponseDelegate>& statusResponseDelegate);
  /// Cancels an authorised, uncaptured transaction; otherwise as getTransactionStatus.
  void cancelTransaction(const Text& orderID, const Text& transactionRefNumber,
                         const Text& merchantID, const Text& encryptionString,
                         const std::shared_ptr<IPGResponseDelegate>& cancelResponseDelegate);
  /// Refunds `transactionAmount` of a captured transaction; otherwise as getTransactionStatus.
  void refundTransaction(const Text& orderID, const Text& transactionRefNumber,
                         const Text& transactionAmount, const Text& merchantID,
                         const Text& encryptionString,
                         const std::shared_ptr<IPGResponseDelegate>& refundResponseDelegate);

  /// Payments make no network call. Each resolves the credentials like every operation, validates
  /// and builds the request with IPGStandardRequest / IPGCardCaptureRequest (which seal it with
  /// the resolved key) and returns the payment page request of getURLRequestforTransaction
  /// (type 0 / 1). On failure `requestDelegate` (may be null) gets requestFailedError exactly
  /// once, synchronously, and the result is absent; on success it is not called.
  /// Standard: transactionType 0 "P", 1 "S", other "NULL"; the description is validated but
  /// not carried in the message. Card capture: transactionType 0 "P", other "S"; paymentType
  /// 0 "CC", other "DC"; a build that fails after validation passed reports "Success".
  std::optional<URLRequest> getStandardPaymentRequest(
      const Text& orderID, const Text& transactionAmount, const Text& transactionCurrency,
      const Text& transactionDescription, std::uint64_t transactionType,
      const Text& additionalField1, const Text& additionalField2, const Text& additionalField3,
      const Text& additionalField4, const Text& additionalField5, const Text& additionalField6,
      const Text& additionalField7, const Text& additionalField8, const Text& additionalField9,
      const Text& additionalField10, const Text& mid, const Text& encryptionString,
      const std::shared_ptr<IPGResponseDelegate>& requestDelegate);

  /// The card-capture twin of getStandardPaymentRequest: the customer's card travels sealed in
  /// the request.
  std::optional<URLRequest> getCardCapturePaymentRequest(
      const Text& orderID, const Text& transactionAmount, const Text& transactionCurrency,
      const Text& transactionDescription, std::uint64_t transactionType, const Text& cardHolderName,
      const Text& cardNumber, const Text& cardExpiryDate, const Text& cvvNumber,
      std::uint64_t paymentType, const Text& additionalField1, const Text& additionalField2,
      const Text& additionalField3, const Text& additionalField4, const Text& additionalField5,
      const Text& additionalField6, const Text& additionalField7, const Text& additionalField8,
      const Text& additionalField9, const Text& additionalField10, const Text& mid,
      const Text& encryptionString, const std::shared_ptr<IPGResponseDelegate>& requestDelegate);

  /// Sends the events of every later status, cancel and refund call (see <qipg/Events.h>),
  /// and of the payment windows given this client, to `hook`, on a thread of the client's own;
  /// an empty hook turns them off (the default). Events already queued still reach the old one.
  void setEventHook(EventHook hook);
  /// The hook in force; empty when events are off.
  EventHook eventHook() const;

  /// Completes every request under way with an error (their delegates get an "F" record) and
  /// stops the transport thread. Called by the destructor; later management calls answer "F".
  void shutdown();

 private:
  // qipg::Client posts through this client's transport: one transport for both layers.
  friend class Client;

  QuandrelIPG(std::uint64_t environmentType, GatewayConfig config,
              std::shared_ptr<internal::Transport> transport);

  // What every operation does first, in one step under credentialsMutex_: stores `mid` and
  // `key` into the credential fields, replaces both with the property list's values when both
  // are missing (absent or ""), and returns the pair now in force (MID, key). The property
  // list is read before the lock is taken.
  std::pair<Text, Text> storeAndResolveCredentials(const Text& mid, const Text& key);

  // The three management calls' one path: credentials, validation, layout, sealing, posting.
  void manage(internal::Operation operation, const Text& orderID, const Text& transactionRefNumber,
              const Text& transactionAmount, const Text& merchantID, const Text& encryptionString,
              const std::shared_ptr<IPGResponseDelegate>& delegate);

  // What the client holds (src/client/QuandrelIPGImpl.h): private, so that the class's layout
  // stays the same whatever it holds.
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace qipg
