// Status calls as a host sees them: against the standalone ipg-sandbox program (its own
// process, as a real gateway is), through qipg::Client (future and callback forms) and through
// QuandrelIPG with a delegate, each against a bare libcurl easy handle reused on the calling
// thread that posts an equally sealed form to the same endpoint. A call takes a few hundred
// microseconds of loopback round trip on a shared machine, so each figure is the median of 9
// repetitions of 100 calls run in random interleaved order (the row without an aggregate
// suffix is the median).
#include <curl/curl.h>

#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Ratio.h"
#include "Sandbox.h"
#include "StandaloneSandbox.h"
#include "qipg/Client.h"
#include "qipg/Cryptography.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/QuandrelIPG.h"

namespace {

const std::string kMID = qipg::sandbox::kTestMerchantId;
const std::string kKey = qipg::sandbox::kTestMerchantKey;
constexpr int kCallsPerRepetition = 100;

struct Setup {
  qipg_bench::StandaloneSandbox gateway;
  std::shared_ptr<qipg::QuandrelIPG> ipg;
  std::shared_ptr<qipg::Client> client;

  Setup() {
    qipg::ClientOptions clientOptions;
    clientOptions.gateway.testBaseURL = gateway.baseURL();
    clientOptions.gateway.caFile = gateway.caFile();
    clientOptions.merchantID = kMID;
    clientOptions.encryptionKey = kKey;
    ipg = qipg::QuandrelIPG::create(qipg::IPGEnvironmentTest, clientOptions.gateway);
    auto made = qipg::Client::create(clientOptions);
    if (!ipg || !made) std::abort();
    client = made.value();
  }
};

Setup& setup() {
  static Setup instance;
  return instance;
}

// One answer at a time, handed from the answering thread to the benchmark's.
class Signal {
 public:
  void raise() {
    std::lock_guard lock(mutex_);
    raised_ = true;
    changed_.notify_all();
  }
  void wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return raised_; });
    raised_ = false;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool raised_ = false;
};

void BM_StatusThroughQuandrelIPG(benchmark::State& state) {
  Setup& s = setup();
  Signal answered;
  auto delegate =
      qipg::makeResponseDelegate([&answered](const qipg::PaymentResponse&) { answered.raise(); });
  for (auto _ : state) {
    s.ipg->getTransactionStatus("BENCH1", "", kMID, kKey, delegate);
    answered.wait();
  }
}
BENCHMARK(BM_StatusThroughQuandrelIPG)
    ->Iterations(kCallsPerRepetition)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

void BM_StatusThroughClientFuture(benchmark::State& state) {
  Setup& s = setup();
  for (auto _ : state) {
    auto answer = s.client->status({"BENCH1", ""}).get();
    if (!answer) state.SkipWithError(answer.error().message.c_str());
  }
}
BENCHMARK(BM_StatusThroughClientFuture)
    ->Iterations(kCallsPerRepetition)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

void BM_StatusThroughClientCallback(benchmark::State& state) {
  Setup& s = setup();
  Signal answered;
  for (auto _ : state) {
    s.client->status({"BENCH1", ""}, [&answered](qipg::Result<qipg::PaymentResponse>) {
      answered.raise();
    });
    answered.wait();
  }
}
BENCHMARK(BM_StatusThroughClientCallback)
    ->Iterations(kCallsPerRepetition)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

std::size_t discard(char*, std::size_t size, std::size_t count, void*) { return size * count; }

// What a host would write without the library: one easy handle, reused, on its own thread,
// posting the status form the library sends for the same order.
void BM_StatusBareCurl(benchmark::State& state) {
  Setup& s = setup();
  const std::string url = s.gateway.baseURL() + "getTransactionStatus";
  const std::string form = "merchantReqStrT=" +
                           qipg::encryptTextWithEncKey(kMID + "|BENCH1||||||||||||", kKey) +
                           "&mid=" + kMID + "&iosEnc=true";
  curl_slist* headers =
      curl_slist_append(nullptr, "Content-Type: application/x-www-form-urlencoded");
  headers = curl_slist_append(headers, "Expect:");
  CURL* easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_CAINFO, s.gateway.caFile().c_str());
  curl_easy_setopt(easy, CURLOPT_PROXY, "");
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, form.c_str());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(form.size()));
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &discard);
  for (auto _ : state) {
    if (curl_easy_perform(easy) != CURLE_OK) state.SkipWithError("post failed");
  }
  curl_easy_cleanup(easy);
  curl_slist_free_all(headers);
}
BENCHMARK(BM_StatusBareCurl)
    ->Iterations(kCallsPerRepetition)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

// Hands the ratio table the median of each benchmark's repetitions, under its plain name.
class MedianReporter : public qipg_bench::RatioReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<Run> shown = runs;
    for (Run& run : shown) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
        run.run_type = Run::RT_Iteration;
        run.aggregate_name.clear();
      }
    }
    RatioReporter::ReportRuns(shown);
  }
};

}  // namespace

int main(int argc, char** argv) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  setup();
  std::vector<char*> args(argv, argv + argc);
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  std::string repetitions = "--benchmark_repetitions=9";
  std::string aggregatesOnly = "--benchmark_report_aggregates_only=true";
  args.insert(args.begin() + 1, {interleave.data(), repetitions.data(), aggregatesOnly.data()});
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios(
      {{"BM_StatusThroughClientFuture/iterations:100/real_time",
        "BM_StatusBareCurl/iterations:100/real_time"},
       {"BM_StatusThroughClientCallback/iterations:100/real_time",
        "BM_StatusBareCurl/iterations:100/real_time"},
       {"BM_StatusThroughQuandrelIPG/iterations:100/real_time",
        "BM_StatusBareCurl/iterations:100/real_time"}});
  benchmark::Shutdown();
  return 0;
}
