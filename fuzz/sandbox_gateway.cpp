// The gateway's protocol without HTTP: a run of requests to every endpoint against a fresh
// store. Each request is either an arbitrary body or a well-formed form around a sealed message
// whose slots are arbitrary or plausible (known orders, their reference numbers, amounts, test
// cards), so that payments, confirmations, cancels and refunds really happen and meet each
// other. After every request the answer must have the documented shape and every transaction
// must keep its amounts consistent.
//
// The database lives in a private directory under the temporary directory; point TMPDIR at a
// memory file system to keep the fuzzer fast (every write is synced).
#include <fuzzer/FuzzedDataProvider.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Gateway.h"
#include "GatewayCrypto.h"
#include "Sandbox.h"
#include "Store.h"
#include "Text.h"

namespace {

using namespace qipg::sandbox;
using namespace qipg::sandbox::internal;

void expect(bool holds) {
  if (!holds) std::abort();
}

const std::string kMid = kTestMerchantId;
const std::string kKey = kTestMerchantKey;
const std::string kIV(kTestIV);
const std::string kBaseURL = "https://127.0.0.1:9/ipg/";
const std::vector<std::string> kOrders = {"ORD1", "ORD2", "ORD3"};
// Markup that must reach no page unescaped, wherever it was put.
const std::string kMarkup = "<qx>";
constexpr int kMaxRequests = 12;

// The fuzzer's own directory, removed at exit.
class Workspace {
 public:
  Workspace() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qipg-gwfuzz-XXXXXX").string();
    expect(::mkdtemp(pattern.data()) != nullptr);
    dir_ = pattern;
  }
  ~Workspace() {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;
  std::string database() const { return dir_ + "/gateway.sqlite3"; }

 private:
  std::string dir_;
};

// An empty store with the test merchant, so that every input starts from the same state.
std::unique_ptr<Store> freshStore() {
  static Workspace workspace;
  const std::string path = workspace.database();
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) ::unlink((path + suffix).c_str());
  std::string error;
  auto store = Store::open(path, &error);
  expect(store != nullptr);
  expect(store->putMerchant(kMid, kKey));
  return store;
}

class Run {
 public:
  explicit Run(FuzzedDataProvider& in) : in_(in), store_(freshStore()) {
    gateway_ = std::make_unique<Gateway>(*store_, kIV, kBaseURL, "test",
                                         qipg::sandbox::Options{}.paymentSession);
  }

  void step() {
    switch (in_.ConsumeIntegralInRange<int>(0, 9)) {
      case 0:
        management(0, arbitrary(400));
        break;
      case 1:
        management(1, arbitrary(400));
        break;
      case 2:
        management(2, arbitrary(400));
        break;
      case 3:
        payment(false, arbitrary(400));
        break;
      case 4:
        payment(true, arbitrary(400));
        break;
      case 5:
        invoice(arbitrary(400));
        break;
      case 6:
        management(in_.ConsumeIntegralInRange<int>(0, 2), std::nullopt);
        break;
      case 7:
        payment(in_.ConsumeBool(), std::nullopt);
        break;
      default:
        invoice(std::nullopt);
        break;
    }
    checkTransactions();
  }

 private:
  std::string arbitrary(std::size_t max) { return in_.ConsumeRandomLengthString(max); }

  // A plausible value most of the time, an arbitrary one now and then.
  std::string pick(std::initializer_list<std::string> choices) {
    const std::size_t i = in_.ConsumeIntegralInRange<std::size_t>(0, choices.size());
    if (i == choices.size()) return arbitrary(24);
    return *(choices.begin() + i);
  }

  std::string order() { return pick({kOrders[0], kOrders[1], kOrders[2]}); }

  std::optional<TxnRecord> record(const std::string& orderId) {
    return store_->byOrder(kMid, orderId);
  }

  std::string reference(const std::string& orderId) {
    const auto r = record(orderId);
    return pick({r ? r->referenceNo : "410000000001", "-", "", "123"});
  }

  std::string amount(const std::string& orderId) {
    const auto r = record(orderId);
    const std::string whole = r ? formatAmount(r->amountMinor) : "10.00";
    const std::string half = r ? formatAmount(r->amountMinor / 2) : "5.00";
    return pick({"-", whole, half, "0.01", "0", "9999999999999.99"});
  }

  // Seals `message` (with the merchant's key, or now and then a wrong one) into a form body.
  std::string form(const std::string& envelopeName, const std::string& midName,
                   const std::string& message, bool browserEncoded) {
    const std::string key = in_.ConsumeIntegralInRange<int>(0, 15) == 0 ? "wrongKey" : kKey;
    std::string envelope = sealEnvelope(message, key, kIV);
    if (browserEncoded && in_.ConsumeBool()) {
      std::string twice;
      for (const char c : envelope) twice += c == '%' ? std::string("%25") : std::string(1, c);
      envelope = twice;
    }
    const std::string mid = pick({kMid, "QIPGTEST0002", "QIPGTEST0001%20"});
    const std::string envelopePart = envelopeName + "=" + envelope;
    const std::string midPart = midName + "=" + mid;
    return in_.ConsumeBool() ? envelopePart + "&" + midPart : midPart + "&" + envelopePart;
  }

  // The layout's slot count most of the time; one more or one fewer now and then.
  std::size_t slotCount(std::size_t expected) {
    switch (in_.ConsumeIntegralInRange<int>(0, 7)) {
      case 0:
        return expected - 1;
      case 1:
        return expected + 1;
      default:
        return expected;
    }
  }

  static std::string join(const std::vector<std::string>& slots) {
    std::string out;
    for (std::size_t i = 0; i < slots.size(); ++i) {
      if (i > 0) out.push_back('|');
      out += slots[i];
    }
    return out;
  }

  // operation: 0 status, 1 cancel, 2 refund.
  void management(int operation, std::optional<std::string> body) {
    if (!body) {
      const std::string orderId = order();
      std::vector<std::string> slots = {pick({kMid, "QIPGTEST0002"}), orderId, reference(orderId),
                                        amount(orderId)};
      slots.resize(slotCount(14), operation == 0 ? "" : "-");
      for (std::size_t i = 4; i < slots.size(); ++i) slots[i] = pick({slots[i]});
      body = form("merchantReqStrT", operation == 0 ? "mid" : "MID", join(slots), false);
    }
    const Reply reply = operation == 0   ? gateway_->status(*body)
                        : operation == 1 ? gateway_->cancel(*body)
                                         : gateway_->refund(*body);
    expect(reply.contentType.rfind("text/plain", 0) == 0);
    if (reply.status == 400) return;  // no known MID: a plain refusal
    // Known MID: always a sealed answer, refusals included.
    expect(reply.status == 200);
    const auto plain = openEnvelope(reply.body, kKey, kIV);
    expect(plain.has_value());
    const auto fields = splitPipes(*plain);
    expect(fields.size() == (operation == 0 ? 22u : 16u));
    const std::string& code = fields[operation == 0 ? 10 : 4];
    expect(code == "S" || code == "F" || code == "P" || code == "R" || code == "C");
    expect(!fields[operation == 0 ? 11 : 5].empty());
  }

  void payment(bool cardCapture, std::optional<std::string> body) {
    std::string orderId;
    if (!body) {
      orderId = order();
      std::vector<std::string> slots = {
          pick({kMid, "QIPGTEST0002"}),
          orderId,
          pick({"10.00", "1", "0.5", "2500.75", "0", "1.234"}),
          pick({"INR", "USD", "-", "EUR"}),
          pick({"-", "remarks", kMarkup}),
          pick({"S", "P", "R", "X"}),
          pick({"-", "MONTH"}),
          pick({"-", "1"}),
          pick({"-", "12"}),
          pick({kBaseURL + "paymentInvoice", "https://merchant.example/return\"" + kMarkup, "-"}),
      };
      for (int i = 0; i < 10; ++i) slots.push_back(pick({"-", "note", kMarkup}));
      if (cardCapture) {
        slots.push_back(pick({"CC", "DC", "CUG", "NA", "NB", "XX"}));
        slots.push_back(pick({"4111111111111111", "5555555555554444", "4000000000000002",
                              "4000000000009995", "4242424242424242", "4111111111111112"}));
        slots.push_back(pick({"1299", "0120", "1399", "12"}));
        slots.push_back(pick({"123", "1234", "12"}));
        slots.push_back(pick({"A Holder", "-", kMarkup}));
        slots.push_back(pick({"-", "NA", "HDFC", kMarkup}));
      }
      slots.resize(slotCount(cardCapture ? 26 : 20), "-");
      body = form("merchantRequest", "MID", join(slots), true);
    }
    const std::optional<TxnRecord> before = orderId.empty() ? std::nullopt : record(orderId);
    const Reply reply =
        cardCapture ? gateway_->cardPaymentPage(*body) : gateway_->paymentPage(*body);
    expect(reply.contentType.rfind("text/html", 0) == 0);
    expect(reply.body.find("<qx") == std::string::npos);
    expect(reply.status == 200 || reply.status == 400);
    if (reply.status == 200 && !orderId.empty()) {
      // A new pending payment, unless the order had already been paid or failed.
      const auto after = record(orderId);
      expect(after.has_value() && after->state == TxnState::kPending);
      expect(!before || before->state == TxnState::kPending);
    }
  }

  void invoice(std::optional<std::string> body) {
    std::optional<TxnRecord> before;
    if (!body) {
      before = record(order());
      const std::string token = before ? before->token : arbitrary(32);
      // One pick per statement: the input is read in a fixed order.
      const std::string number =
          pick({"4111+1111+1111+1111", "4000-0000-0000-0002", "4000000000009995", "411"});
      const std::string expiry = pick({"12%2F99", "01/20", "13/99"});
      const std::string cvv = pick({"123", "1"});
      const std::string holder = pick({"A+Holder", "", "%3Cqx%3E"});
      body = "token=" + token + "&cardNumber=" + number + "&expiry=" + expiry + "&cvv=" + cvv +
             "&holder=" + holder;
    }
    const Reply reply = gateway_->paymentInvoice(*body);
    expect(reply.contentType.rfind("text/html", 0) == 0);
    expect(reply.body.find("<qx") == std::string::npos);
    if (before) {
      expect(reply.status == 200);
      expect(reply.body.find("<div id=\"responseString\"") != std::string::npos);
      const auto after = record(before->orderId);
      expect(after.has_value() && after->state != TxnState::kPending);
      expect(after->resultCode == "S" || after->resultCode == "F");
      expect(after->cardLast4.empty() || after->cardLast4.size() == 4);
      if (before->state != TxnState::kPending) expect(after->completedAt == before->completedAt);
    } else {
      expect(reply.status == 200 || reply.status == 404);
    }
  }

  // Amounts never cross: refunds within the captured amount, captures of the whole amount.
  void checkTransactions() {
    for (const std::string& orderId : kOrders) {
      const auto t = gateway_->transaction(kMid, orderId);
      if (!t) continue;
      expect(t->amountMinor > 0);
      expect(t->capturedMinor == 0 || t->capturedMinor == t->amountMinor);
      expect(t->refundedMinor >= 0 && t->refundedMinor <= t->capturedMinor);
      if (t->state == "captured") expect(t->capturedMinor == t->amountMinor);
      if (t->state != "captured") expect(t->refundedMinor == 0);
      expect(t->statusCode.size() == 1 &&
             std::string("PSRFC").find(t->statusCode) != std::string::npos);
    }
  }

  FuzzedDataProvider& in_;
  std::unique_ptr<Store> store_;
  std::unique_ptr<Gateway> gateway_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  Run run(in);
  for (int i = 0; i < kMaxRequests && in.remaining_bytes() > 0; ++i) run.step();
  return 0;
}
