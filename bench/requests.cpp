// The request builders and the answer parsers, each figure beside the cost of the envelope
// alone (encryptTextWithEncKey of a message of the same size) measured in the same run, so
// that the share of validation, layout and parsing is visible.
//
//   bench_requests [--benchmark_filter=...]
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "Ratio.h"
#include "qipg/CommonUtilities.h"
#include "qipg/Cryptography.h"
#include "qipg/IPGCardCaptureRequest.h"
#include "qipg/IPGStandardRequest.h"

namespace {

using qipg::Text;

const Text kKey = std::string("0123456789abcdef0123456789ABCDEF");
const Text kResponseUrl = std::string("https://test.ipg.quandrel.example/ipg/paymentInvoice");

// Validation, creation, layout and sealing, as the client's standard payment does them.
Text standardPayment() {
  qipg::IPGStandardRequest request("M123", "ORD20240102A", "1250.00", "INR", "", "S", "", "", "",
                                   kResponseUrl, "", "", kKey, "", "", "", "", "", "", "", "", "",
                                   "");
  const std::string verdict = request.validateInputForStandardRequest(
      "ORD20240102A", "1250.00", "INR", "Books and more", "S", "", "", "", "", "", "", "", "", "",
      "", "M123", kKey);
  if (verdict != "Success") return std::nullopt;
  return request.getTransactionRequestMessage().reqMsg();
}

// The same for a card-capture payment.
Text cardCapturePayment() {
  qipg::IPGCardCaptureRequest request("M123", "ORD20240102A", "1250.00", "INR", "Books", "S", "",
                                      "", "", kResponseUrl, "", "Initial", "DC", "4111111111111111",
                                      "1230", "A Kumar", "123", kKey, "", "", "", "", "", "", "",
                                      "", "", "");
  const std::string verdict = request.validateInputForCardCaptureRequest(
      "ORD20240102A", "1250.00", "INR", "Books", "S", "A Kumar", "4111111111111111", "1230", "123",
      "DC", "", "", "", "", "", "", "", "", "", "", "M123", kKey);
  if (verdict != "Success") return std::nullopt;
  return request.getTransactionRequestMessage().reqMsg();
}

const std::string kPaymentAnswer =
    "ORD20240102A|2024010212345|401234567890|S|Transaction Successful|1250.00|"
    "2024-01-02 10:15:30|AUTHN1|AUTHZ1|Y|PG0001|0.00|a1|a2|a3|a4|a5|a6|a7|a8|a9|a10";
const std::string kStatusAnswer =
    "\"2024010212345|ORD20240102A|1250.00|Y|Y|Y|401234567890|AUTHZ1|00|2024-01-02 10:15:30|S|"
    "Transaction Successful|a1|a2|a3|a4|a5|a6|a7|a8|a9|a10\"";
const std::string kCancelAnswer =
    "2024010212345|ORD20240102A|PG0002|150.00|S|Refund Successful|a1|a2|a3|a4|a5|a6|a7|a8|a9|a10";

void registerPair(std::vector<qipg_bench::Pair>& pairs, const std::string& name,
                  const std::string& plainOfSameSize, std::function<void()> body) {
  const std::string baseline = "BM_EnvelopeOnly_" + name.substr(3);
  benchmark::RegisterBenchmark(name.c_str(), [body](benchmark::State& state) {
    for (auto _ : state) body();
  });
  benchmark::RegisterBenchmark(baseline.c_str(), [plainOfSameSize](benchmark::State& state) {
    for (auto _ : state) {
      benchmark::DoNotOptimize(qipg::encryptTextWithEncKey(plainOfSameSize, kKey));
    }
  });
  pairs.push_back({name, baseline});
}

}  // namespace

int main(int argc, char** argv) {
  // A private user-defaults store holding the test gateway's IV.
  char dir[] = "/tmp/qipg-bench-XXXXXX";
  if (mkdtemp(dir) == nullptr) return 1;
  const std::string store = std::string(dir) + "/defaults.sqlite3";
  setenv("QIPG_DEFAULTS_FILE", store.c_str(), 1);
  qipg::CommonUtilities::SetRandomIV("4e9a1c07b3d58f26", "randomIV");

  // The plain messages the builders seal, recovered from their sealed texts.
  const Text standardPlain = qipg::decryptTextWithDecryptionKey(standardPayment(), kKey);
  const Text cardPlain = qipg::decryptTextWithDecryptionKey(cardCapturePayment(), kKey);
  if (!standardPlain || !cardPlain) {
    std::fprintf(stderr, "the builders did not produce a sealed message\n");
    return 1;
  }

  const qipg::CommonUtilities parsers;
  std::vector<qipg_bench::Pair> pairs;
  registerPair(pairs, "BM_StandardRequest", *standardPlain,
               [] { benchmark::DoNotOptimize(standardPayment()); });
  registerPair(pairs, "BM_CardCaptureRequest", *cardPlain,
               [] { benchmark::DoNotOptimize(cardCapturePayment()); });
  registerPair(pairs, "BM_ParsePaymentResponse", kPaymentAnswer, [&parsers] {
    benchmark::DoNotOptimize(parsers.getPaymentResponseFromString(kPaymentAnswer));
  });
  registerPair(pairs, "BM_ParseStatusResponse", kStatusAnswer, [&parsers] {
    benchmark::DoNotOptimize(parsers.getResponseFromString(kStatusAnswer));
  });
  registerPair(pairs, "BM_ParseCancelOrRefundResponse", kCancelAnswer, [&parsers] {
    benchmark::DoNotOptimize(parsers.getCancelOrRefundPaymentResponse(kCancelAnswer));
  });

  const int status = qipg_bench::runWithRatios(argc, argv, pairs);
  for (const char* suffix : {"", "-journal"}) unlink((store + suffix).c_str());
  rmdir(dir);
  return status;
}
