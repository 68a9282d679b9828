// The HTTP transport against a raw socket server that keeps the exact bytes on the wire: what
// a post sends, how answers of every kind come back, and that every completion runs exactly
// once, also when the transport is shut down with requests under way.
#include "client/Transport.h"

#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <thread>

#include "CaptureServer.h"
#include "client_support.h"

namespace qipg_test {
namespace {

using qipg::Text;
using qipg::TransportError;
using qipg::URLRequest;
using qipg::internal::Transport;

struct Outcome {
  Text answer;
  std::optional<TransportError> error;
};

// Posts `request` and waits for its completion.
Outcome postAndWait(Transport& transport, const URLRequest& request) {
  std::promise<Outcome> done;
  transport.post(request, [&done](const Text& answer, const std::optional<TransportError>& error) {
    done.set_value({answer, error});
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
       "answer larger than 1 MiB"},
      {"never answers", "", bareRequest("", "x", 0.3), std::nullopt, "*", 28},
      {"no URL", "", noURL, std::nullopt, "no URL"},
      {"line break in a header", "", injected, std::nullopt, "malformed header field"},
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
    return [&, i](const Text& answer, const std::optional<TransportError>& error) {
      std::lock_guard lock(mutex);
      outcomes[i].push_back({answer, error});
    };
  };
  for (int i = 0; i < kRequests; ++i) transport->post(bareRequest(server.url(), "b"), record(i));
  server.requests(1);
  transport->shutdown();  // returns once every completion has run
  transport->shutdown();
  transport->post(bareRequest(server.url(), "b"), record(kRequests));
  std::lock_guard lock(mutex);
  for (int i = 0; i <= kRequests; ++i) {
    ASSERT_EQ(outcomes[i].size(), 1u) << i;
    EXPECT_FALSE(outcomes[i][0].answer);
    EXPECT_EQ(outcomes[i][0].error.value_or(TransportError{}).message, "transport shut down");
  }
}

TEST_F(TransportTest, CompletionMayPostAgainAndThrow) {
  CaptureServer server(CaptureServer::answer("ok"));
  auto transport = Transport::create(qipg::GatewayConfig{});
  std::promise<Text> second;
  transport->post(bareRequest(server.url(), "1"), [&](const Text&, const auto&) {
    transport->post(bareRequest(server.url(), "2"),
                    [&](const Text& answer, const auto&) { second.set_value(answer); });
    throw std::runtime_error("the host's own failure");
  });
  EXPECT_EQ(second.get_future().get(), Text("ok"));
}

}  // namespace
}  // namespace qipg_test
