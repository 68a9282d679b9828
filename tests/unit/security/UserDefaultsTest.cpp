#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "TempStore.h"
#include "qipg/CommonUtilities.h"
#include "security/UserDefaults.h"

namespace qipg {
namespace {

using internal::UserDefaults;

UserDefaults::Options at(const std::string& path, int waitMs = 3000) { return {path, waitMs}; }

unsigned mode(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

// A second connection to a store's file, closed on scope exit.
struct Db {
  explicit Db(const std::string& file) { sqlite3_open(file.c_str(), &db); }
  ~Db() { sqlite3_close(db); }
  int exec(const char* statement) { return sqlite3_exec(db, statement, nullptr, nullptr, nullptr); }
  sqlite3* db = nullptr;
};

TEST(UserDefaults, PersistsAndOtherConnectionsSeeWritesAtOnce) {
  testing::TempDir dir;
  const std::string file = dir.file("defaults.sqlite3");
  const std::string nul("n\0l", 3);
  ASSERT_TRUE(UserDefaults(at(file)).setString(nul, nul));
  UserDefaults reader(at(file)), writer(at(file));
  EXPECT_EQ(reader.stringForKey(nul), nul);
  EXPECT_EQ(reader.stringForKey("iv"), std::nullopt);  // remembered as absent
  for (const char* value : {"one", "two", ""}) {
    ASSERT_TRUE(writer.setString("iv", value));
    EXPECT_EQ(reader.stringForKey("iv"), value);
  }
  EXPECT_TRUE(writer.removeObjectForKey("iv"));
  EXPECT_EQ(reader.stringForKey("iv"), std::nullopt);
  // What a store wrote (or removed) is what it reads from then on, whatever the file says.
  EXPECT_EQ(Db(file).exec("INSERT INTO defaults VALUES('iv', 'theirs')"), SQLITE_OK);
  EXPECT_EQ(reader.stringForKey("iv"), "theirs");
  EXPECT_EQ(writer.stringForKey("iv"), std::nullopt);
  EXPECT_FALSE(writer.hasValueForKey("iv"));
  EXPECT_EQ(Db(file).exec("INSERT INTO defaults VALUES('number', 42)"), SQLITE_OK);
  EXPECT_EQ(reader.stringForKey("number"), std::nullopt);  // not a text
  EXPECT_TRUE(reader.hasValueForKey("number"));
}

// Two processes writing through their own connections beside this one's standard store.
TEST(UserDefaults, ProcessesWritingAtOnceLoseNothing) {
  testing::TempStore temp;
  const auto key = [](int writer, int i) {
    return std::to_string(writer) + "-" + std::to_string(i);
  };
  pid_t children[2];
  for (int p = 0; p < 2; ++p) {
    if ((children[p] = fork()) == 0) {
      UserDefaults store(at(temp.file, 60000));  // under load a writer may be starved for long
      bool ok = true;
      for (int i = 0; i < 40; ++i) ok = store.setString(key(p, i), "v") && ok;
      _exit(ok ? 0 : 1);
    }
  }
  for (int i = 0; i < 40; ++i) UserDefaults::standard().setString(key(2, i), "v");
  for (pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  for (int w = 0; w < 3; ++w) {
    for (int i = 0; i < 40; ++i) EXPECT_EQ(UserDefaults::standard().stringForKey(key(w, i)), "v");
  }
}

TEST(UserDefaults, WhereAndWithWhatMode) {
  testing::TempDir dir;
  testing::ScopedEnv noFile("QIPG_DEFAULTS_FILE", std::nullopt);
  testing::ScopedEnv home("HOME", dir.path());
  const std::string tail = "/qipg/test_security/defaults.sqlite3";
  testing::ScopedEnv noXdg("XDG_CONFIG_HOME", std::nullopt);
  EXPECT_EQ(UserDefaults::resolvePath(), dir.path() + "/.config" + tail);
  testing::ScopedEnv xdg("XDG_CONFIG_HOME", dir.file("config"));
  EXPECT_EQ(UserDefaults::resolvePath(), dir.file("config") + tail);
  for (const mode_t mask : {mode_t{0}, mode_t{0277}}) {
    const std::string sub = dir.file("x" + std::to_string(mask));
    testing::ScopedEnv file("QIPG_DEFAULTS_FILE", sub + "/a/defaults.sqlite3");
    const mode_t old = umask(mask);
    EXPECT_TRUE(UserDefaults::standard().setString("k", "v"));
    umask(old);
    EXPECT_EQ(mode(sub + "/a/defaults.sqlite3"), 0600u) << mask;
    EXPECT_EQ(mode(sub), 0700u);
    EXPECT_EQ(mode(sub + "/a"), 0700u);
  }
}

TEST(UserDefaults, DamagedFilesAreSetAsideAndRecreated) {
  for (const bool wholeFile : {true, false}) {
    testing::TempDir dir;
    const std::string file = dir.file("defaults.sqlite3");
    if (!wholeFile) UserDefaults(at(file)).setString("k", "v");
    std::fstream f(file, std::ios::binary | std::ios::in | std::ios::out |
                             (wholeFile ? std::ios::trunc : std::ios::openmode()));
    f.seekp(wholeFile ? 0 : 4096);  // the header, or the table's page
    f << std::string(4096, '\xFF');
    f.close();
    UserDefaults store(at(file));
    EXPECT_EQ(store.stringForKey("k"), std::nullopt);
    EXPECT_TRUE(store.setString("k", "fresh"));
    EXPECT_EQ(UserDefaults(at(file)).stringForKey("k"), "fresh");
    int asides = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
      asides += entry.path().string().find(".corrupt-") != std::string::npos;
    EXPECT_EQ(asides, 1) << wholeFile;
  }
}

TEST(UserDefaults, UnusableStoresKeepWhatThisProcessWroteInMemory) {
  testing::TempDir dir;
  std::ofstream(dir.file("plain-file")) << "x";
  {
    testing::ScopedEnv env("QIPG_DEFAULTS_FILE", dir.file("plain-file/defaults.sqlite3"));
    EXPECT_FALSE(UserDefaults::standard().setString("k", "v"));
    EXPECT_FALSE(UserDefaults::standard().synchronize());
    EXPECT_TRUE(UserDefaults::standard().heldInMemoryOnly("k"));
  }
  // Locked by another connection: a read of the file gives up after the busy timeout; a write
  // is held in memory, and the next read writes it through once the lock is gone.
  const std::string file = dir.file("defaults.sqlite3");
  UserDefaults(at(file)).setString("k", "v");
  UserDefaults waiting(at(file, 50));
  {
    Db holder(file);
    ASSERT_EQ(holder.exec("BEGIN EXCLUSIVE"), SQLITE_OK);
    EXPECT_EQ(waiting.stringForKey("k"), std::nullopt);
    EXPECT_FALSE(waiting.setString("k", "w"));
    EXPECT_EQ(waiting.stringForKey("k"), "w");
    EXPECT_FALSE(waiting.synchronize());
  }
  EXPECT_TRUE(waiting.heldInMemoryOnly("k"));
  EXPECT_EQ(UserDefaults(at(file)).stringForKey("k"), "v");
  EXPECT_EQ(waiting.stringForKey("k"), "w");
  EXPECT_FALSE(waiting.heldInMemoryOnly("k"));
  EXPECT_TRUE(waiting.fileHolds("k"));
  // Another connection writes the key since: the file no longer holds this store's value,
  // and this store does not write it back over theirs.
  UserDefaults(at(file)).setString("k", "theirs");
  EXPECT_FALSE(waiting.fileHolds("k"));
  EXPECT_EQ(waiting.stringForKey("k"), "w");
  EXPECT_EQ(UserDefaults(at(file)).stringForKey("k"), "theirs");
}

TEST(IVStore, LastStoredWinsAndEmptyKeyReadsNothing) {
  testing::TempStore temp;
  EXPECT_EQ(CommonUtilities::getRandomIVforKey("randomIV"), std::nullopt);
  CommonUtilities::SetRandomIV("4e9a1c07b3d58f26", "randomIV");
  CommonUtilities::SetRandomIV("d2071f8be64c395a", "randomIV");
  EXPECT_EQ(CommonUtilities::getRandomIVforKey("randomIV"), "d2071f8be64c395a");
  CommonUtilities::SetRandomIV("under empty key", "");
  EXPECT_EQ(UserDefaults::standard().stringForKey(""), "under empty key");
  EXPECT_EQ(CommonUtilities::getRandomIVforKey(""), std::nullopt);
  EXPECT_EQ(CommonUtilities::getRandomIVforKey(std::nullopt), std::nullopt);
}

}  // namespace
}  // namespace qipg
