// The cost of qipg::Client over the interface layer: one status call through Client (future
// and callback forms) against the same call through QuandrelIPG with a delegate, in the same
// run, against the same sandbox gateway. A call takes a few hundred microseconds of network
// round trip on a shared machine, so each figure is the median of repetitions run in random
// interleaved order (the row without an aggregate suffix is the median).
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Ratio.h"
#include "Sandbox.h"
#include "SandboxDir.h"
#include "qipg/Client.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/QuandrelIPG.h"

namespace {

const std::string kMID = qipg::sandbox::kTestMerchantId;
const std::string kKey = qipg::sandbox::kTestMerchantKey;

struct Setup {
  qipg_bench::SandboxDir gateway;
  std::shared_ptr<qipg::QuandrelIPG> ipg;
  std::shared_ptr<qipg::Client> client;

  Setup() {
    qipg::ClientOptions clientOptions;
    clientOptions.gateway.testBaseURL = gateway.sandbox->baseURL();
    clientOptions.gateway.caFile = gateway.sandbox->caFile();
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
BENCHMARK(BM_StatusThroughQuandrelIPG)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_StatusThroughClientFuture(benchmark::State& state) {
  Setup& s = setup();
  for (auto _ : state) {
    auto answer = s.client->status({"BENCH1", ""}).get();
    if (!answer) state.SkipWithError(answer.error().message.c_str());
  }
}
BENCHMARK(BM_StatusThroughClientFuture)->UseRealTime()->Unit(benchmark::kMicrosecond);

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
BENCHMARK(BM_StatusThroughClientCallback)->UseRealTime()->Unit(benchmark::kMicrosecond);

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
      {{"BM_StatusThroughClientFuture/real_time", "BM_StatusThroughQuandrelIPG/real_time"},
       {"BM_StatusThroughClientCallback/real_time", "BM_StatusThroughQuandrelIPG/real_time"}});
  benchmark::Shutdown();
  return 0;
}
