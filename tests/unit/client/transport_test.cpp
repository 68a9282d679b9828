// The HTTP transport against a raw socket server that keeps the exact bytes on the wire: what
// a post sends, how answers of every kind come back, and that every completion runs exactly
// once, also when the transport is shut down with requests under way.
#include "client/Transport.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <mutex>
#include <thread>

#include "client_support.h"

namespace qipg_test {
namespace {

using qipg::Text;
using qipg::TransportError;
using qipg::URLRequest;
using qipg::internal::Transport;
using qipg::internal::TransportReply;

// Listens on 127.0.0.1 (ephemeral port) and serves one connection at a time: reads a request
// (head, then Content-Length bytes), keeps it, then sends `answer` and closes, or with an
// empty `answer` says nothing until stopped. Stopped and joined on scope exit.
class CaptureServer {
 public:
  explicit CaptureServer(std::string answer) : answer_(std::move(answer)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(listener_, 64) != 0 || ::pipe(stop_) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      std::abort();
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~CaptureServer() {
    (void)!::write(stop_[1], "x", 1);
    thread_.join();
    for (int fd : {listener_, stop_[0], stop_[1]}) ::close(fd);
    for (int fd : held_) ::close(fd);
  }

  static std::string answer(const std::string& body, int status = 200) {
    return "HTTP/1.1 " + std::to_string(status) +
           " X\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n\r\n" + body;
  }
  int port() const { return port_; }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/ipg/x"; }
  // Blocks until `count` requests have arrived and returns them all.
  std::vector<std::string> requests(std::size_t count) {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [&] { return requests_.size() >= count; });
    return requests_;
  }

 private:
  bool readable(int fd) {
    pollfd fds[2] = {{fd, POLLIN, 0}, {stop_[0], POLLIN, 0}};
    while (::poll(fds, 2, -1) < 0) {
    }
    return fds[1].revents == 0;
  }

  void serve() {
    while (readable(listener_)) {
      const int fd = ::accept(listener_, nullptr, nullptr);
      std::string request;
      std::size_t wanted = std::string::npos;
      char buffer[65536];
      while (request.size() < wanted && readable(fd)) {
        const ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0) break;
        request.append(buffer, static_cast<std::size_t>(got));
        const std::size_t head = request.find("\r\n\r\n");
        const std::size_t length = request.find("\r\nContent-Length: ");
        if (head != std::string::npos) {
          wanted = head + 4 + (length < head ? std::stoul(request.substr(length + 18)) : 0);
        }
      }
      {
        std::lock_guard lock(mutex_);
        requests_.push_back(request);
        arrived_.notify_all();
      }
      if (answer_.empty()) {
        held_.push_back(fd);
        continue;
      }
      for (std::size_t sent = 0; sent < answer_.size();) {
        const ssize_t n = ::send(fd, answer_.data() + sent, answer_.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) break;
        sent += static_cast<std::size_t>(n);
      }
      ::close(fd);
    }
  }

  std::string answer_;
  int listener_ = -1, stop_[2] = {-1, -1}, port_ = 0;
  std::vector<int> held_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

struct Outcome {
  Text answer;
  std::optional<TransportError> error;
};

// Posts `request` and waits for its completion.
Outcome postAndWait(Transport& transport, const URLRequest& request) {
  std::promise<Outcome> done;
  transport.post(request, [&done](const TransportReply& reply) {
    done.set_value({reply.answer, reply.error});
  });
  return done.get_future().get();
}

URLRequest bareRequest(const std::string& url, const std::string& body, double timeout = 0) {
  URLRequest request;
  request.url = url;
  request.httpMethod = "POST";
  request.httpBody.assign(body.begin(), body.end());
  request.setValueForHTTPHeaderField(std::to_string(body.size()), "Content-Length");
  request.timeoutInterval = timeout;
  return request;
}

// How many header lines of a raw request start with `prefix`.
int headerCount(const std::string& raw, const std::string& prefix) {
  const std::string head = raw.substr(0, raw.find("\r\n\r\n") + 2);
  int count = 0;
  for (std::size_t at = head.find("\r\n" + prefix); at != std::string::npos;
       at = head.find("\r\n" + prefix, at + 2)) {
    ++count;
  }
  return count;
}

class TransportTest : public ClientTest {};

TEST_F(TransportTest, PostsGoOutExactlyAsBuilt) {
  struct Row {
    const char* name;
    std::string body;
    bool managementPost;  // through sendPostRequestWithURL, else a request without Content-Type
  };
  const std::vector<Row> rows = {
      {"sealed form", "merchantReqStrT=q1w2%2Be3\r\nr4==&mid=M1&iosEnc=true", true},
      {"UTF-8 byte count", "merchantReqStrT=\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E&MID=M1", true},
      {"empty body", "", true},
      // Past 1 MiB libcurl would otherwise add "Expect: 100-continue".
      {"large body", std::string((1 << 20) + 10, 'b'), true},
      {"no Content-Type of its own", "merchantRequest=x&MID=M&iosEnc=true", false},
  };
  CaptureServer server(CaptureServer::answer("answer"));
  qipg::GatewayConfig config;
  config.testBaseURL = "http://127.0.0.1:" + std::to_string(server.port()) + "/ipg/";
  auto client = qipg::QuandrelIPG::create(qipg::IPGEnvironmentTest, config);
  auto transport = Transport::create(config);
  ASSERT_NE(client, nullptr);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    SCOPED_TRACE(row.name);
    Outcome outcome;
    if (row.managementPost) {
      std::promise<Outcome> done;
      client->sendPostRequestWithURL(server.url(), row.body, [&done](const Text& a, const auto& e) {
        done.set_value({a, e});
      });
      outcome = done.get_future().get();
    } else {
      outcome = postAndWait(*transport, bareRequest(server.url(), row.body));
    }
    EXPECT_EQ(outcome.answer, Text("answer"));
    EXPECT_FALSE(outcome.error);

    const std::string raw = server.requests(i + 1).back();
    EXPECT_EQ(raw.substr(0, raw.find("\r\n")), "POST /ipg/x HTTP/1.1");
    EXPECT_EQ(headerCount(raw, "Content-Type:"), row.managementPost ? 1 : 0) << raw;
    EXPECT_EQ(headerCount(raw, "Content-Type: application/x-www-form-urlencoded\r\n"),
              row.managementPost ? 1 : 0);
    EXPECT_EQ(headerCount(raw, "Content-Length:"), 1);
    EXPECT_EQ(headerCount(raw, "Content-Length: " + std::to_string(row.body.size()) + "\r\n"), 1);
    EXPECT_EQ(headerCount(raw, "Expect:") + headerCount(raw, "Transfer-Encoding:"), 0);
    EXPECT_EQ(raw.substr(raw.find("\r\n\r\n") + 4), row.body);
  }
}

TEST_F(TransportTest, AnswersAndFailuresOfEveryKind) {
  const std::string oneMiB(Transport::kMaxAnswerBytes, 'a');
  URLRequest noURL = bareRequest("", "x");
  noURL.url = std::nullopt;
  URLRequest injected = bareRequest("", "x");
  injected.setValueForHTTPHeaderField("a\r\nInjected: yes", "X-Test");
  struct Row {
    const char* name;
    std::string serverAnswer;  // empty: the server never answers
    URLRequest request;        // its URL is the server's unless it has none
    Text answer;
    std::string error;  // "" none, "*" libcurl's own message
    int code = 0;
  };
  const std::vector<Row> rows = {
      {"plain answer", CaptureServer::answer("a|b"), bareRequest("", "x"), "a|b", ""},
      {"error page handed on", CaptureServer::answer("<p>down</p>", 500), bareRequest("", "x"),
       "<p>down</p>", ""},
      {"not UTF-8", CaptureServer::answer("ok\xFF\xFE"), bareRequest("", "x"), std::nullopt, ""},
      {"exactly 1 MiB", CaptureServer::answer(oneMiB), bareRequest("", "x"), oneMiB, ""},
      {"over 1 MiB", CaptureServer::answer(oneMiB + "a"), bareRequest("", "x"), std::nullopt,
       "answer larger than 1 MiB", TransportError::kOwnReason},
      {"never answers", "", bareRequest("", "x", 0.3), std::nullopt, "*", 28},
      {"no URL", "", noURL, std::nullopt, "no URL", TransportError::kOwnReason},
      {"line break in a header", "", injected, std::nullopt, "malformed header field",
       TransportError::kOwnReason},
      {"not http", "", bareRequest("file:///etc/passwd", "x"), std::nullopt, "*", 1},
  };
  auto transport = Transport::create(qipg::GatewayConfig{});
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    CaptureServer server(row.serverAnswer);
    URLRequest request = row.request;
    if (request.url && request.url->empty()) request.url = server.url();
    const Outcome outcome = postAndWait(*transport, request);
    EXPECT_EQ(outcome.answer, row.answer);
    EXPECT_EQ(outcome.error.has_value(), !row.error.empty());
    if (outcome.error && row.error != "*") {
      EXPECT_EQ(outcome.error->message, row.error);
    }
    if (outcome.error && row.code != 0) {
      EXPECT_EQ(outcome.error->code, row.code);
    }
  }
}

TEST_F(TransportTest, ShutdownCompletesEveryRequestExactlyOnce) {
  // More requests than the transport connects at once: some are still queued, in libcurl or
  // in flight when the shutdown comes.
  constexpr int kRequests = 20;
  CaptureServer server("");
  auto transport = Transport::create(qipg::GatewayConfig{});
  std::mutex mutex;
  std::vector<std::vector<Outcome>> outcomes(kRequests + 1);
  auto record = [&](int i) {
    return [&, i](const TransportReply& reply) {
      std::lock_guard lock(mutex);
      outcomes[i].push_back({reply.answer, reply.error});
    };
  };
  for (int i = 0; i < kRequests; ++i) transport->post(bareRequest(server.url(), "b"), record(i));
  server.requests(1);
  transport->shutdown();  // returns once every completion has run
  transport->shutdown();
  // Afterwards a post still completes on a completion thread, never on the caller's.
  std::promise<std::thread::id> ranOn;
  transport->post(bareRequest(server.url(), "b"), [&](const TransportReply& reply) {
    record(kRequests)(reply);
    ranOn.set_value(std::this_thread::get_id());
  });
  EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id());
  std::lock_guard lock(mutex);
  int sent = 0;
  for (int i = 0; i <= kRequests; ++i) {
    ASSERT_EQ(outcomes[i].size(), 1u) << i;
    EXPECT_FALSE(outcomes[i][0].answer);
    const TransportError error = outcomes[i][0].error.value_or(TransportError{});
    EXPECT_EQ(error.message, "transport shut down");
    EXPECT_EQ(error.code, TransportError::kShutDown);
    sent += error.requestSent ? 1 : 0;
    // Those still queued behind the live transfers certainly never left.
    if (i >= static_cast<int>(Transport::kMaxLiveTransfers)) {
      EXPECT_FALSE(error.requestSent) << i;
    }
  }
  EXPECT_GE(sent, 1);  // the one the server holds
}

TEST_F(TransportTest, CompletionMayPostAgainAndThrow) {
  CaptureServer server(CaptureServer::answer("ok"));
  auto transport = Transport::create(qipg::GatewayConfig{});
  std::promise<Text> second;
  transport->post(bareRequest(server.url(), "1"), [&](const TransportReply&) {
    transport->post(bareRequest(server.url(), "2"),
                    [&](const TransportReply& reply) { second.set_value(reply.answer); });
    throw std::runtime_error("the host's own failure");
  });
  EXPECT_EQ(second.get_future().get(), Text("ok"));
}

}  // namespace
}  // namespace qipg_test
