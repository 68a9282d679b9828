// The cost of the library's transport, measured against bare libcurl on the same sandbox
// gateway in the same run:
// - one status call through the library (seal, post, open, parse, delegate) against one bare
//   libcurl POST of the same form with the same connection reuse, and against that post plus
//   the same sealing, opening and parsing on the calling thread;
// - 1,000 and 10,000 status calls queued at once on one client against as many bare posts at
//   once on one multi handle with the library's connection limits; the library's runs also
//   report the whole process's peak RSS during the run and its thread count (the sandbox's
//   threads included, it runs in this process) and check that every call was answered
//   exactly once. Target for 10,000: within 64 MiB peak RSS;
// - what the outcome journal adds to a refund (its entry made durable before the request
//   leaves, and its answer recorded after), against one status call through the library
//   (target: under 10% of the call), and against the floor of any durable write: 200 bytes
//   written and fdatasync'd to a file on the same disk.
#include <curl/curl.h>
#include <fcntl.h>
#include <unistd.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Ratio.h"
#include "Sandbox.h"
#include "SandboxDir.h"
#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/Journal.h"
#include "qipg/QuandrelIPG.h"

namespace {

const std::string kMID = qipg::sandbox::kTestMerchantId;
const std::string kKey = qipg::sandbox::kTestMerchantKey;
constexpr int kAtOnce = 1000;
constexpr int kManyAtOnce = 10000;

// The sandbox and the client, set up once for the whole run in a private directory.
struct Setup {
  qipg_bench::SandboxDir gateway;
  qipg::GatewayConfig config;
  std::shared_ptr<qipg::QuandrelIPG> client;
  std::string statusURL;
  std::string form;  // the status form the library posts for the same order

  Setup() {
    config.testBaseURL = gateway.sandbox->baseURL();
    config.caFile = gateway.sandbox->caFile();
    client = qipg::QuandrelIPG::create(qipg::IPGEnvironmentTest, config);
    if (!client) std::abort();
    statusURL = gateway.sandbox->baseURL() + "getTransactionStatus";
    form = "merchantReqStrT=" + qipg::encryptTextWithEncKey(kMID + "|BENCH1||||||||||||", kKey) +
           "&mid=" + kMID + "&iosEnc=true";
  }
};

Setup& setup() {
  static Setup instance;
  return instance;
}

// Counts answers and wakes the waiting benchmark when the expected number has arrived.
class Counter {
 public:
  void reset(int expected) {
    std::lock_guard lock(mutex_);
    expected_ = expected;
    answered_ = 0;
  }
  void add() {
    std::lock_guard lock(mutex_);
    if (++answered_ >= expected_) done_.notify_all();
  }
  void wait() {
    std::unique_lock lock(mutex_);
    done_.wait(lock, [this] { return answered_ >= expected_; });
  }
  int answered() {
    std::lock_guard lock(mutex_);
    return answered_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable done_;
  int expected_ = 0;
  int answered_ = 0;
};

long threadCount() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("Threads:", 0) == 0) return std::stol(line.substr(8));
  }
  return -1;
}

// The process's peak RSS since the last resetPeakRss() (or since it started).
long peakRssKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// Starts the peak RSS afresh from the current RSS, where the kernel allows it.
void resetPeakRss() { std::ofstream("/proc/self/clear_refs") << "5"; }

std::size_t discard(char*, std::size_t size, std::size_t count, void*) { return size * count; }

std::size_t collect(char* data, std::size_t size, std::size_t count, void* out) {
  static_cast<std::string*>(out)->append(data, size * count);
  return size * count;
}

// A bare libcurl POST of the status form, set up as the library sets up its own.
CURL* bareEasy(const Setup& s, curl_slist* headers) {
  CURL* easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_URL, s.statusURL.c_str());
  curl_easy_setopt(easy, CURLOPT_CAINFO, s.gateway.sandbox->caFile().c_str());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_POST, 1L);
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, s.form.c_str());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(s.form.size()));
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &discard);
  return easy;
}

curl_slist* formHeaders(const Setup& s) {
  curl_slist* headers =
      curl_slist_append(nullptr, "Content-Type: application/x-www-form-urlencoded");
  headers =
      curl_slist_append(headers, ("Content-Length: " + std::to_string(s.form.size())).c_str());
  return curl_slist_append(headers, "Expect:");
}

void BM_StatusThroughLibrary(benchmark::State& state) {
  Setup& s = setup();
  Counter counter;
  auto delegate =
      qipg::makeResponseDelegate([&counter](const qipg::PaymentResponse&) { counter.add(); });
  for (auto _ : state) {
    counter.reset(1);
    s.client->getTransactionStatus("BENCH1", "", kMID, kKey, delegate);
    counter.wait();
  }
}
BENCHMARK(BM_StatusThroughLibrary)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_StatusBareCurl(benchmark::State& state) {
  Setup& s = setup();
  curl_slist* headers = formHeaders(s);
  CURL* easy = bareEasy(s, headers);  // reused: its connection stays open between posts
  for (auto _ : state) {
    if (curl_easy_perform(easy) != CURLE_OK) state.SkipWithError("post failed");
  }
  curl_easy_cleanup(easy);
  curl_slist_free_all(headers);
}
BENCHMARK(BM_StatusBareCurl)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_JournalOfARefund(benchmark::State& state) {
  auto journal = qipg::Journal::open((setup().gateway.dir / "journal.sqlite3").string());
  if (!journal) {
    state.SkipWithError("cannot open the journal");
    return;
  }
  qipg::JournalEntry entry{.operation = qipg::JournalOperation::Refund,
                           .orderID = "BENCH1",
                           .transactionRefNumber = "410000000001",
                           .amount = "1.00",
                           .environment = "test",
                           .baseURL = setup().gateway.sandbox->baseURL()};
  qipg::PaymentResponse answer;
  answer.setTransactionReferenceNo(std::string("410000000001"));
  answer.setOrderID(std::string("BENCH1"));
  answer.setStatusCode(std::string("S"));
  answer.setStatusDescription(std::string("Refund accepted"));
  answer.setRefundAmount(std::string("1.00"));
  for (auto _ : state) {
    qipg::Result<std::int64_t> id = journal.value()->begin(entry);
    if (!id || !journal.value()->answered(id.value(), answer)) {
      state.SkipWithError("the journal could not write");
      break;
    }
  }
}
BENCHMARK(BM_JournalOfARefund)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_DurableWriteFloor(benchmark::State& state) {
  const std::string path = (setup().gateway.dir / "floor").string();
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const std::string bytes(200, 'x');
  for (auto _ : state) {
    if (::pwrite(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()) ||
        ::fdatasync(fd) != 0) {
      state.SkipWithError("the floor write failed");
      break;
    }
  }
  ::close(fd);
}
BENCHMARK(BM_DurableWriteFloor)->UseRealTime()->Unit(benchmark::kMicrosecond);

// The bare post plus the library's own work on the same thread (seal, open, parse), so that
// what is left between this and the library is the transport's hand-over between threads.
void BM_StatusBareCurlWithEnvelope(benchmark::State& state) {
  Setup& s = setup();
  curl_slist* headers = formHeaders(s);
  CURL* easy = bareEasy(s, headers);
  std::string answer;
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &collect);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
  const qipg::CommonUtilities parsers;
  for (auto _ : state) {
    const std::string form =
        "merchantReqStrT=" + qipg::encryptTextWithEncKey(kMID + "|BENCH1||||||||||||", kKey) +
        "&mid=" + kMID + "&iosEnc=true";
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, form.c_str());
    answer.clear();
    if (curl_easy_perform(easy) != CURLE_OK) state.SkipWithError("post failed");
    const qipg::PaymentResponse response =
        parsers.getResponseFromString(qipg::decryptTextWithDecryptionKey(answer, kKey));
    benchmark::DoNotOptimize(response);
  }
  curl_easy_cleanup(easy);
  curl_slist_free_all(headers);
}
BENCHMARK(BM_StatusBareCurlWithEnvelope)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_StatusCallsAtOnceThroughLibrary(benchmark::State& state) {
  Setup& s = setup();
  const int calls = static_cast<int>(state.range(0));
  Counter counter;
  // The sandbox knows no BENCH1 and says so; a call that did not get through has no
  // description at all.
  std::atomic<int> failed{0};
  auto delegate =
      qipg::makeResponseDelegate([&counter, &failed](const qipg::PaymentResponse& response) {
        if (!response.statusDescription()) ++failed;
        counter.add();
      });
  long threads = 0;
  resetPeakRss();
  for (auto _ : state) {
    counter.reset(calls);
    for (int i = 0; i < calls; ++i) {
      s.client->getTransactionStatus("BENCH1", "", kMID, kKey, delegate);
    }
    threads = std::max(threads, threadCount());
    counter.wait();
  }
  // Answered exactly once: no late second answer either.
  s.client->shutdown();
  if (counter.answered() != calls) state.SkipWithError("not every call answered exactly once");
  s.client = qipg::QuandrelIPG::create(qipg::IPGEnvironmentTest, s.config);
  state.counters["answered"] = counter.answered();
  state.counters["failed"] = failed.load();
  state.counters["threads"] = static_cast<double>(threads);
  state.counters["peak_rss_MiB"] = static_cast<double>(peakRssKiB()) / 1024.0;
}
BENCHMARK(BM_StatusCallsAtOnceThroughLibrary)
    ->Arg(kAtOnce)
    ->Iterations(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StatusCallsAtOnceThroughLibrary)
    ->Arg(kManyAtOnce)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void BM_BareCurlPostsAtOnce(benchmark::State& state) {
  Setup& s = setup();
  const int calls = static_cast<int>(state.range(0));
  curl_slist* headers = formHeaders(s);
  CURLM* multi = curl_multi_init();
  curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, 12L);
  curl_multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, 6L);
  int answered = 0;
  for (auto _ : state) {
    answered = 0;
    std::vector<CURL*> easies;
    for (int i = 0; i < calls; ++i) {
      easies.push_back(bareEasy(s, headers));
      curl_multi_add_handle(multi, easies.back());
    }
    int running = 1;
    while (running > 0) {
      curl_multi_perform(multi, &running);
      int left = 0;
      while (CURLMsg* message = curl_multi_info_read(multi, &left)) {
        if (message->msg == CURLMSG_DONE && message->data.result == CURLE_OK) ++answered;
      }
      if (running > 0) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
    for (CURL* easy : easies) {
      curl_multi_remove_handle(multi, easy);
      curl_easy_cleanup(easy);
    }
  }
  state.counters["answered"] = answered;
  curl_multi_cleanup(multi);
  curl_slist_free_all(headers);
}
BENCHMARK(BM_BareCurlPostsAtOnce)
    ->Arg(kAtOnce)
    ->Iterations(3)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BareCurlPostsAtOnce)
    ->Arg(kManyAtOnce)
    ->Iterations(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  setup();
  const int result = qipg_bench::runWithRatios(
      argc, argv,
      {{"BM_StatusThroughLibrary/real_time", "BM_StatusBareCurl/real_time"},
       {"BM_JournalOfARefund/real_time", "BM_StatusThroughLibrary/real_time"},
       {"BM_JournalOfARefund/real_time", "BM_DurableWriteFloor/real_time"},
       {"BM_StatusThroughLibrary/real_time", "BM_StatusBareCurlWithEnvelope/real_time"},
       {"BM_StatusCallsAtOnceThroughLibrary/1000/iterations:3/real_time",
        "BM_BareCurlPostsAtOnce/1000/iterations:3/real_time"},
       {"BM_StatusCallsAtOnceThroughLibrary/10000/iterations:1/real_time",
        "BM_BareCurlPostsAtOnce/10000/iterations:1/real_time"}});
  return result;
}
