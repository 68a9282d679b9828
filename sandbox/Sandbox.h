// ipg-sandbox: a local, stateful stand-in for the Quandrel gateway, run in-process by tests,
// the ipg tool and the demo, or on its own by the ipg-sandbox program.
//
// It speaks the gateway's protocol over HTTPS on a loopback address, under the base URL
// "https://127.0.0.1:PORT/ipg/": the three management endpoints (getTransactionStatus,
// doCancelRequest, doRefundRequest) answer with sealed answers; the two payment endpoints
// (doMEPayRequest, doMEPayRequestCard) show hosted payment pages whose last page is served at
// exactly "<base URL>paymentInvoice" with the hidden result element. Merchants and
// transactions live in SQLite in the data directory (a restart loses nothing); the sandbox
// makes its own certificate authority and writes its CA file there for clients to trust.
// docs/SANDBOX.md describes the test merchant, test cards, state rules and status codes.
//
// Thread-safety: every method may be called from any thread. stop() is idempotent and bounded:
// it releases held requests, closes the listener and joins the server thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qipg::sandbox {

// A merchant the sandbox knows: MID (1 to 15 ASCII letters and digits) and merchant key (1 to
// 32 ASCII letters and digits; the client's management calls need exactly 32).
struct Merchant {
  std::string mid;
  std::string key;
};

// The merchant every sandbox is seeded with.
inline constexpr char kTestMerchantId[] = "QIPGTEST0001";
inline constexpr char kTestMerchantKey[] = "qipgSandboxTestKey0123456789ABCD";

// The port the command line listens on unless told otherwise.
inline constexpr int kDefaultPort = 4431;

struct Options {
  std::string host = "127.0.0.1";
  int port = 0;                      // 0: an ephemeral port, see Sandbox::port()
  std::string dataDir;               // required: database, certificates, CA file
  std::string environment = "test";  // "test" or "production": selects the envelope IV
  std::vector<Merchant> merchants;   // added to (or replacing keys of) the stored merchants
  // How long a payment page stays open: a payment still pending after this has expired (it
  // reads as failed, and its card form takes nothing), as a real gateway's session does.
  std::chrono::seconds paymentSession{900};
  // Called once per answered request with "METHOD PATH STATUS", from server threads. Never
  // given bodies, card data or keys. Empty: no log.
  std::function<void(const std::string&)> log;
};

// The endpoints whose answers a test can spoil.
enum class Endpoint {
  kStatus,           // getTransactionStatus
  kCancel,           // doCancelRequest
  kRefund,           // doRefundRequest
  kPaymentPage,      // doMEPayRequest
  kCardPaymentPage,  // doMEPayRequestCard
  kPaymentInvoice,   // paymentInvoice (POST)
};

enum class Fault {
  kNone,      // answer normally
  kHttp500,   // an HTTP 500 HTML page
  kGarbage,   // HTTP 200 with a text that is no envelope
  kNotUtf8,   // HTTP 200 with bytes that are not UTF-8
  kHuge,      // HTTP 200 with 5 MiB of text
  kHang,      // never answer: the request is held until stop() or until the fault is lifted
  kDelay,     // answer normally after the fault's delay
  kClose,     // send the headers, then close the connection before the body
  kWrongKey,  // HTTP 200 with an answer sealed with a key that is not the merchant's
};

// Amounts whose hundredths pick a fault for one transaction's management answers (status,
// cancel and refund of a payment of that amount, and a refund of that amount). The operation
// itself is carried out; only its answer is spoiled.
inline constexpr int kMagicDelayCents = 91;    // answered after kMagicDelay
inline constexpr int kMagicHttp500Cents = 92;  // HTTP 500
inline constexpr int kMagicCloseCents = 93;    // connection closed before the answer
inline constexpr std::chrono::milliseconds kMagicDelay{3000};

// The longest delay a fault may ask for.
inline constexpr std::chrono::milliseconds kLongestDelay{600000};

// Reads an endpoint name (status, cancel, refund, pay, pay-card, invoice) and a fault kind
// (none, http500, garbage, not-utf8, huge, hang, delay=MS, close, wrong-key). False, with a
// one-line reason in `error`, when either is unknown.
bool parseFault(const std::string& endpointName, const std::string& kind, Endpoint* endpoint,
                Fault* fault, std::chrono::milliseconds* delay, std::string* error);

// A named test card (`ipg pay --test-card NAME`) and the payment result it gives.
struct TestCard {
  const char* name;  // "approve", "decline", ...
  const char* number;
  const char* cvv;
  bool expired;             // used with an expiry in the past; else three years ahead
  const char* statusCode;   // the payment's statusCode
  const char* description;  // and statusDescription
};

// Every named test card, in the order docs/SANDBOX.md lists them.
const std::vector<TestCard>& testCards();
// The card named `name`; nullptr when there is none.
const TestCard* findTestCard(const std::string& name);
// The expiry (MMYY) the card is used with, as of now.
std::string testCardExpiry(const TestCard& card);

// What the sandbox holds about one transaction (for tests and tools).
struct TransactionInfo {
  std::string mid;
  std::string orderId;
  std::string referenceNo;
  std::string state;       // "pending", "authorized", "captured", "failed", "cancelled"
  std::string statusCode;  // as the status answer gives it: P, S, R, F or C
  std::string statusDescription;
  std::string requestType;  // "S", "P" or "R"
  std::string payType;      // "CC", "DC", "CUG", "NA" or "NB"
  std::string currency;
  std::string responseUrl;
  std::string cardLast4;
  std::string cardMasked;
  std::int64_t amountMinor = 0;  // hundredths
  std::int64_t capturedMinor = 0;
  std::int64_t refundedMinor = 0;
};

class Sandbox {
 public:
  // Starts a sandbox and returns once it is listening; nothing, with `error` set to a one-line
  // reason, when it cannot (bad option, unusable data directory, port taken).
  static std::unique_ptr<Sandbox> start(Options options, std::string* error);

  ~Sandbox();  // stops
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  int port() const;
  std::string baseURL() const;  // "https://127.0.0.1:PORT/ipg/"
  std::string caFile() const;   // PEM file of the sandbox's certificate authority
  std::string dataDir() const;
  std::string environment() const;

  // Releases held requests, stops listening and joins. Idempotent; never hangs (a connection
  // that sends nothing is dropped after the read time-out of a few seconds).
  void stop();

  // Spoils every later answer of `endpoint` until set back to Fault::kNone. `delay` is for
  // Fault::kDelay (at most kLongestDelay).
  void setFault(Endpoint endpoint, Fault fault,
                std::chrono::milliseconds delay = std::chrono::milliseconds(0));
  void clearFaults();
  // Requests currently held by Fault::kHang or a delay.
  std::size_t heldRequests() const;

  // The transaction of `orderId` of merchant `mid`; nothing when there is none.
  std::optional<TransactionInfo> transaction(const std::string& mid,
                                             const std::string& orderId) const;

 private:
  struct Impl;
  explicit Sandbox(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

// $QIPG_SANDBOX_DIR (which --print-env sets), else ${XDG_DATA_HOME:-~/.local/share}/qipg/sandbox;
// empty when none of these variables is set.
std::string defaultDataDir();

// While a foreground sandbox runs (see CommandLine.h), its base URL stands in the file
// "running" of its data directory, so that tools can find it; the file goes when it stops.
// Absent when no sandbox runs there, or when the file or the directory is not this user's own
// or may be changed by others (see trustedDataFile in DataDir.h; `warning`, when given, then
// says why in one line).
std::optional<std::string> runningBaseURL(const std::string& dataDir,
                                          std::string* warning = nullptr);

// The file of the data directory (owner-only) that holds the secret which the sandbox's admin
// endpoint (POST /sandbox/fault, loopback peers only) asks for in its X-Sandbox-Token header.
std::string adminTokenFile(const std::string& dataDir);

}  // namespace qipg::sandbox
