// The sandbox as a server: who may set faults, a held request at stop, its files on disk and
// what it trusts there, and the production environment. What clients make of its answers is
// the end-to-end tests' business.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <thread>

#include "DataDir.h"
#include "GatewayCrypto.h"
#include "SandboxTestSupport.h"

namespace qipg::sandbox::testing {
namespace {

using Server = SandboxFixture;
using qipg_test::readFile;

TEST_F(Server, FaultsAreSetByTheTokenHolderOnlyAndStopReleasesAHeldRequest) {
  const std::string body =
      managementBody(encryptTextWithEncKey(kMid + "|O|" + std::string(11, '|'), kKey), "mid");
  // The admin endpoint sets faults for the holder of the data directory's token only.
  httplib::SSLClient admin("127.0.0.1", sandbox_->port());
  admin.set_ca_cert_path(sandbox_->caFile().c_str());
  const httplib::Params form = {{"endpoint", "status"}, {"kind", "http500"}};
  for (const std::string& token :
       std::vector<std::string>{"", "0123", readFile(adminTokenFile(sandbox_->dataDir()))}) {
    const auto res = admin.Post("/sandbox/fault",
                                {{"X-Sandbox-Token", token.substr(0, token.find('\n'))}}, form);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, token.size() > 4 ? 200 : 403);
  }
  EXPECT_EQ(post("getTransactionStatus", body).status, 500);
  sandbox_->clearFaults();

  sandbox_->setFault(Endpoint::kStatus, Fault::kHang);
  HttpAnswer answer;
  std::atomic<bool> done{false};
  std::thread client([&] {
    answer = post("getTransactionStatus", body);
    done = true;
  });
  while (sandbox_->heldRequests() == 0 && !done) std::this_thread::yield();
  EXPECT_FALSE(done) << "the request was answered instead of held";
  sandbox_->stop();
  sandbox_->stop();  // idempotent
  client.join();
  EXPECT_EQ(sandbox_->heldRequests(), 0u);
  EXPECT_NE(answer.status, 200);
}

TEST_F(Server, KeepsItsFilesOwnerOnlyAndReusesItsCertificate) {
  struct stat st {};
  ASSERT_EQ(::stat(sandbox_->dataDir().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  for (const char* name : {"ca.pem", "server-cert.pem", "server-key.pem", "sandbox.sqlite3"}) {
    ASSERT_EQ(::stat((sandbox_->dataDir() + "/" + name).c_str(), &st), 0) << name;
    EXPECT_EQ(st.st_mode & 0777, 0600u) << name;
  }
  const std::string ca = readFile(sandbox_->caFile());
  EXPECT_EQ(ca.rfind("-----BEGIN CERTIFICATE-----", 0), 0u);
  ASSERT_EQ(::chmod(sandbox_->dataDir().c_str(), 0777), 0);  // loosened by hand: tightened again
  restart();
  ASSERT_EQ(::stat(sandbox_->dataDir().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  EXPECT_EQ(readFile(sandbox_->caFile()), ca);
  // A damaged key makes a new certificate authority, which clients then trust instead.
  std::ofstream(sandbox_->dataDir() + "/server-key.pem") << "damaged";
  restart();
  EXPECT_NE(readFile(sandbox_->caFile()), ca);
  EXPECT_EQ(status("NONE").statusDescription(), "Transaction not found");
}

// Another user may plant links in a data directory before its owner starts the sandbox: what
// can be made anew is replaced, never written through; a database is refused; so is a
// directory that is a link or not a directory.
TEST(SandboxFiles, PlantedFilesAreReplacedOrRefused) {
  TempDir dir;
  const std::string data = dir.path() + "/data", victim = dir.path() + "/victim";
  auto link = [&](const char* name) { ::symlink(victim.c_str(), (data + "/" + name).c_str()); };
  auto hardLink = [&](const char* name) { ::link(victim.c_str(), (data + "/" + name).c_str()); };
  const struct {
    const char* name;
    std::function<void()> plant;
    std::string error;  // empty: the sandbox starts and the planted names are its own files
  } rows[] = {
      {"token and certificates as links",
       [&] {
         link("admin-token");
         link("server-key.pem");
         hardLink("ca.pem");
         link("server-cert.pem.tmp");
       },
       ""},
      {"running as a FIFO and a hard link",
       [&] {
         ::mkfifo((data + "/running").c_str(), 0600);
         hardLink("admin-token.tmp");
       },
       ""},
      {"database as a link", [&] { link("sandbox.sqlite3"); },
       "the database file " + data + "/sandbox.sqlite3 is a symbolic link; refusing it"},
      {"journal as a hard link", [&] { hardLink("sandbox.sqlite3-wal"); },
       "the database file " + data + "/sandbox.sqlite3-wal has 2 links; refusing it"},
      {"directory as a link",
       [&] {
         std::filesystem::remove_all(data);
         std::filesystem::create_directory(dir.path() + "/elsewhere");
         ::symlink((dir.path() + "/elsewhere").c_str(), data.c_str());
       },
       "the data directory " + data + " is a symbolic link; refusing it"},
      {"directory as a file",
       [&] {
         std::filesystem::remove_all(data);
         std::ofstream(data) << "x";
       },
       "the data directory " + data + " is not a directory; refusing it"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove_all(data);
    std::filesystem::create_directory(data);
    std::ofstream(victim) << "the victim's own";
    row.plant();
    Options options;
    options.dataDir = data;
    std::string error;
    auto sandbox = Sandbox::start(options, &error);
    EXPECT_EQ(error, row.error);
    EXPECT_EQ(sandbox != nullptr, row.error.empty());
    EXPECT_EQ(readFile(victim), "the victim's own");
    if (!sandbox) continue;
    for (const char* name : {"admin-token", "ca.pem", "server-key.pem", "server-cert.pem"}) {
      struct stat st {};
      ASSERT_EQ(::lstat((data + "/" + name).c_str(), &st), 0) << name;
      EXPECT_EQ(untrustedFileReason(st, ::geteuid(), 077, true), std::nullopt) << name;
    }
  }
}

// What ipg takes from a data directory, and the reasons it gives for what it ignores.
TEST(SandboxFiles, TrustsOnlyTheUsersOwnUnchangeableFiles) {
  struct stat others {};  // the one case a test cannot make on disk
  others.st_mode = S_IFREG | 0600;
  others.st_uid = ::geteuid() + 1;
  others.st_nlink = 1;
  EXPECT_EQ(untrustedFileReason(others, ::geteuid(), 077, true), "belongs to another user");
  TempDir dir;
  const std::string running = dir.path() + "/running";
  const struct {
    std::function<void()> change;
    std::optional<std::string> url;
    std::string warning;
  } files[] = {
      {[] {}, "https://127.0.0.1:9/ipg/", ""},
      {[&] { ::chmod(running.c_str(), 0644); }, "https://127.0.0.1:9/ipg/", ""},
      {[&] { ::chmod(running.c_str(), 0620); }, std::nullopt,
       "ignoring " + running + ": it is writable by others (mode 0620)"},
      {[&] {
         std::filesystem::rename(running, running + ".real");
         ::symlink((running + ".real").c_str(), running.c_str());
       },
       std::nullopt, "ignoring " + running + ": it is a symbolic link"},
      {[&] { ::chmod(dir.path().c_str(), 0777); }, std::nullopt,
       "ignoring the sandbox data directory " + dir.path() +
           ": it is writable by others (mode 0777)"},
  };
  for (const auto& file : files) {
    ::chmod(dir.path().c_str(), 0700);
    std::filesystem::remove(running);
    ASSERT_TRUE(internal::replaceFile(running, "https://127.0.0.1:9/ipg/\n"));
    file.change();
    std::string warning;
    EXPECT_EQ(runningBaseURL(dir.path(), &warning), file.url);
    EXPECT_EQ(warning, file.warning);
  }
}

TEST_F(Server, ProductionUsesTheProductionIVAndExtraMerchants) {
  Options options;
  options.environment = "production";
  options.merchants = {{"SHOP2", "k2"}};
  restart(options);
  const std::string message = "SHOP2|O1|" + std::string(11, '|');
  const std::string sealed = internal::sealEnvelope(message, "k2", internal::kProductionIV);
  const HttpAnswer answer = post("getTransactionStatus", managementBody(sealed, "mid", "SHOP2"));
  ASSERT_EQ(answer.status, 200);
  EXPECT_EQ(internal::openEnvelope(answer.body, "k2", internal::kProductionIV),
            "|O1|||||||||F|Transaction not found||||||||||");
}

}  // namespace
}  // namespace qipg::sandbox::testing
