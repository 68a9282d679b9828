#include "Sandbox.h"

#include <httplib.h>
#include <openssl/crypto.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <thread>

#include "Certificates.h"
#include "Connections.h"
#include "DataDir.h"
#include "Gateway.h"
#include "GatewayCrypto.h"
#include "Pages.h"
#include "Store.h"
#include "Text.h"

namespace qipg::sandbox {

using internal::Gateway;
using internal::Reply;

namespace {

constexpr std::size_t kEndpointCount = 6;
constexpr std::size_t kHugeAnswerBytes = 5u * 1024 * 1024;
// How long a peer may take to send a whole request, TLS handshake included.
constexpr std::chrono::milliseconds kRequestReadLimit{5000};
constexpr char kWrongKey[] = "sandboxNotTheMerchantsKey0000000";

bool isLoopbackPeer(const std::string& address) {
  return address.rfind("127.", 0) == 0 || address == "::1" || address.rfind("::ffff:127.", 0) == 0;
}

bool validMerchant(const Merchant& m) {
  return internal::isAlphanumeric(m.mid, 15) && internal::isAlphanumeric(m.key, 32);
}

}  // namespace

struct Sandbox::Impl {
  Options options;
  std::string iv;
  std::string baseURL;
  int port = 0;
  internal::CertificateFiles certificates;
  std::unique_ptr<internal::Store> store;
  std::unique_ptr<Gateway> gateway;
  // Declared before the server, so that it outlives every connection.
  internal::ReadDeadlines deadlines{kRequestReadLimit};
  std::unique_ptr<httplib::SSLServer> server;
  std::thread thread;
  std::atomic<bool> listenerEnded{false};

  std::array<std::atomic<int>, kEndpointCount> faults{};
  std::array<std::atomic<long>, kEndpointCount> delaysMs{};
  std::string adminToken;
  mutable std::mutex holdMutex;
  std::condition_variable holdCv;
  bool stopping = false;
  std::array<std::size_t, kEndpointCount> held{};  // requests held by a hang or a delay

  // Counts a held request while it lives; the hold mutex is taken around both ends.
  struct HeldCount {
    explicit HeldCount(std::size_t& count) : count_(count) { ++count_; }
    ~HeldCount() { --count_; }
    HeldCount(const HeldCount&) = delete;
    HeldCount& operator=(const HeldCount&) = delete;
    std::size_t& count_;
  };

  std::mutex stopMutex;
  bool stopped = false;

  Fault fault(Endpoint e) const {
    return static_cast<Fault>(faults[static_cast<std::size_t>(e)].load());
  }

  // Holds a request of `e` until `delay` has passed; false (with a 503 in `res`) when stop()
  // came first.
  bool pause(Endpoint e, std::chrono::milliseconds delay, httplib::Response& res) {
    std::unique_lock<std::mutex> lock(holdMutex);
    const HeldCount counted(held[static_cast<std::size_t>(e)]);
    if (!holdCv.wait_for(lock, delay, [&] { return stopping; })) return true;
    stoppedAnswer(res);
    return false;
  }

  // Holds a request of `e` while `e` has Fault::kHang; false (with a 503 in `res`) when stop()
  // came.
  bool hold(Endpoint e, httplib::Response& res) {
    std::unique_lock<std::mutex> lock(holdMutex);
    const HeldCount counted(held[static_cast<std::size_t>(e)]);
    holdCv.wait(lock, [&] { return stopping || fault(e) != Fault::kHang; });
    if (!stopping) return true;
    stoppedAnswer(res);
    return false;
  }

  static void stoppedAnswer(httplib::Response& res) {
    res.status = 503;
    res.set_header("Connection", "close");
    res.set_content("sandbox stopped\n", "text/plain; charset=utf-8");
  }

  // Puts the answer of a fault that replaces the gateway's answer into `res`.
  void spoil(Fault f, httplib::Response& res) {
    switch (f) {
      case Fault::kHttp500:
        res.status = 500;
        res.set_content(internal::errorPage("Internal Server Error",
                                            "The sandbox was told to fail this request."),
                        "text/html; charset=utf-8");
        return;
      case Fault::kGarbage:
        res.set_content("<<this is not an envelope>> ~!@#$^&*()", "text/plain; charset=utf-8");
        return;
      case Fault::kNotUtf8:
        res.set_content(std::string("\xff\xfe\xc3\x28 not \xa0\xa1 UTF-8 \xf0\x28\x8c\x28"),
                        "text/plain; charset=utf-8");
        return;
      case Fault::kHuge:
        res.set_content(std::string(kHugeAnswerBytes, 'A'), "text/plain; charset=utf-8");
        return;
      case Fault::kClose:
        // The headers promise a body that never comes: the server gives up and closes.
        res.set_content_provider(
            1024, "text/plain; charset=utf-8",
            [](std::size_t, std::size_t, httplib::DataSink&) { return false; });
        return;
      case Fault::kWrongKey:
        res.set_content(
            internal::sealEnvelope("||||||||||F|Sealed with another key|||||||||||", kWrongKey, iv),
            "text/plain; charset=utf-8");
        return;
      case Fault::kNone:
      case Fault::kHang:
      case Fault::kDelay:
        return;
    }
  }

  void route(const std::string& name, Endpoint endpoint,
             Reply (Gateway::*handler)(const std::string&)) {
    server->Post(
        std::string(internal::kBasePath) + name,
        [this, endpoint, handler](const httplib::Request& req, httplib::Response& res) {
          deadlines.requestRead();
          const Fault f = fault(endpoint);
          if (f == Fault::kHang && !hold(endpoint, res)) return;
          if (f == Fault::kDelay &&
              !pause(endpoint,
                     std::chrono::milliseconds(delaysMs[static_cast<std::size_t>(endpoint)].load()),
                     res)) {
            return;
          }
          if (f != Fault::kNone && f != Fault::kHang && f != Fault::kDelay) {
            spoil(f, res);
            return;
          }
          Reply reply = (gateway.get()->*handler)(req.body);
          if (reply.fault == Fault::kDelay && !pause(endpoint, kMagicDelay, res)) return;
          if (reply.fault != Fault::kNone && reply.fault != Fault::kDelay) {
            spoil(reply.fault, res);
            return;
          }
          res.status = reply.status;
          res.set_content(std::move(reply.body), reply.contentType);
        });
  }

  // POST /sandbox/fault, form fields endpoint and kind: sets a fault from outside the process.
  void adminRoute() {
    server->Post("/sandbox/fault", [this](const httplib::Request& req, httplib::Response& res) {
      deadlines.requestRead();
      const std::string token = req.get_header_value("X-Sandbox-Token");
      if (!isLoopbackPeer(req.remote_addr) || token.size() != adminToken.size() ||
          CRYPTO_memcmp(token.data(), adminToken.data(), token.size()) != 0) {
        res.status = 403;
        res.set_content("forbidden\n", "text/plain; charset=utf-8");
        return;
      }
      const auto form = internal::splitForm(req.body);
      Endpoint endpoint{};
      Fault f{};
      std::chrono::milliseconds delay{};
      std::string error;
      if (!parseFault(internal::formValue(form, "endpoint").value_or(""),
                      internal::formValue(form, "kind").value_or(""), &endpoint, &f, &delay,
                      &error)) {
        res.status = 400;
        res.set_content(error + "\n", "text/plain; charset=utf-8");
        return;
      }
      setFault(endpoint, f, delay);
      // How many of its requests the endpoint holds now (a hang or a delay), so that a script
      // can wait for one.
      std::size_t holding = 0;
      {
        std::lock_guard<std::mutex> lock(holdMutex);
        holding = held[static_cast<std::size_t>(endpoint)];
      }
      res.set_content("held=" + std::to_string(holding) + "\n", "text/plain; charset=utf-8");
    });
  }

  void setFault(Endpoint endpoint, Fault f, std::chrono::milliseconds delay) {
    {
      std::lock_guard<std::mutex> lock(holdMutex);
      delaysMs[static_cast<std::size_t>(endpoint)] =
          static_cast<long>(std::min(delay, kLongestDelay).count());
      faults[static_cast<std::size_t>(endpoint)] = static_cast<int>(f);
    }
    holdCv.notify_all();
  }

  void setUpRoutes() {
    route("getTransactionStatus", Endpoint::kStatus, &Gateway::status);
    route("doCancelRequest", Endpoint::kCancel, &Gateway::cancel);
    route("doRefundRequest", Endpoint::kRefund, &Gateway::refund);
    route("doMEPayRequest", Endpoint::kPaymentPage, &Gateway::paymentPage);
    route("doMEPayRequestCard", Endpoint::kCardPaymentPage, &Gateway::cardPaymentPage);
    route("paymentInvoice", Endpoint::kPaymentInvoice, &Gateway::paymentInvoice);
    adminRoute();
    auto serve = [this](Reply (Gateway::*page)() const) {
      return [this, page](const httplib::Request&, httplib::Response& res) {
        Reply reply = (gateway.get()->*page)();
        res.status = reply.status;
        res.set_content(std::move(reply.body), reply.contentType);
      };
    };
    server->Get(std::string(internal::kBasePath) + "paymentInvoice",
                serve(&Gateway::invoiceWithoutPayment));
    server->Get(internal::kBasePath, serve(&Gateway::index));
    server->Get("/", [](const httplib::Request&, httplib::Response& res) {
      res.set_redirect(internal::kBasePath, 303);
    });

    // Plain one-line texts for what no route answered; the gateway's own 4xx pages stay.
    server->set_error_handler(
        httplib::Server::HandlerWithResponse([](const httplib::Request&, httplib::Response& res) {
          if (!res.body.empty()) return httplib::Server::HandlerResponse::Unhandled;
          res.set_content(res.status == 404 ? "not found\n" : "request refused\n",
                          "text/plain; charset=utf-8");
          return httplib::Server::HandlerResponse::Handled;
        }));
    server->set_exception_handler(
        [](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
          res.status = 500;
          res.set_content("internal error\n", "text/plain; charset=utf-8");
        });
    // Called once an answer is out: the connection's next request is due within the limit.
    server->set_logger(
        [this, log = options.log](const httplib::Request& req, const httplib::Response& res) {
          deadlines.answered();
          if (log) log(req.method + " " + req.path + " " + std::to_string(res.status));
        });
  }
};

Sandbox::Sandbox(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

std::unique_ptr<Sandbox> Sandbox::start(Options options, std::string* error) {
  std::string scratch;
  if (error == nullptr) error = &scratch;
  auto fail = [&](const std::string& why) -> std::unique_ptr<Sandbox> {
    *error = why;
    return nullptr;
  };

  auto impl = std::make_unique<Impl>();
  if (options.environment == "test") {
    impl->iv = std::string(internal::kTestIV);
  } else if (options.environment == "production") {
    impl->iv = std::string(internal::kProductionIV);
  } else {
    return fail("unknown environment \"" + options.environment + "\" (test or production)");
  }
  if (options.port < 0 || options.port > 65535) return fail("port out of range: 0 to 65535");
  if (options.host.empty()) return fail("no host to listen on");
  for (const Merchant& m : options.merchants) {
    if (!validMerchant(m)) {
      return fail("bad merchant: MID of 1 to 15 and key of 1 to 32 ASCII letters and digits");
    }
  }
  if (options.dataDir.empty()) return fail("no data directory given");
  while (options.dataDir.size() > 1 && options.dataDir.back() == '/') options.dataDir.pop_back();
  // Absolute, so that the paths it hands out (CA file, QIPG_SANDBOX_DIR) work from anywhere.
  std::error_code noPath;
  if (const auto absolute = std::filesystem::absolute(options.dataDir, noPath); !noPath) {
    options.dataDir = absolute.string();
  }
  if (auto problem = internal::prepareDataDir(options.dataDir)) return fail(*problem);
  impl->adminToken = internal::randomHex(32);
  if (impl->adminToken.empty() ||
      !internal::replaceFile(adminTokenFile(options.dataDir), impl->adminToken + "\n")) {
    return fail("cannot write " + adminTokenFile(options.dataDir));
  }

  if (!internal::ensureCertificates(options.dataDir, options.host, &impl->certificates, error)) {
    return nullptr;
  }
  impl->store = internal::Store::open(options.dataDir + "/sandbox.sqlite3", error);
  if (!impl->store) return nullptr;
  if (!impl->store->putMerchant(kTestMerchantId, kTestMerchantKey)) {
    return fail("cannot store the test merchant");
  }
  for (const Merchant& m : options.merchants) {
    if (!impl->store->putMerchant(m.mid, m.key)) return fail("cannot store merchant " + m.mid);
  }

  impl->server = std::make_unique<httplib::SSLServer>(impl->certificates.certFile.c_str(),
                                                      impl->certificates.keyFile.c_str());
  if (!impl->server->is_valid()) return fail("cannot set up TLS with the sandbox certificate");
  // Short time-outs bound stop(): an idle or silent connection is let go within seconds.
  impl->server->set_keep_alive_timeout(1);
  // As a gateway behind a common web server would: many requests per connection (httplib's
  // default of 5 would cost a TLS handshake every fifth call).
  impl->server->set_keep_alive_max_count(1000);
  impl->server->set_read_timeout(3, 0);
  impl->server->set_write_timeout(5, 0);
  impl->server->set_payload_max_length(1u << 20);
  impl->server->new_task_queue = [] { return new internal::ConnectionPool(); };
  impl->deadlines.watch(impl->server->ssl_context());
  // Answers go out in more than one write; without this, Nagle's algorithm holds the last
  // one back for a delayed ACK (tens of milliseconds per call).
  impl->server->set_tcp_nodelay(true);
  // SO_REUSEADDR only: httplib's default adds SO_REUSEPORT, which would let a second sandbox
  // share a port that is taken instead of failing.
  int listening = -1;
  impl->server->set_socket_options([&listening](socket_t sock) {
    const int yes = 1;
    ::setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    listening = sock;
  });

  if (options.port == 0) {
    impl->port = impl->server->bind_to_any_port(options.host);
  } else {
    impl->port = impl->server->bind_to_port(options.host, options.port) ? options.port : -1;
  }
  if (impl->port <= 0) {
    return fail("cannot listen on " + options.host + ":" + std::to_string(options.port));
  }
  // httplib listens with a backlog of 5, too short for a burst of connections: the kernel
  // drops the SYNs beyond it and the peers wait a second or more to try again.
  ::listen(listening, SOMAXCONN);
  const bool ipv6 = options.host.find(':') != std::string::npos;
  impl->baseURL = "https://" + (ipv6 ? "[" + options.host + "]" : options.host) + ":" +
                  std::to_string(impl->port) + internal::kBasePath;
  impl->options = std::move(options);
  impl->gateway =
      std::make_unique<Gateway>(*impl->store, impl->iv, impl->baseURL, impl->options.environment,
                                impl->options.paymentSession);
  impl->setUpRoutes();

  Impl* raw = impl.get();
  impl->thread = std::thread([raw] {
    // A peer that hangs up mid-answer must give EPIPE, not kill the process: block SIGPIPE in
    // this thread, and so in the worker threads it starts, without touching the process.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    raw->server->listen_after_bind();
    raw->listenerEnded = true;
  });
  // The socket already listens; wait until the accept loop runs so that stop() reaches it.
  while (!raw->server->is_running() && !raw->listenerEnded) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  if (raw->listenerEnded) {
    raw->thread.join();
    return fail("the server stopped at once");
  }
  return std::unique_ptr<Sandbox>(new Sandbox(std::move(impl)));
}

Sandbox::~Sandbox() { stop(); }

int Sandbox::port() const { return impl_->port; }
std::string Sandbox::baseURL() const { return impl_->baseURL; }
std::string Sandbox::caFile() const { return impl_->certificates.caFile; }
std::string Sandbox::dataDir() const { return impl_->options.dataDir; }
std::string Sandbox::environment() const { return impl_->options.environment; }

void Sandbox::stop() {
  std::lock_guard<std::mutex> stopLock(impl_->stopMutex);
  if (impl_->stopped) return;
  {
    std::lock_guard<std::mutex> lock(impl_->holdMutex);
    impl_->stopping = true;
  }
  impl_->holdCv.notify_all();
  impl_->server->stop();
  if (impl_->thread.joinable()) impl_->thread.join();
  impl_->stopped = true;
}

void Sandbox::setFault(Endpoint endpoint, Fault fault, std::chrono::milliseconds delay) {
  impl_->setFault(endpoint, fault, delay);
}

void Sandbox::clearFaults() {
  {
    std::lock_guard<std::mutex> lock(impl_->holdMutex);
    for (auto& f : impl_->faults) f = static_cast<int>(Fault::kNone);
  }
  impl_->holdCv.notify_all();
}

std::size_t Sandbox::heldRequests() const {
  std::lock_guard<std::mutex> lock(impl_->holdMutex);
  std::size_t total = 0;
  for (const std::size_t count : impl_->held) total += count;
  return total;
}

std::optional<TransactionInfo> Sandbox::transaction(const std::string& mid,
                                                    const std::string& orderId) const {
  return impl_->gateway->transaction(mid, orderId);
}

bool parseFault(const std::string& endpointName, const std::string& kind, Endpoint* endpoint,
                Fault* fault, std::chrono::milliseconds* delay, std::string* error) {
  static const std::pair<const char*, Endpoint> endpoints[] = {
      {"status", Endpoint::kStatus},
      {"cancel", Endpoint::kCancel},
      {"refund", Endpoint::kRefund},
      {"pay", Endpoint::kPaymentPage},
      {"pay-card", Endpoint::kCardPaymentPage},
      {"invoice", Endpoint::kPaymentInvoice}};
  static const std::pair<const char*, Fault> kinds[] = {
      {"none", Fault::kNone},        {"http500", Fault::kHttp500},   {"garbage", Fault::kGarbage},
      {"not-utf8", Fault::kNotUtf8}, {"huge", Fault::kHuge},         {"hang", Fault::kHang},
      {"close", Fault::kClose},      {"wrong-key", Fault::kWrongKey}};
  const auto named = std::find_if(std::begin(endpoints), std::end(endpoints),
                                  [&](const auto& e) { return endpointName == e.first; });
  if (named == std::end(endpoints)) {
    *error = "unknown endpoint \"" + endpointName +
             "\" (status, cancel, refund, pay, pay-card or invoice)";
    return false;
  }
  *endpoint = named->second;
  *delay = std::chrono::milliseconds(0);
  if (kind.rfind("delay=", 0) == 0) {
    const std::string ms = kind.substr(6);
    if (ms.empty() || ms.size() > 6 || !internal::isDigits(ms) ||
        std::chrono::milliseconds(std::stol(ms)) > kLongestDelay) {
      *error = "delay=MS takes a number of milliseconds from 0 to 600000";
      return false;
    }
    *fault = Fault::kDelay;
    *delay = std::chrono::milliseconds(std::stol(ms));
    return true;
  }
  const auto found = std::find_if(std::begin(kinds), std::end(kinds),
                                  [&](const auto& k) { return kind == k.first; });
  if (found == std::end(kinds)) {
    *error = "unknown fault \"" + kind +
             "\" (none, http500, garbage, not-utf8, huge, hang, delay=MS, close or wrong-key)";
    return false;
  }
  *fault = found->second;
  return true;
}

std::string adminTokenFile(const std::string& dataDir) { return dataDir + "/admin-token"; }

std::string defaultDataDir() {
  const char* named = std::getenv("QIPG_SANDBOX_DIR");
  if (named != nullptr && named[0] != '\0') return named;
  const char* xdg = std::getenv("XDG_DATA_HOME");
  if (xdg != nullptr && xdg[0] == '/') return std::string(xdg) + "/qipg/sandbox";
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] != '\0') return std::string(home) + "/.local/share/qipg/sandbox";
  return {};
}

}  // namespace qipg::sandbox
