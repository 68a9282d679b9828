// The sandbox as a server: refusals of unreadable management requests, faults for testing
// clients, files on disk, environments and the command line.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <thread>
#include <tuple>

#include "CommandLine.h"
#include "DataDir.h"
#include "GatewayCrypto.h"
#include "SandboxTestSupport.h"

namespace qipg::sandbox::testing {
namespace {

using Server = SandboxFixture;

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

TEST_F(Server, UnreadableManagementRequestsAreRefusedClearly) {
  const std::string status14 = kMid + "|ORD1|" + std::string(11, '|');
  const std::string sealed = encryptTextWithEncKey(status14, kKey);
  const struct {
    std::string endpoint, body;
    int httpStatus;
    std::string description;  // sealed answers: statusDescription; else the plain text
  } cases[] = {
      {"getTransactionStatus", managementBody(sealed, "mid", "NOBODY"), 400,
       "unknown merchant ID\n"},
      {"getTransactionStatus", managementBody(sealed, "MID"), 400, "missing form field mid\n"},
      {"doRefundRequest", managementBody(sealed, "mid"), 400, "missing form field MID\n"},
      {"getTransactionStatus", managementBody("bm90IGEgbWVzc2FnZQ==", "mid"), 200,
       "The request could not be decrypted with this merchant's key"},
      {"getTransactionStatus", managementBody(encryptTextWithEncKey(status14, "otherkey"), "mid"),
       200, "The request could not be decrypted with this merchant's key"},
      {"getTransactionStatus", "mid=" + kMid, 200, "Missing form field merchantReqStrT"},
      {"getTransactionStatus",
       managementBody(encryptTextWithEncKey(kMid + "|ORD1|" + std::string(10, '|'), kKey), "mid"),
       200, "Wrong message layout: expected 14 fields, got 13"},
      {"doCancelRequest",
       managementBody(encryptTextWithEncKey("OTHER|ORD1|1|-|-|-|-|-|-|-|-|-|-|-", kKey), "MID"),
       200, "The MID in the message does not match the form"},
  };
  for (const auto& c : cases) {
    const HttpAnswer answer = post(c.endpoint, c.body);
    EXPECT_EQ(answer.status, c.httpStatus) << c.description;
    if (c.httpStatus != 200) {
      EXPECT_EQ(answer.body, c.description);
      continue;
    }
    const Text plain = decryptTextWithDecryptionKey(answer.body, kKey);
    const PaymentResponse r = c.endpoint == "getTransactionStatus"
                                  ? CommonUtilities().getResponseFromString(plain)
                                  : CommonUtilities().getCancelOrRefundPaymentResponse(plain);
    EXPECT_EQ(r.statusCode(), "F") << c.description;
    EXPECT_EQ(r.statusDescription(), c.description);
  }
}

// What a client makes of each fault is the end-to-end tests' business.
TEST_F(Server, FaultsSpoilTheirEndpointOnlyAndStopReleasesAHeldRequest) {
  const std::string body =
      managementBody(encryptTextWithEncKey(kMid + "|O|" + std::string(11, '|'), kKey), "mid");
  const std::tuple<Fault, int, std::size_t, bool> cases[] = {
      // status, minimum size, UTF-8
      {Fault::kHttp500, 500, 1, true},
      {Fault::kGarbage, 200, 1, true},
      {Fault::kNotUtf8, 200, 1, false},
      {Fault::kHuge, 200, 5u * 1024 * 1024, true}};
  for (const auto& [fault, status, minimumSize, utf8] : cases) {
    sandbox_->setFault(Endpoint::kStatus, fault);
    const HttpAnswer answer = post("getTransactionStatus", body);
    EXPECT_EQ(answer.status, status);
    EXPECT_GE(answer.body.size(), minimumSize);
    EXPECT_EQ(internal::isUtf8(answer.body), utf8);
    EXPECT_EQ(cancelOrRefund("doRefundRequest", "O", "1", "1.00").statusDescription(),
              "Refund refused: transaction not found");
  }
  sandbox_->clearFaults();
  EXPECT_EQ(status("O").statusDescription(), "Transaction not found");

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
  struct stat own {};
  own.st_mode = S_IFREG | 0600;
  own.st_uid = ::geteuid();
  own.st_nlink = 1;
  auto with = [&](auto change) {
    struct stat st = own;
    change(st);
    return st;
  };
  const struct {
    struct stat st;
    mode_t mask;
    std::optional<std::string> reason;
  } rows[] = {
      {own, 077, std::nullopt},
      {with([](struct stat& s) { s.st_uid += 1; }), 077, "belongs to another user"},
      {with([](struct stat& s) { s.st_mode = S_IFREG | 0644; }), 077,
       "is readable by others (mode 0644)"},
      {with([](struct stat& s) { s.st_mode = S_IFREG | 0644; }), 022, std::nullopt},
      {with([](struct stat& s) { s.st_mode = S_IFREG | 0620; }), 022,
       "is writable by others (mode 0620)"},
      {with([](struct stat& s) { s.st_mode = S_IFLNK | 0777; }), 0, "is a symbolic link"},
      {with([](struct stat& s) { s.st_mode = S_IFIFO | 0600; }), 0, "is not a regular file"},
      {with([](struct stat& s) { s.st_nlink = 2; }), 0, "has 2 links"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(untrustedFileReason(row.st, ::geteuid(), row.mask, true), row.reason);
  }

  TempDir dir;
  const std::string running = dir.path() + "/running";
  const struct {
    std::function<void()> change;
    std::optional<std::string> url;
    std::string warning;
  } files[] = {
      {[] {}, "https://127.0.0.1:9/ipg/", ""},
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

// Peers that open a TLS handshake and then trickle it byte by byte, each byte within the read
// time-out: 200 of them neither keep a real call waiting nor hold a connection for longer than
// the limit for reading a request.
TEST_F(Server, SlowPeersDoNotStarveARealCall) {
  std::vector<int> peers;
  for (int i = 0; i < 200; ++i) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(sandbox_->port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const unsigned char recordHeader[] = {0x16, 0x03, 0x01, 0x40, 0x00};  // 16 KiB to come
    ::send(fd, recordHeader, sizeof recordHeader, MSG_NOSIGNAL);
    peers.push_back(fd);
  }
  std::atomic<bool> done{false};
  std::thread trickle([&] {
    for (int tick = 0; !done; ++tick) {
      if (tick % 5 == 0) {
        for (int fd : peers) ::send(fd, "", 1, MSG_NOSIGNAL);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  });
  EXPECT_EQ(status("NONE").statusDescription(), "Transaction not found");
  // Still trickling, the first peer is let go (bounded so that a regression fails, not hangs).
  bool cut = false;
  for (int waited = 0; !cut && waited < 300; ++waited) {
    pollfd polled{peers.front(), POLLIN, 0};
    char byte = 0;
    cut = ::poll(&polled, 1, 100) == 1 && ::recv(peers.front(), &byte, 1, MSG_DONTWAIT) <= 0;
  }
  EXPECT_TRUE(cut);
  done = true;
  trickle.join();
  for (int fd : peers) ::close(fd);
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

TEST(SandboxStart, RefusesBadOptions) {
  TempDir dir;
  struct Case {
    Options options;
    std::string error;
  };
  auto with = [&](auto change) {
    Options o;
    o.dataDir = dir.path() + "/d";
    change(o);
    return o;
  };
  const Case cases[] = {
      {with([](Options& o) { o.environment = "staging"; }),
       "unknown environment \"staging\" (test or production)"},
      {with([](Options& o) { o.dataDir.clear(); }), "no data directory given"},
      {with([](Options& o) {
         o.merchants = {{"M1", "key"}, {"BAD-MID", "key"}};
       }),
       "bad merchant: MID of 1 to 15 and key of 1 to 32 ASCII letters and digits"},
      {with([](Options& o) {
         o.merchants = {{"M1", std::string(33, 'k')}};
       }),
       "bad merchant: MID of 1 to 15 and key of 1 to 32 ASCII letters and digits"},
      {with([](Options& o) { o.port = 70000; }), "port out of range: 0 to 65535"},
  };
  for (const Case& c : cases) {
    std::string error;
    EXPECT_EQ(Sandbox::start(c.options, &error), nullptr);
    EXPECT_EQ(error, c.error);
  }
  // A port in use.
  auto first = Sandbox::start(with([](Options&) {}), nullptr);
  ASSERT_NE(first, nullptr);
  std::string error;
  EXPECT_EQ(Sandbox::start(with([&](Options& o) { o.port = first->port(); }), &error), nullptr);
  EXPECT_EQ(error, "cannot listen on 127.0.0.1:" + std::to_string(first->port()));
}

TEST(SandboxCommandLine, ExplainsBadValues) {
  const struct {
    std::vector<std::string> args;
    int exitCode;
    std::string firstLine;
  } cases[] = {
      {{"--port", "x"}, 2, "--port: Value x not in range 0 to 65535"},
      {{"--port=65536"}, 2, "--port: Value 65536 not in range 0 to 65535"},
      {{"--merchant", "NOKEY"}, 2, "--merchant: takes MID:KEY"},
      {{"--data-dir"}, 2, "--data-dir: 1 required TEXT missing"},
      {{"--fault", "status"}, 2, "ipg-sandbox: --fault: takes ENDPOINT=KIND"},
      {{"--fault", "status=slow"},
       2,
       "ipg-sandbox: --fault: unknown fault \"slow\" (none, http500, garbage, not-utf8, huge, "
       "hang, delay=MS, close or wrong-key)"},
      {{"--fault", "login=hang"},
       2,
       "ipg-sandbox: --fault: unknown endpoint \"login\" (status, cancel, refund, pay, pay-card "
       "or invoice)"},
      {{"fault", "status", "delay=9999999"},
       2,
       "ipg-sandbox fault: delay=MS takes a number of milliseconds from 0 to 600000"},
  };
  for (const auto& c : cases) {
    CLI::App app;
    std::ostringstream out, err;
    const auto run = defineCommandLine(app, out, err, "ipg-sandbox");
    std::vector<std::string> reversed(c.args.rbegin(), c.args.rend());
    int code = 0;
    try {
      app.parse(reversed);
      code = run();
    } catch (const CLI::ParseError& e) {
      err << e.what() << "\n";
      code = 2;
    }
    EXPECT_EQ(code, c.exitCode);
    EXPECT_EQ(err.str().substr(0, err.str().find('\n')), c.firstLine);
  }
}

}  // namespace
}  // namespace qipg::sandbox::testing
