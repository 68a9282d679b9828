// Cancelling a call under way with a std::stop_token: the transfer is aborted and the server sees
// its connection closed.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <qipg/Client.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "e2e/client/E2eSupport.h"
#include "unit/client/CaptureServer.h"

namespace qipg_e2e {
namespace {

// A plain-HTTP server on 127.0.0.1 that takes one connection, reads until the request's blank
// line, never answers, and reports when the client closes the connection (a read of 0 bytes).
class SilentServer {
 public:
  SilentServer() : listener_(qipg_test::loopbackListener(port_)) {
    thread_ = std::thread([this] { serve(); });
  }
  ~SilentServer() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
  }
  std::string baseURL() const { return "http://127.0.0.1:" + std::to_string(port_) + "/ipg/"; }
  std::future<void>& requestArrived() { return arrived_; }
  std::future<void>& connectionClosed() { return closed_; }

 private:
  void serve() {
    const int fd = ::accept(listener_, nullptr, nullptr);
    if (fd < 0) return;
    std::string request;
    char buffer[4096];
    bool told = false;
    for (;;) {
      const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
      if (got <= 0) break;
      request.append(buffer, static_cast<std::size_t>(got));
      if (!told && request.find("\r\n\r\n") != std::string::npos) {
        told = true;
        arrivedPromise_.set_value();
      }
    }
    if (!told) arrivedPromise_.set_value();
    closedPromise_.set_value();
    ::close(fd);
  }

  int port_ = 0;
  int listener_ = -1;
  std::promise<void> arrivedPromise_, closedPromise_;
  std::future<void> arrived_ = arrivedPromise_.get_future(), closed_ = closedPromise_.get_future();
  std::thread thread_;
};

class ClientCancelTest : public qipg_test::ClientTest {};

TEST_F(ClientCancelTest, StopTokenAbortsTheTransferAndClosesTheConnection) {
  SilentServer server;
  qipg::ClientOptions options;
  options.gateway.testBaseURL = server.baseURL();
  options.merchantID = kMID;
  options.encryptionKey = kKey;
  auto made = qipg::Client::create(options);
  ASSERT_TRUE(made.ok()) << made.error().message;

  std::stop_source stop;
  auto pending = made.value()->refund({"ORDER1", "1", "1.00"}, stop.get_token());
  server.requestArrived().wait();
  stop.request_stop();
  const qipg::Result<qipg::PaymentResponse> answer = pending.get();
  ASSERT_FALSE(answer.ok());
  EXPECT_EQ(answer.error().kind, qipg::ErrorKind::Cancelled);
  EXPECT_EQ(answer.error().message,
            "the call was cancelled; it may still have taken effect at the gateway, so confirm "
            "with a status inquiry before retrying");
  EXPECT_TRUE(answer.error().outcomeUnknown);
  server.connectionClosed().wait();  // returns only once the client has closed its connection
}

}  // namespace
}  // namespace qipg_e2e
