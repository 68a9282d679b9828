// Benchmarks here report every figure beside a baseline measured in the same run, because
// the machines are noisy: absolute times mean little, ratios travel.
//
//   int main(int argc, char** argv) {
//     return qipg_bench::runWithRatios(argc, argv, {{"BM_Seal", "BM_SealBaseline"}});
//   }
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace qipg_bench {

struct Pair {
  std::string figure;    // benchmark name (as printed, e.g. "BM_Seal" or "BM_Seal/200")
  std::string baseline;  // the benchmark it is measured against
};

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
        nanoseconds_[run.benchmark_name()] = run.GetAdjustedRealTime() *
                                             benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                                             benchmark::GetTimeUnitMultiplier(run.time_unit);
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // Prints "figure  N ns   baseline  M ns   ratio R" for each pair measured.
  void printRatios(const std::vector<Pair>& pairs) const {
    std::printf("\n%-44s %14s   %-36s %14s %8s\n", "figure", "time", "baseline", "time", "ratio");
    for (const Pair& p : pairs) {
      auto f = nanoseconds_.find(p.figure);
      auto b = nanoseconds_.find(p.baseline);
      if (f == nanoseconds_.end() || b == nanoseconds_.end() || b->second <= 0) continue;
      std::printf("%-44s %11.0f ns   %-36s %11.0f ns %7.2fx\n", p.figure.c_str(), f->second,
                  p.baseline.c_str(), b->second, f->second / b->second);
    }
  }

  double nanoseconds(const std::string& name) const {
    auto it = nanoseconds_.find(name);
    return it == nanoseconds_.end() ? -1.0 : it->second;
  }

 private:
  std::map<std::string, double> nanoseconds_;
};

inline int runWithRatios(int argc, char** argv, const std::vector<Pair>& pairs) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios(pairs);
  benchmark::Shutdown();
  return 0;
}

}  // namespace qipg_bench
