// The Qt window keeps Chromium's and Qt WebEngine's own logging off the merchant's terminal:
// a certificate that only our trusted CA vouches for is checked without a dump on stderr.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <QLoggingCategory>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "Sandbox.h"
#include "Toolkit.h"
#include "qipg/QuandrelIPG.h"

namespace qipg {
namespace {

// Whatever the process writes on its stderr (fd 2, every thread) while this lives.
class CapturedStderr {
 public:
  explicit CapturedStderr(std::string path) : path_(std::move(path)) {
    std::fflush(stderr);
    saved_ = dup(2);
    const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    dup2(fd, 2);
    close(fd);
  }
  ~CapturedStderr() { text(); }
  std::string text() {
    if (saved_ >= 0) {
      std::fflush(stderr);
      dup2(saved_, 2);
      close(saved_);
      saved_ = -1;
    }
    std::ifstream in(path_);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

 private:
  std::string path_;
  int saved_ = -1;
};

TEST(QtEngineLog, ACertificateOurCAVouchesForIsCheckedWithoutADump) {
  const std::string tmp = std::getenv("QIPG_E2E_TMP");
  sandbox::Options sandboxOptions;
  sandboxOptions.dataDir = tmp + "/quiet";
  std::string error;
  auto gateway = sandbox::Sandbox::start(sandboxOptions, &error);
  ASSERT_NE(gateway, nullptr) << error;
  GatewayConfig config;
  config.testBaseURL = gateway->baseURL();
  config.caFile = gateway->caFile();
  auto client = QuandrelIPG::create(IPGEnvironmentTest, config);
  ASSERT_NE(client, nullptr);
  auto request = client->getStandardPaymentRequest(
      "QTQUIET1", "10.50", "INR", "Books", 1, "", "", "", "", "", "", "", "", "", "",
      sandbox::kTestMerchantId, sandbox::kTestMerchantKey, nullptr);
  ASSERT_TRUE(request.has_value());

  CapturedStderr captured(tmp + "/stderr.txt");
  bool loaded = false;
  PaymentWindowOptions options;
  options.client = client;
  options.trustedCAFile = gateway->caFile();
  options.trustedHost = "127.0.0.1";
  options.onPageLoad = [&](PageLoadEvent event, const std::string& uri) {
    loaded |= event == PageLoadEvent::Finished && uri == gateway->baseURL() + "doMEPayRequest";
  };
  auto window = toolkit::present(*request, makePaymentControllerDelegate(nullptr), options, &error);
  ASSERT_NE(window, nullptr) << error;
  const bool formShown = toolkit::spinUntil([&] { return loaded; });
  window->pressCancel();
  toolkit::spinUntil([&] { return !window->isOpen(); });
  const std::string written = captured.text();
  ASSERT_TRUE(formShown);
  EXPECT_EQ(written.find("Certificate i="), std::string::npos) << written;
  EXPECT_EQ(written.find(":ERROR:"), std::string::npos) << written;
  EXPECT_FALSE(QLoggingCategory("qt.webenginecontext").isInfoEnabled());
}

}  // namespace
}  // namespace qipg
