// What creating a client costs: it writes the gateway's IV durably to the user-defaults file
// and starts the HTTP transport's thread. Measured beside the bare durable write it contains:
// one SQLite INSERT OR REPLACE committed with synchronous=FULL into a file in the same
// temporary directory.
//
// And what the user-defaults store's read cache saves: reading an IV that another process
// stored (every envelope of a process that seals without creating a client reads it), with
// the cache (the file's change counter is checked) against without (a SELECT per read).
#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "Ratio.h"
#include "qipg/QuandrelIPG.h"
#include "security/UserDefaults.h"

namespace {

// A private directory for the run, removed at the end.
class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qipg-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~TempDir() {
    std::error_code error;
    if (!path_.empty()) std::filesystem::remove_all(path_, error);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

TempDir& tempDir() {
  static TempDir dir;
  return dir;
}

void BM_CreateClient(benchmark::State& state) {
  const std::string file = (tempDir().path() / "defaults.sqlite3").string();
  setenv("QIPG_DEFAULTS_FILE", file.c_str(), 1);
  qipg::GatewayConfig config;  // the built-in placeholders: no environment in the figure
  for (auto _ : state) {
    std::shared_ptr<qipg::QuandrelIPG> client = qipg::QuandrelIPG::create(1, config);
    if (!client) {
      state.SkipWithError("the client could not be created");
      break;
    }
    benchmark::DoNotOptimize(client.get());
  }
}
BENCHMARK(BM_CreateClient)->UseRealTime();

struct DbCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct StatementFinalizer {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

void BM_DurableSqliteWriteBaseline(benchmark::State& state) {
  const std::string file = (tempDir().path() / "baseline.sqlite3").string();
  sqlite3* raw = nullptr;
  if (sqlite3_open(file.c_str(), &raw) != SQLITE_OK) {
    sqlite3_close_v2(raw);
    state.SkipWithError("cannot open the baseline database");
    return;
  }
  std::unique_ptr<sqlite3, DbCloser> db(raw);
  sqlite3_exec(db.get(),
               "PRAGMA journal_mode=DELETE; PRAGMA synchronous=FULL;"
               "CREATE TABLE IF NOT EXISTS kv (key TEXT PRIMARY KEY, value TEXT)",
               nullptr, nullptr, nullptr);
  sqlite3_stmt* rawStatement = nullptr;
  sqlite3_prepare_v2(db.get(), "INSERT OR REPLACE INTO kv VALUES ('randomIV', ?1)", -1,
                     &rawStatement, nullptr);
  std::unique_ptr<sqlite3_stmt, StatementFinalizer> insert(rawStatement);
  if (!insert) {
    state.SkipWithError("cannot prepare the baseline statement");
    return;
  }
  for (auto _ : state) {
    sqlite3_bind_text(insert.get(), 1, "4e9a1c07b3d58f26", -1, SQLITE_STATIC);
    const int rc = sqlite3_step(insert.get());  // autocommit: one committed transaction
    sqlite3_reset(insert.get());
    if (rc != SQLITE_DONE) {
      state.SkipWithError("the baseline write failed");
      break;
    }
  }
}
BENCHMARK(BM_DurableSqliteWriteBaseline)->UseRealTime();

void readOtherProcessesIV(benchmark::State& state, bool cacheReads) {
  const std::string file = (tempDir().path() / "shared-defaults.sqlite3").string();
  {
    qipg::internal::UserDefaults writer(qipg::internal::UserDefaults::Options{file, 3000, true});
    writer.setString("randomIV", "4e9a1c07b3d58f26");
  }
  qipg::internal::UserDefaults reader(
      qipg::internal::UserDefaults::Options{file, 3000, cacheReads});
  for (auto _ : state) {
    if (reader.stringForKey("randomIV") != "4e9a1c07b3d58f26") {
      state.SkipWithError("the IV could not be read");
      break;
    }
  }
}

void BM_ReadStoredIV(benchmark::State& state) { readOtherProcessesIV(state, true); }
BENCHMARK(BM_ReadStoredIV)->UseRealTime();

void BM_ReadStoredIVWithoutCache(benchmark::State& state) { readOtherProcessesIV(state, false); }
BENCHMARK(BM_ReadStoredIVWithoutCache)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  return qipg_bench::runWithRatios(
      argc, argv,
      {{"BM_CreateClient/real_time", "BM_DurableSqliteWriteBaseline/real_time"},
       {"BM_ReadStoredIV/real_time", "BM_ReadStoredIVWithoutCache/real_time"}});
}
