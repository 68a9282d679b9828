// The cost of qipg::Client over the interface layer: one status call through Client (future
// and callback forms) against the same call through QuandrelIPG with a delegate, in the same
// run, against the same sandbox gateway.
#include <stdlib.h>

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "Ratio.h"
#include "Sandbox.h"
#include "qipg/Client.h"
#include "qipg/IPGResponseDelegate.h"
#include "qipg/QuandrelIPG.h"

namespace {

const std::string kMID = qipg::sandbox::kTestMerchantId;
const std::string kKey = qipg::sandbox::kTestMerchantKey;

struct Setup {
  std::filesystem::path dir;
  std::unique_ptr<qipg::sandbox::Sandbox> sandbox;
  std::shared_ptr<qipg::QuandrelIPG> ipg;
  std::shared_ptr<qipg::Client> client;

  Setup() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qipg-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    dir = pattern;
    setenv("QIPG_DEFAULTS_FILE", (dir / "defaults.sqlite3").c_str(), 1);
    qipg::sandbox::Options options;
    options.dataDir = (dir / "sandbox").string();
    std::string error;
    sandbox = qipg::sandbox::Sandbox::start(options, &error);
    if (!sandbox) std::abort();
    qipg::ClientOptions clientOptions;
    clientOptions.gateway.testBaseURL = sandbox->baseURL();
    clientOptions.gateway.caFile = sandbox->caFile();
    clientOptions.merchantID = kMID;
    clientOptions.encryptionKey = kKey;
    ipg = qipg::QuandrelIPG::create(qipg::IPGEnvironmentTest, clientOptions.gateway);
    auto made = qipg::Client::create(clientOptions);
    if (!ipg || !made) std::abort();
    client = made.value();
  }

  ~Setup() {
    client.reset();
    ipg.reset();
    sandbox.reset();
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
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

}  // namespace

int main(int argc, char** argv) {
  setup();
  return qipg_bench::runWithRatios(
      argc, argv,
      {{"BM_StatusThroughClientFuture/real_time", "BM_StatusThroughQuandrelIPG/real_time"},
       {"BM_StatusThroughClientCallback/real_time", "BM_StatusThroughQuandrelIPG/real_time"}});
}
