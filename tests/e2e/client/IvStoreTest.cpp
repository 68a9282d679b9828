// The envelope IV when the defaults file cannot be used, and when another process shares it:
// every call of this process stays sealed with the IV this process stored.
#include <fcntl.h>
#include <linux/capability.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include "e2e/client/E2eSupport.h"

namespace qipg_e2e {
namespace {

using qipg::Text;

// Takes from the calling thread only the power to write whatever a file's mode says, so that a
// read-only file or directory is read-only to this test also when it runs as root.
struct ModesBindEvenRoot {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct saved[2]{}, reduced[2]{};
  ModesBindEvenRoot() {
    syscall(SYS_capget, &header, saved);
    std::copy(saved, saved + 2, reduced);
    reduced[0].effective &= ~(1u << CAP_DAC_OVERRIDE);
    syscall(SYS_capset, &header, reduced);
  }
  ~ModesBindEvenRoot() { syscall(SYS_capset, &header, saved); }
};

Text statusCodeOf(qipg::QuandrelIPG& ipg, const std::string& order) {
  Answers answers;
  ipg.getTransactionStatus(order, "", kMID, kKey, answers.delegate());
  return answers.waitFor(1).front().statusCode();
}

using IVStoreTest = SandboxTest;

TEST_F(IVStoreTest, UnusableDefaultsFileLeavesTheIVInMemoryAndCallsSealed) {
  ASSERT_EQ(pay("IV1", "1.00", 1).statusCode(), Text("S"));
  // A directory, an unwritable place, a read-only empty file, a store another connection locks.
  const std::string base = dir().string() + "/";
  mkdir((base + "a-directory").c_str(), 0700);
  mkdir((base + "closed").c_str(), 0500);
  close(open((base + "read-only").c_str(), O_CREAT | O_WRONLY, 0400));
  sqlite3* holder = nullptr;
  sqlite3_open((base + "locked").c_str(), &holder);
  ASSERT_EQ(sqlite3_exec(holder, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  for (const char* name : {"a-directory", "closed/defaults.sqlite3", "read-only", "locked"}) {
    SCOPED_TRACE(name);
    qipg_test::ScopedEnv store("QIPG_DEFAULTS_FILE", base + name);
    std::shared_ptr<qipg::QuandrelIPG> ipg;
    {
      ModesBindEvenRoot readOnly;
      ipg = client();
      ASSERT_NE(ipg, nullptr);
      EXPECT_FALSE(ipg->ivPersisted());
    }
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
  // Another program on the same defaults file creates a production client (its call fails:
  // the sandbox is a test gateway), storing the production IV in the file.
  const qipg_test::ProcessRun other =
      shell("QIPG_KEY=" + kKey + " " + qipg_test::quoted(qipg_test::ipgProgram().string()) +
            " status --env production --order IV3 --ref '' --mid " + kMID + " --base-url " +
            qipg_test::quoted(sandbox().baseURL()) + " --ca-file " +
            qipg_test::quoted(sandbox().caFile()));
  EXPECT_NE(other.err.find("Unreadable"), std::string::npos) << other.out << other.err;
  EXPECT_FALSE(ipg->ivPersisted());  // the file holds the other's IV now
  EXPECT_EQ(statusCodeOf(*ipg, "IV3"), Text("S"));
}

}  // namespace
}  // namespace qipg_e2e
