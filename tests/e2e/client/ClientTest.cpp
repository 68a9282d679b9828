// qipg::Client against the sandbox gateway: every ErrorKind from its real cause, cancelling by
// stop token and by shutdown, the journal, the gateway's own "F" verdicts as values, payments
// and their extra checks, the callback executor, and exactly-once completion with many threads
// sharing one client.
#include <qipg/Client.h>

#include <atomic>
#include <ctime>
#include <future>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <tuple>

#include "e2e/client/E2eSupport.h"
#include "unit/client/CaptureServer.h"

namespace qipg_e2e {
namespace {

using qipg::Client;
using qipg::ErrorKind;
using qipg::PaymentResponse;
using qipg::Result;
using qipg::Text;
using Answer = Result<PaymentResponse>;

class ClientLayerTest : public SandboxTest {
 protected:
  qipg::ClientOptions options() const {
    qipg::ClientOptions options;
    options.gateway = config();
    options.merchantID = kMID;
    options.encryptionKey = kKey;
    return options;
  }
  std::shared_ptr<Client> make(const qipg::ClientOptions& options) {
    Result<std::shared_ptr<Client>> made = Client::create(options);
    EXPECT_TRUE(made.ok()) << made.error().message;
    return made.ok() ? made.value() : nullptr;
  }
};

struct ErrorCase {
  const char* name;
  std::function<void(qipg::ClientOptions&, qipg::sandbox::Sandbox&)> arrange;
  std::function<Answer(Client&)> call;
  ErrorKind kind;
  std::string message;  // "{gw}" stands for the base URL
  bool outcomeUnknown;
  std::optional<long> httpStatus = std::nullopt;
};

std::function<Answer(Client&)> refundCall(std::string amount = "1.00") {
  return [amount](Client& c) { return c.refund({"ORDER1", "1", amount}).get(); };
}
std::function<Answer(Client&)> statusCall() {
  return [](Client& c) { return c.status({"ORDER1", "1"}).get(); };
}
void noChange(qipg::ClientOptions&, qipg::sandbox::Sandbox&) {}
void hang(qipg::ClientOptions& o, qipg::sandbox::Sandbox& s) {
  o.gateway.requestTimeoutMs = 300;
  s.setFault(qipg::sandbox::Endpoint::kRefund, qipg::sandbox::Fault::kHang);
}

constexpr char kConfirm[] =
    "; it may still have taken effect at the gateway, so confirm with a status inquiry before "
    "retrying";

TEST_F(ClientLayerTest, EachErrorKindFromItsRealCause) {
  using qipg::sandbox::Endpoint;
  using qipg::sandbox::Fault;
  const std::string wrongKey = "wrongKey0123456789ABCDEFGHIJKLMN";
  const std::vector<ErrorCase> cases = {
      {"input", noChange,
       [](Client& c) {
         return c.status({"", "1"}).get();
       },
       ErrorKind::Input, "Invalid Order ID", false},
      {"zero refund", noChange, refundCall("0.00"), ErrorKind::Input,
       "Invalid Transaction Amount Input: must be greater than zero", false},
      {"three decimals", noChange, refundCall("1.005"), ErrorKind::Input,
       "Invalid Transaction Amount Input: digits with at most two decimals, like 15.00", false},
      {"stopped token", noChange,
       [](Client& c) {
         std::stop_source stop;
         stop.request_stop();
         return c.refund({"ORDER1", "1", "1.00"}, stop.get_token()).get();
       },
       ErrorKind::Cancelled, "the call was cancelled before it was sent", false},
      {"wrong key, status", [&](auto& o, auto&) { o.encryptionKey = wrongKey; }, statusCall(),
       ErrorKind::Unreadable, "the answer could not be opened with this merchant key (wrong key?)",
       false},
      {"wrong key, refund", [&](auto& o, auto&) { o.encryptionKey = wrongKey; }, refundCall(),
       ErrorKind::Unreadable,
       std::string("the answer could not be opened with this merchant key (wrong key?)") + kConfirm,
       true},
      {"http 500", [](auto&, auto& s) { s.setFault(Endpoint::kRefund, Fault::kHttp500); },
       refundCall(), ErrorKind::Http,
       std::string("the gateway at {gw} answered with HTTP 500: Internal Server Error") + kConfirm, true,
       500},
      {"stalled server", hang, refundCall(), ErrorKind::Timeout,
       std::string("the gateway at {gw} did not answer in time") + kConfirm, true},
      {"untrusted CA", [](auto& o, auto&) { o.gateway.caFile.clear(); }, refundCall(),
       ErrorKind::Tls, "the gateway at {gw} presented a certificate that is not trusted", false},
      {"after shutdown", noChange,
       [](Client& c) {
         c.shutdown();
         return c.refund({"ORDER1", "1", "1.00"}).get();
       },
       ErrorKind::ShutDown, "the client has been shut down", false},
      // Last: the sandbox stays stopped.
      {"stopped server", [](auto&, auto& s) { s.stop(); }, refundCall(), ErrorKind::Network,
       "the gateway at {gw} refused the connection", false},
  };
  for (const ErrorCase& test : cases) {
    SCOPED_TRACE(test.name);
    qipg::ClientOptions o = options();
    const std::string gateway = sandbox().baseURL();
    test.arrange(o, sandbox());
    auto client = make(o);
    ASSERT_NE(client, nullptr);
    const Answer answer = test.call(*client);
    ASSERT_FALSE(answer.ok());
    std::string message = test.message;
    if (auto at = message.find("{gw}"); at != std::string::npos) message.replace(at, 4, gateway);
    std::ostringstream line;  // "Kind: message", as a log would show it
    line << answer.error();
    EXPECT_EQ(line.str(), std::string(qipg::errorKindName(test.kind)) + ": " + message);
    EXPECT_EQ(answer.error().outcomeUnknown, test.outcomeUnknown);
    EXPECT_EQ(answer.error().httpStatus, test.httpStatus);
    client.reset();
    sandbox().clearFaults();
  }
}

TEST_F(ClientLayerTest, CredentialsFromInfoPlistOrConfigErrorsAtCreation) {
  qipg::ClientOptions noKey = options();
  noKey.encryptionKey.clear();
  qipg::ClientOptions noMid = options();
  noMid.merchantID.clear();
  qipg::ClientOptions shortKey = options(), oddKey = options();
  shortKey.encryptionKey = "abc";
  oddKey.encryptionKey = std::string(31, 'a') + "-";
  qipg::ClientOptions placeholder = options();
  placeholder.environment = qipg::Environment::Production;
  placeholder.gateway.productionBaseURL = "HTTPS://ipg.quandrel.example:443/";
  for (const auto& [o, message] : std::vector<std::pair<qipg::ClientOptions, std::string>>{
           {placeholder,
            "no base URL is set for the production gateway (the built-in placeholder "
            "https://ipg.quandrel.example/ is no real gateway): set "
            "ClientOptions::gateway.productionBaseURL, or QIPG_PRODUCTION_BASE_URL"},
           {noKey, "no merchant key was given"},
           {shortKey, "the merchant key must be 32 letters and digits; the one given has 3"},
           {oddKey,
            "the merchant key must be 32 letters and digits; the one given has other "
            "characters"},
           {noMid, "no merchant ID was given and Info.plist holds none (\"merchantID\")"}}) {
    const auto made = Client::create(o);
    ASSERT_FALSE(made.ok());
    EXPECT_EQ(made.error().kind, ErrorKind::Config);
    EXPECT_EQ(made.error().message, message);
  }
  // An empty merchant ID: both credentials come from Info.plist, read once at creation.
  writeFile(bundle() / "Info.plist",
            "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>merchantID</key><string>" +
                kMID + "</string><key>encryptionKey</key><string>" + kKey +
                "</string></dict></plist>");
  auto fromPlist = make(noMid);
  std::filesystem::remove(bundle() / "Info.plist");
  const Answer answer = fromPlist->status({"NOSUCHORDER", "1"}).get();
  ASSERT_TRUE(answer.ok()) << answer.error().message;
}

// A stop token aborts a transfer under way: the server, which never answers, sees its
// connection closed.
TEST_F(ClientLayerTest, StopTokenAbortsTheTransferAndClosesTheConnection) {
  qipg_test::CaptureServer silent("");
  qipg::ClientOptions o = options();
  o.gateway.testBaseURL = "http://127.0.0.1:" + std::to_string(silent.port()) + "/ipg/";
  auto client = make(o);
  std::stop_source stop;
  auto pending = client->refund({"ORDER1", "1", "1.00"}, stop.get_token());
  silent.requests(1);
  stop.request_stop();
  const Answer answer = pending.get();
  ASSERT_FALSE(answer.ok());
  EXPECT_EQ(answer.error().kind, ErrorKind::Cancelled);
  EXPECT_EQ(answer.error().message, std::string("the call was cancelled") + kConfirm);
  EXPECT_TRUE(answer.error().outcomeUnknown);
  silent.closedByClient(1);  // returns only once the client has closed its connection
}

// With a journal, every refund is known to it before it leaves and its end after; one whose
// answer never came (the client shut down mid-transfer) is reconciled from the gateway's
// status (the callback form, off the caller's thread), and an entry of another gateway is left
// to a client of that gateway.
TEST_F(ClientLayerTest, TheJournalTellsEveryRefundsEnd) {
  const std::string ref = pay("J1", "10.00", 1).transactionReferenceNo().value_or("");
  qipg::ClientOptions withJournal = options();
  withJournal.journalPath = (dir() / "journal/j.sqlite3").string();
  {
    auto client = make(withJournal);
    ASSERT_TRUE(client->refund({"J1", ref, "1.00"}).get());
    sandbox().setFault(qipg::sandbox::Endpoint::kRefund, qipg::sandbox::Fault::kHang);
    auto pending = client->refund({"J1", ref, "2.00"});
    while (sandbox().heldRequests() == 0) std::this_thread::yield();
    client->shutdown();
    const Answer ended = pending.get();
    ASSERT_FALSE(ended.ok());
    EXPECT_EQ(ended.error().message,
              std::string("the client was shut down before the answer arrived") + kConfirm);
    EXPECT_TRUE(ended.error().outcomeUnknown);
  }
  sandbox().setFault(qipg::sandbox::Endpoint::kRefund, qipg::sandbox::Fault::kNone);
  auto journal = qipg::Journal::open(withJournal.journalPath).value();
  qipg::JournalEntry elsewhere{.operation = qipg::JournalOperation::Cancel,
                               .orderID = "J2",
                               .baseURL = "https://gw.example/ipg/"};
  ASSERT_TRUE(journal->begin(elsewhere));

  std::promise<qipg::Event> reconciledEvent;  // the settled refund's, told to the hook
  withJournal.eventHook = [&reconciledEvent](const qipg::Event& event) {
    if (event.kind == qipg::EventKind::Reconciled && event.statusCode == "R") {
      reconciledEvent.set_value(event);
    }
  };
  auto client = make(withJournal);
  ASSERT_EQ(client->unresolved().value().size(), 2u);
  std::promise<Result<std::vector<qipg::JournalEntry>>> reconciled;
  const auto caller = std::this_thread::get_id();
  std::atomic<bool> offCaller{false};
  client->reconcile([&](Result<std::vector<qipg::JournalEntry>> entries) {
    offCaller = std::this_thread::get_id() != caller;
    reconciled.set_value(std::move(entries));
  });
  const auto entries = reconciled.get_future().get().value();
  EXPECT_TRUE(offCaller);
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].state, qipg::JournalState::Settled);
  EXPECT_EQ(entries[0].status->statusCode(), Text("R"));
  EXPECT_EQ(entries[1].state, qipg::JournalState::Open);
  EXPECT_NE(entries[1].reconcileError.find("https://gw.example/ipg/"), std::string::npos);
  const qipg::Event event = reconciledEvent.get_future().get();
  EXPECT_EQ(std::tie(event.operation, event.orderID, event.transactionRefNumber),
            std::tie("refund", "J1", ref));

  const auto all = journal->entries().value();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].state, qipg::JournalState::Answered);
  EXPECT_EQ(all[0].answer->statusCode(), Text("S"));
  EXPECT_EQ(all[1].errorKind, "ShutDown");
  EXPECT_EQ(all[1].status->statusCode(), Text("R"));

  // A journal that is a link is refused: a planted one could collect the merchant's calls.
  std::filesystem::create_symlink(withJournal.journalPath, dir() / "link.sqlite3");
  withJournal.journalPath = (dir() / "link.sqlite3").string();
  const auto refused = Client::create(withJournal);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().kind, ErrorKind::Config);
}

TEST_F(ClientLayerTest, PaymentsAndTheirExtraChecks) {
  auto client = make(options());
  const qipg::StandardPayment standard{.orderID = "A1", .amount = "15.00", .currency = "INR",
                                       .type = qipg::TransactionType::PreAuthorisation,
                                       .description = "Two books"};
  const qipg::CardCapturePayment card{.orderID = "A1", .amount = "15.00", .currency = "INR",
                                      .description = "Two books",
                                      .card = {.number = "4111111111111111", .expiry = "1299",
                                               .cvv = "123", .holderName = "Jane Doe"}};
  using Edit = std::function<void(qipg::CardCapturePayment&)>;
  // A card is good up to the end of its expiry month: this month's card still pays.
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);  // the month the client checks against
  char thisMonth[8];
  std::strftime(thisMonth, sizeof thisMonth, "%m%y", &utc);
  const std::vector<std::pair<Edit, std::string>> cardCases = {
      {[](auto&) {}, ""},
      {[&](auto& p) { p.card.expiry = thisMonth; }, ""},
      {[](auto& p) { p.orderID = ""; }, "Missing value for Order ID"},  // the interface's first
      {[](auto& p) { p.amount = "0"; },
       "Invalid Transaction Amount Input: must be greater than zero"},
      {[](auto& p) { p.card.number = "4111111111111112"; },
       "Invalid Card Number Input: fails the Luhn check (mistyped?)"},
      {[](auto& p) { p.card.expiry = "1323"; },
       "Invalid Card Expiry Input: the month must be 01 to 12"},
      {[](auto& p) { p.card.expiry = "0120"; }, "Invalid Card Expiry Input: the card has expired"},
      {[](auto& p) { p.card.cvv = "12"; }, "Invalid Card CVV Input: must be 3 or 4 digits"},
  };
  for (const auto& [edit, message] : cardCases) {
    SCOPED_TRACE(message);
    qipg::CardCapturePayment payment = card;
    edit(payment);
    const Result<qipg::URLRequest> page = client->cardCapturePayment(payment);
    if (message.empty()) {
      ASSERT_TRUE(page.ok()) << page.error().message;
      EXPECT_EQ(page.value().url, sandbox().baseURL() + "doMEPayRequestCard");
    } else {
      ASSERT_FALSE(page.ok());
      EXPECT_EQ(page.error().kind, ErrorKind::Input);
      EXPECT_EQ(page.error().message, message);
    }
  }
  const Result<qipg::URLRequest> page = client->standardPayment(standard);
  ASSERT_TRUE(page.ok()) << page.error().message;
  EXPECT_EQ(page.value().url, sandbox().baseURL() + "doMEPayRequest");
  auto cheap = standard;
  cheap.amount = "0.00";
  EXPECT_EQ(client->standardPayment(cheap).error().message,
            "Invalid Transaction Amount Input: must be greater than zero");
}

// Every callback reaches the executor, whatever the outcome, none runs on the caller's thread, and
// a callback that throws harms nothing.
TEST_F(ClientLayerTest, CallbacksRunOnTheExecutorOrALibraryThread) {
  for (bool withExecutor : {true, false}) {
    SCOPED_TRACE(withExecutor);
    std::atomic<int> executed{0};
    std::mutex mutex;
    std::condition_variable done;
    int callbacks = 0;
    bool onCaller = false;
    const auto caller = std::this_thread::get_id();
    qipg::ClientOptions o = options();
    if (withExecutor) {
      o.callbackExecutor = [&](std::function<void()> task) {
        ++executed;
        std::thread(std::move(task)).detach();
      };
    }
    auto client = make(o);
    const auto callback = [&](Answer) {
      std::lock_guard lock(mutex);
      onCaller = onCaller || std::this_thread::get_id() == caller;
      ++callbacks;
      done.notify_all();
      throw std::runtime_error("a host's faulty callback");  // contained by the client
    };
    std::stop_source stopped;
    stopped.request_stop();
    client->status({"ORDER1", "1"}, callback);                        // a readable answer
    client->status({"", "1"}, callback);                              // input error
    client->refund({"ORDER1", "1", "1.00"}, callback, stopped.get_token());  // cancelled
    std::unique_lock lock(mutex);
    done.wait(lock, [&] { return callbacks == 3; });
    EXPECT_FALSE(onCaller);
    EXPECT_EQ(executed, withExecutor ? 3 : 0);
  }
}

// Run under ThreadSanitizer too: many threads share one client, some calls are cancelled, each
// call completes exactly once, and answers never cross (every other status asks about an order
// the gateway knows).
TEST_F(ClientLayerTest, ExactlyOnceWithManyThreadsSharingOneClient) {
  const PaymentResponse sale = pay("MANY1", "5.00", 1);
  auto client = make(options());
  constexpr int kThreads = 8, kCalls = 12;
  std::vector<std::atomic<int>> completions(kThreads * kCalls);
  std::vector<std::pair<std::string, std::future<Answer>>> futures;  // order, answer
  std::mutex futuresMutex;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kCalls; ++i) {
        const int slot = t * kCalls + i;
        std::stop_source stop;
        auto counted = [&completions, slot](Answer) { ++completions[slot]; };
        if (i % 3 == 0) {
          std::lock_guard lock(futuresMutex);
          const std::string order = slot % 2 ? "MANY1" : "ORDER" + std::to_string(slot);
          futures.emplace_back(order, client->status({order, ""}));
          ++completions[slot];
        } else {
          client->refund({"ORDER1", "1", i % 3 == 1 ? "1.00" : "0"}, counted, stop.get_token());
          if (i % 4 == 0) stop.request_stop();
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (auto& [order, future] : futures) {
    const Answer answer = future.get();
    ASSERT_TRUE(answer.ok()) << answer.error().message;
    EXPECT_EQ(answer.value().orderID(), Text(order));
    const bool known = order == "MANY1";
    EXPECT_EQ(answer.value().statusCode(), Text(known ? "S" : "F"));
    EXPECT_EQ(answer.value().transactionReferenceNo(),
              known ? sale.transactionReferenceNo() : Text(""));
  }
  client.reset();  // completes whatever is still under way, then every count is final
  for (int slot = 0; slot < kThreads * kCalls; ++slot) {
    for (int i = 0; i < 500 && completions[slot] == 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(completions[slot], 1) << slot;
  }
}

}  // namespace
}  // namespace qipg_e2e
