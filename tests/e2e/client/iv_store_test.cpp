// The envelope IV when the defaults file cannot be used, and when another process shares it:
// every call of this process stays sealed with the IV this process stored.
#include <fcntl.h>
#include <linux/capability.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "e2e_support.h"

namespace qipg_e2e {
namespace {

using qipg::Text;

// Takes from the calling thread only the power to write whatever a file's mode says, so that a
// read-only file or directory is read-only to this test also when it runs as root.
class ModesBindEvenRoot {
 public:
  ModesBindEvenRoot() {
    syscall(SYS_capget, &header_, saved_);
    __user_cap_data_struct reduced[2] = {saved_[0], saved_[1]};
    reduced[0].effective &= ~(1u << CAP_DAC_OVERRIDE);
    syscall(SYS_capset, &header_, reduced);
  }
  ~ModesBindEvenRoot() { syscall(SYS_capset, &header_, saved_); }

 private:
  __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct saved_[2]{};
};

std::string storedIV(const std::string& file) {
  sqlite3* db = nullptr;
  std::string iv;
  sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_exec(
      db, "SELECT value FROM defaults WHERE key = 'randomIV'",
      [](void* out, int, char** row, char**) {
        *static_cast<std::string*>(out) = row[0] != nullptr ? row[0] : "";
        return 0;
      },
      &iv, nullptr);
  sqlite3_close(db);
  return iv;
}

class IVStoreTest : public SandboxTest {
 protected:
  Text statusCodeOf(qipg::QuandrelIPG& ipg, const std::string& order) {
    Answers answers;
    ipg.getTransactionStatus(order, "", kMID, kKey, answers.delegate());
    return answers.waitFor(1).front().statusCode();
  }
};

TEST_F(IVStoreTest, UnusableDefaultsFileLeavesTheIVInMemoryAndCallsSealed) {
  ASSERT_EQ(pay("IV1", "1.00", 1).statusCode(), Text("S"));
  sqlite3* holder = nullptr;  // the other connection that keeps a store locked
  const std::string base = dir().string();
  const std::pair<std::string, std::function<void(const std::string&)>> rows[] = {
      {base + "/a-directory", [](const std::string& p) { mkdir(p.c_str(), 0700); }},
      {base + "/closed/defaults.sqlite3",
       [&](const std::string&) { mkdir((base + "/closed").c_str(), 0500); }},
      {base + "/read-only.sqlite3",
       [](const std::string& p) { close(open(p.c_str(), O_CREAT | O_WRONLY, 0400)); }},
      {base + "/locked.sqlite3",
       [&](const std::string& p) {
         sqlite3_open(p.c_str(), &holder);
         ASSERT_EQ(sqlite3_exec(holder, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
       }},
  };
  for (const auto& [path, prepare] : rows) {
    SCOPED_TRACE(path);
    prepare(path);
    qipg_test::ScopedEnv store("QIPG_DEFAULTS_FILE", path);
    std::shared_ptr<qipg::QuandrelIPG> ipg;
    {
      ModesBindEvenRoot readOnly;
      ipg = client();
    }
    ASSERT_NE(ipg, nullptr);
    EXPECT_FALSE(ipg->ivPersisted());
    const std::optional<qipg::URLRequest> request = ipg->getStandardPaymentRequest(
        "IV2", "1.00", "INR", "d", 0, "", "", "", "", "", "", "", "", "", "", kMID, kKey, nullptr);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->bodyText().find("merchantRequest=&"), std::string::npos);
    EXPECT_EQ(statusCodeOf(*ipg, "IV1"), Text("S"));
  }
  sqlite3_close(holder);
}

TEST_F(IVStoreTest, AnotherProcessOnTheSameFileDoesNotChangeThisProcessIV) {
  ASSERT_EQ(pay("IV3", "1.00", 1).statusCode(), Text("S"));
  auto ipg = client();
  EXPECT_TRUE(ipg->ivPersisted());
  // Another program on the same defaults file creates a production client and calls with it.
  const qipg_test::ProcessRun other =
      shell("QIPG_KEY=" + kKey + " " + qipg_test::quoted(qipg_test::ipgProgram().string()) +
            " status --env production --order IV3 --ref '' --mid " + kMID + " --base-url " +
            qipg_test::quoted(sandbox().baseURL()) + " --ca-file " +
            qipg_test::quoted(sandbox().caFile()));
  EXPECT_NE(other.out.find("statusCode: F\n"), std::string::npos) << other.out << other.err;
  EXPECT_EQ(storedIV((dir() / "defaults.sqlite3").string()), "d2071f8be64c395a");
  EXPECT_EQ(statusCodeOf(*ipg, "IV3"), Text("S"));
}

}  // namespace
}  // namespace qipg_e2e
