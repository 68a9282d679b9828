// The standalone ipg-sandbox program (built beside the benchmark) as a host meets it: its own
// process, started on a free port in a private temporary directory that also holds the
// user-defaults store (QIPG_DEFAULTS_FILE). Stopped and removed on destruction.
#pragma once

#include <nlohmann/json.hpp>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

extern char** environ;

namespace qipg_bench {

class StandaloneSandbox {
 public:
  StandaloneSandbox() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qipg-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    dir_ = pattern;
    setenv("QIPG_DEFAULTS_FILE", (dir_ / "defaults.sqlite3").c_str(), 1);
    const std::string program =
        (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "ipg-sandbox").string();
    const std::string dataDir = (dir_ / "sandbox").string();
    int out[2];
    if (pipe(out) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    // Its request log would drown the figures.
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const char* args[] = {program.c_str(), "--port", "0", "--data-dir", dataDir.c_str(),
                          "--ready-json", nullptr};
    if (posix_spawn(&pid_, program.c_str(), &actions, nullptr, const_cast<char**>(args),
                    environ) != 0) {
      std::fprintf(stderr, "cannot start %s\n", program.c_str());
      std::abort();
    }
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    std::string line;
    char c = 0;
    while (read(out[0], &c, 1) == 1 && c != '\n') line += c;
    close(out[0]);
    const auto ready = nlohmann::json::parse(line, nullptr, false);
    if (!ready.is_object()) std::abort();
    baseURL_ = ready.value("baseURL", "");
    caFile_ = ready.value("caFile", "");
  }

  ~StandaloneSandbox() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }

  StandaloneSandbox(const StandaloneSandbox&) = delete;
  StandaloneSandbox& operator=(const StandaloneSandbox&) = delete;

  const std::string& baseURL() const { return baseURL_; }
  const std::string& caFile() const { return caFile_; }

 private:
  std::filesystem::path dir_;
  pid_t pid_ = 0;
  std::string baseURL_;
  std::string caFile_;
};

}  // namespace qipg_bench
