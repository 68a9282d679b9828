// The event hook of both client layers: each call's steps in order under one id, on a thread
// that is neither the caller's nor the network's, unharmed by a slow hook that throws, and no
// secret in any event whatever keys and card data the calls were given.
#include <qipg/Client.h>
#include <qipg/Events.h>

#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include "e2e/client/E2eSupport.h"

namespace qipg_e2e {
namespace {

using qipg::Event;
using qipg::EventKind;

// Records every event, slowly, and throws after each.
class SlowThrowingLog {
 public:
  qipg::EventHook hook() {
    return [this](const Event& event) {
      {
        std::lock_guard lock(mutex_);
        events_.push_back(event);
        lines_ += qipg::formatEvent(event) + "\n";
        threads_.insert(std::this_thread::get_id());
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      throw std::runtime_error("a hook that fails");
    };
  }
  // Waits until `count` calls have ended; every event so far.
  std::vector<Event> untilEnded(std::size_t count) {
    for (int i = 0; i < 2000; ++i) {
      {
        std::lock_guard lock(mutex_);
        std::size_t ended = 0;
        for (const Event& event : events_) ended += event.kind == EventKind::CallEnded;
        if (ended >= count) return events_;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::lock_guard lock(mutex_);
    return events_;
  }
  std::string lines() {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  std::set<std::thread::id> threads() {
    std::lock_guard lock(mutex_);
    return threads_;
  }

 private:
  std::mutex mutex_;
  std::vector<Event> events_;
  std::string lines_;
  std::set<std::thread::id> threads_;
};

// The kinds of one call's events, in order.
std::map<std::uint64_t, std::vector<EventKind>> byCall(const std::vector<Event>& events) {
  std::map<std::uint64_t, std::vector<EventKind>> calls;
  for (const Event& event : events) calls[event.callID].push_back(event.kind);
  return calls;
}

class EventsTest : public SandboxTest {};

TEST_F(EventsTest, EveryCallsStepsReachASlowThrowingHookAndNoSecretDoes) {
  std::mt19937_64 random(std::random_device{}());
  const std::string wrongKey = randomKey(random);
  const std::string card = randomCardNumber(random);
  const std::string cvv = randomDigits(random, 3);
  const qipg::PaymentResponse sale = pay("EV1", "9.00", 1);
  const std::string ref = sale.transactionReferenceNo().value_or("");
  ASSERT_FALSE(ref.empty());

  SlowThrowingLog log;
  const std::thread::id caller = std::this_thread::get_id();
  std::size_t calls = 0;
  {
    qipg::ClientOptions options;
    options.gateway = config();
    options.merchantID = kMID;
    options.encryptionKey = kKey;
    options.eventHook = log.hook();
    auto client = qipg::Client::create(options).value();
    options.encryptionKey = wrongKey;
    auto wrong = qipg::Client::create(options).value();
    EXPECT_TRUE(client->status({"EV1", ref}).get());
    EXPECT_TRUE(client->refund({"EV1", ref, "1.00"}).get());
    EXPECT_EQ(client->cancel({"", ref}).get().error().kind, qipg::ErrorKind::Input);
    EXPECT_FALSE(wrong->status({"EV1", ref}).get());
    EXPECT_TRUE(client->cardCapturePayment({.orderID = "EV2",
                                            .amount = "2.00",
                                            .currency = "INR",
                                            .description = "e2e",
                                            .card = {card, "1239", cvv, "Jane Doe"}}));
    calls += 4;
  }
  auto ipg = client();
  ipg->setEventHook(log.hook());
  Answers answers;
  ipg->getTransactionStatus("EV1", ref, kMID, kKey, answers.delegate());
  ipg->refundTransaction("EV1", ref, "1.00", kMID, wrongKey, answers.delegate());
  ipg->cancelTransaction("", ref, kMID, kKey, answers.delegate());
  answers.waitFor(2);
  ASSERT_TRUE(ipg->getCardCapturePaymentRequest("EV3", "2.00", "INR", "e2e", 1, "Jane Doe", card,
                                                "1239", cvv, 0, "", "", "", "", "", "", "", "", "",
                                                "", kMID, kKey, nullptr));
  calls += 3;

  const std::vector<Event> events = log.untilEnded(calls);
  const std::vector<EventKind> sent = {EventKind::CallStarted, EventKind::RequestSent,
                                       EventKind::AnswerReceived, EventKind::CallEnded};
  const std::vector<EventKind> refused = {EventKind::CallStarted, EventKind::CallEnded};
  std::size_t sentCalls = 0, refusedCalls = 0;
  for (const auto& [id, kinds] : byCall(events)) {
    EXPECT_TRUE(kinds == sent || kinds == refused) << "call " << id;
    sentCalls += kinds == sent;
    refusedCalls += kinds == refused;
  }
  EXPECT_EQ(sentCalls, 5u);
  EXPECT_EQ(refusedCalls, 2u);
  for (const Event& event : events) {
    EXPECT_EQ(event.baseURL, sandbox().baseURL());
    if (event.kind == EventKind::AnswerReceived) {
      EXPECT_GT(event.httpStatus, 0);
    } else if (event.kind == EventKind::RequestSent) {
      EXPECT_GT(event.bytes, 0u);
    }
  }
  EXPECT_FALSE(log.threads().count(caller));

  const std::string lines = log.lines();
  for (const std::string& secret : {kKey, wrongKey, card}) {
    EXPECT_EQ(lines.find(secret), std::string::npos) << secret;
  }
}

}  // namespace
}  // namespace qipg_e2e
