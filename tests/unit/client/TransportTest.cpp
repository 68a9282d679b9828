// The HTTP transport against a raw socket server that keeps the exact bytes on the wire: what
// a post sends, how answers of every kind come back, and that every completion runs exactly
// once, also when the transport is shut down with requests under way.
#include "net/Transport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <thread>

#include "CaptureServer.h"
#include "unit/client/ClientSupport.h"

namespace qipg_test {
namespace {

using qipg::Text;
using qipg::TransportError;
using qipg::URLRequest;
using qipg::internal::Transport;
using qipg::internal::TransportReply;

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
class TransportStall : public ClientTest {};

TEST_F(TransportTest, PostsGoOutExactlyAsBuilt) {
  struct Row {
    const char* name;
    std::string body;
    bool managementPost;  // through sendPostRequestWithURL, else a request without Content-Type
  };
  const std::vector<Row> rows = {
      {"sealed form", "merchantReqStrT=q1w2%2Be3\r\nr4==&mid=M1&iosEnc=true", true},
      {"UTF-8 byte count", "merchantReqStrT=\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E&MID=M1", true},
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
    bool trickle = false;
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
      // Bytes keep coming, so the idle limit never strikes; the overall limit still does.
      {"trickles past the overall limit", CaptureServer::answer(std::string(50, 'a')),
       bareRequest("", "x", 1.0), std::nullopt, "*", 28, true},
      {"no URL", "", noURL, std::nullopt, "no URL", TransportError::kOwnReason},
      {"line break in a header", "", injected, std::nullopt, "malformed header field",
       TransportError::kOwnReason},
      {"not http", "", bareRequest("file:///etc/passwd", "x"), std::nullopt, "*", 1},
  };
  auto transport = Transport::create(qipg::GatewayConfig{});
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    CaptureServer server(row.serverAnswer, row.trickle);
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

TEST_F(TransportTest, CancelAndShutdownCompleteEveryRequestExactlyOnce) {
  // More requests than the transport runs at once: when the shutdown comes some are under
  // way, some wait in libcurl for a connection and some are still queued.
  constexpr int kRequests = 20;
  CaptureServer server("");
  auto transport = Transport::create(qipg::GatewayConfig{});
  std::mutex mutex;
  std::vector<std::vector<TransportReply>> replies(kRequests + 1);
  std::vector<std::promise<std::thread::id>> ranOn(kRequests + 1);
  auto post = [&](int i) {
    return transport->post(bareRequest(server.url(), std::to_string(i)),
                           [&, i](const TransportReply& reply) {
                             std::lock_guard lock(mutex);
                             replies[i].push_back(reply);
                             ranOn[i].set_value(std::this_thread::get_id());
                           });
  };
  std::vector<qipg::internal::RequestId> ids;
  for (int i = 0; i < kRequests; ++i) ids.push_back(post(i));
  // The one the server holds is under way; the last one is still queued.
  const std::string first = server.requests(1)[0];
  const int running = std::stoi(first.substr(first.find("\r\n\r\n") + 4));
  for (int i : {kRequests - 1, running}) {
    transport->cancel(ids[i]);
    ranOn[i].get_future().wait();
  }
  server.closedByClient(1);
  // Unknown, repeated or finished ids change nothing.
  for (auto id : {qipg::internal::RequestId{0}, ids[running], ids.back() + 100}) {
    transport->cancel(id);
  }
  transport->shutdown();  // returns once every completion has run
  transport->shutdown();
  post(kRequests);  // completes all the same, on a completion thread
  EXPECT_NE(ranOn[kRequests].get_future().get(), std::this_thread::get_id());
  std::lock_guard lock(mutex);
  for (int i = 0; i <= kRequests; ++i) {
    ASSERT_EQ(replies[i].size(), 1u) << i;
    EXPECT_FALSE(replies[i][0].answer);
    const TransportError error = replies[i][0].error.value_or(TransportError{});
    const bool cancelled = i == running || i == kRequests - 1;
    EXPECT_EQ(error.code, cancelled ? TransportError::kCancelled : TransportError::kShutDown);
    EXPECT_EQ(error.message, cancelled ? "request cancelled" : "transport shut down");
    // Sent: the one the server holds; certainly not: those queued behind the live ones.
    if (i == running || i >= static_cast<int>(Transport::kMaxLiveTransfers)) {
      EXPECT_EQ(error.requestSent, i == running) << i;
    }
  }
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

TEST_F(TransportTest, ASlowCompletionHoldsBackNoOtherAnswer) {
  CaptureServer server(CaptureServer::answer("ok"));
  std::promise<void> slowStarted, otherDone;
  std::promise<bool> otherCameMeanwhile;
  std::promise<Text> otherAnswer;
  auto transport = Transport::create(qipg::GatewayConfig{});
  transport->post(bareRequest(server.url(), "slow"), [&](const TransportReply&) {
    slowStarted.set_value();
    // Bounded, so that a failure ends the test instead of hanging it.
    otherCameMeanwhile.set_value(otherDone.get_future().wait_for(std::chrono::seconds(30)) ==
                                 std::future_status::ready);
  });
  slowStarted.get_future().wait();
  transport->post(bareRequest(server.url(), "other"), [&](const TransportReply& reply) {
    otherAnswer.set_value(reply.answer);
    otherDone.set_value();
  });
  EXPECT_TRUE(otherCameMeanwhile.get_future().get());
  EXPECT_EQ(otherAnswer.get_future().get(), Text("ok"));
}

TEST_F(TransportTest, LoopbackHostsNeverGoThroughAProxy) {
  CaptureServer server(CaptureServer::answer("direct"));
  CaptureServer proxy(CaptureServer::answer("proxied"));
  const std::string port = std::to_string(server.port());
  ScopedEnv httpProxy("http_proxy", "http://127.0.0.1:" + std::to_string(proxy.port()));
  ScopedEnv noProxy("no_proxy", std::nullopt);
  ScopedEnv upperNoProxy("NO_PROXY", std::nullopt);
  struct Row {
    std::string url;
    Text answer;
  };
  const std::vector<Row> rows = {
      {"http://127.0.0.1:" + port + "/ipg/x", "direct"},
      {"http://LocalHost:" + port + "/ipg/x", "direct"},
      {"http://127.1:" + port + "/ipg/x", "direct"},
      // Any other host is left to the proxy the environment names.
      {"http://gateway.invalid/ipg/x", "proxied"},
  };
  auto transport = Transport::create(qipg::GatewayConfig{});
  for (const Row& row : rows) {
    SCOPED_TRACE(row.url);
    EXPECT_EQ(postAndWait(*transport, bareRequest(row.url, "x")).answer, row.answer);
  }
  EXPECT_EQ(proxy.connections(), 1u);
}

// A server that accepts and never answers, and a transport with the default configuration
// only: the call still ends, by the default idle limit (a minute). Its own test entry, as it
// takes that long.
TEST_F(TransportStall, SilentServerEndsByTheDefaultLimits) {
  CaptureServer server("");
  std::promise<TransportReply> done;
  auto reply = done.get_future();
  auto transport = Transport::create(qipg::GatewayConfig{});
  transport->post(bareRequest(server.url(), "x"),
                  [&done](const TransportReply& r) { done.set_value(r); });
  // The test's own bound, well past the limit; reaching it is the failure.
  ASSERT_EQ(reply.wait_for(std::chrono::seconds(90)), std::future_status::ready);
  const TransportError error = reply.get().error.value_or(TransportError{});
  EXPECT_EQ(error.code, 28);  // CURLE_OPERATION_TIMEDOUT
  EXPECT_TRUE(error.requestSent);
  transport->shutdown();
}

}  // namespace
}  // namespace qipg_test
