// What a busy till does to the transport: a refund whose kept-alive connection dies after the
// gateway read it is never sent again (over http and https, through both layers), and
// callbacks that wait on the same client's futures all finish.
#include <openssl/ssl.h>
#include <qipg/Client.h>

#include <atomic>
#include <future>

#include "Certificates.h"
#include "e2e/client/E2eSupport.h"
#include "unit/client/CaptureServer.h"

namespace qipg_e2e {
namespace {

using qipg::Client;
using qipg::ErrorKind;
using qipg::Result;
using Answer = Result<qipg::PaymentResponse>;

// A peer on 127.0.0.1 (plain or TLS) that keeps connections alive and answers every request
// with a short text, except the `dropAt`-th, which it reads and then drops without a byte of
// answer. Counts the requests that reach it, on any connection.
class DroppingPeer {
 public:
  DroppingPeer(int dropAt, const qipg::sandbox::internal::CertificateFiles* tls) : dropAt_(dropAt) {
    if (tls != nullptr) {
      ctx_ = SSL_CTX_new(TLS_server_method());
      if (SSL_CTX_use_certificate_chain_file(ctx_, tls->certFile.c_str()) != 1 ||
          SSL_CTX_use_PrivateKey_file(ctx_, tls->keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
        std::abort();
      }
    }
    listener_ = qipg_test::loopbackListener(port_);
    thread_ = std::thread([this] { serve(); });
  }
  ~DroppingPeer() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
    if (ctx_ != nullptr) SSL_CTX_free(ctx_);
  }

  std::string baseURL() const {
    return std::string(ctx_ != nullptr ? "https" : "http") +
           "://127.0.0.1:" + std::to_string(port_) + "/ipg/";
  }
  int requests() const { return requests_; }

 private:
  void serve() {
    for (;;) {
      const int fd = ::accept(listener_, nullptr, nullptr);
      if (fd < 0) return;
      SSL* ssl = nullptr;
      if (ctx_ != nullptr) {
        ssl = SSL_new(ctx_);
        SSL_set_fd(ssl, fd);
        if (SSL_accept(ssl) != 1) {
          SSL_free(ssl);
          ::close(fd);
          continue;
        }
      }
      auto receive = [&](char* buffer, int size) {
        return ssl != nullptr ? SSL_read(ssl, buffer, size)
                              : static_cast<int>(::recv(fd, buffer, size, 0));
      };
      std::string pending;
      for (bool open = true; open;) {
        const std::size_t head = pending.find("\r\n\r\n");
        const std::size_t length = pending.find("\r\nContent-Length: ");
        const std::size_t total =  // npos until the head is whole
            head == std::string::npos
                ? head
                : head + 4 + (length < head ? std::stoul(pending.substr(length + 18)) : 0);
        if (pending.size() < total) {
          char buffer[4096];
          const int got = receive(buffer, sizeof buffer);
          if (got <= 0) break;
          pending.append(buffer, static_cast<std::size_t>(got));
          continue;
        }
        pending.erase(0, total);
        if (++requests_ == dropAt_) break;  // read, then gone without an answer
        const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
        open = ssl != nullptr ? SSL_write(ssl, answer.data(), static_cast<int>(answer.size())) > 0
                              : ::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL) > 0;
      }
      if (ssl != nullptr) SSL_free(ssl);  // no close_notify: the connection just dies
      ::close(fd);
    }
  }

  const int dropAt_;
  SSL_CTX* ctx_ = nullptr;
  int listener_ = -1;
  int port_ = 0;
  std::atomic<int> requests_{0};
  std::thread thread_;
};

class SendOnceTest : public SandboxTest {};

TEST_F(SendOnceTest, ARefundWhoseConnectionDiesAfterItWasReadIsNotSentAgain) {
  qipg::sandbox::internal::CertificateFiles tls;
  std::string error;
  std::filesystem::create_directory(dir() / "peer");
  ASSERT_TRUE(qipg::sandbox::internal::ensureCertificates((dir() / "peer").string(), "127.0.0.1",
                                                          &tls, &error))
      << error;
  for (const bool https : {false, true}) {
    for (const bool idiomatic : {false, true}) {
      SCOPED_TRACE(std::string(https ? "https" : "http") +
                   (idiomatic ? " Client" : " QuandrelIPG"));
      DroppingPeer peer(2, https ? &tls : nullptr);  // the status is answered, the refund dropped
      qipg::GatewayConfig gateway;
      gateway.testBaseURL = peer.baseURL();
      if (https) gateway.caFile = tls.caFile;
      if (idiomatic) {
        qipg::ClientOptions options;
        options.gateway = gateway;
        options.merchantID = kMID;
        options.encryptionKey = kKey;
        auto client = Client::create(options).value();
        static_cast<void>(client->status({"ORDER1", "1"}).get());  // opens the connection
        const Answer refund = client->refund({"ORDER1", "1", "1.00"}).get();
        ASSERT_FALSE(refund.ok());
        EXPECT_TRUE(refund.error().outcomeUnknown) << refund.error().message;
      } else {
        auto ipg = client(gateway);
        Answers answers;
        ipg->getTransactionStatus("ORDER1", "1", kMID, kKey, answers.delegate());
        answers.waitFor(1);
        ipg->refundTransaction("ORDER1", "1", "1.00", kMID, kKey, answers.delegate());
        EXPECT_EQ(answers.waitFor(2).back(), failedRecord());
      }
      EXPECT_EQ(peer.requests(), 2);
    }
  }
}

// The docs say to confirm an unclear result with a status inquiry; a callback that does so
// through the same client and waits for the answer must not wait for a completion thread.
TEST_F(SendOnceTest, CallbacksMayWaitOnTheSameClientsFutures) {
  qipg::ClientOptions options;
  options.gateway = config();
  options.merchantID = kMID;
  options.encryptionKey = kKey;
  auto client = Client::create(options).value();
  for (const int callbacks : {4, 16}) {
    SCOPED_TRACE(callbacks);
    std::vector<std::promise<bool>> confirmed(callbacks);
    for (auto& promise : confirmed) {
      client->status({"ORDER1", "1"}, [&client, &promise](Answer) {
        auto again = client->status({"ORDER1", "1"});
        // Bounded, so that a regression fails here instead of hanging the run.
        promise.set_value(again.wait_for(std::chrono::seconds(30)) == std::future_status::ready);
      });
    }
    for (auto& promise : confirmed) EXPECT_TRUE(promise.get_future().get());
  }
}

}  // namespace
}  // namespace qipg_e2e
