// The libcurl transport: requests are handed through a mutex-guarded queue to one background
// thread, which owns the multi handle's transfers, drives them with curl_multi_poll and runs
// every completion. The thread owns a shared_ptr to the state it works on, so a transport
// released on its own thread (a completion dropped the last client) simply lets the thread
// finish on its own.
#include "client/Transport.h"

#include <curl/curl.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "common/Ascii.h"

namespace qipg::internal {
namespace {

constexpr char kShutDownMessage[] = "transport shut down";
// Parallel connections to one host (more requests wait in libcurl for a free one) and
// connections kept open for reuse.
constexpr long kMaxHostConnections = 6;
constexpr long kMaxCachedConnections = 12;
// How long the thread sleeps when nothing happens; posts and shutdown wake it at once.
constexpr int kIdlePollMs = 10000;
// Time-outs above this are taken as this (about 11 days).
constexpr double kLongestTimeoutMs = 1e9;

struct EasyDeleter {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using EasyHandle = std::unique_ptr<CURL, EasyDeleter>;

struct HeaderListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, HeaderListDeleter>;

struct MultiDeleter {
  void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
};
using MultiHandle = std::unique_ptr<CURLM, MultiDeleter>;

struct ShareDeleter {
  void operator()(CURLSH* handle) const { curl_share_cleanup(handle); }
};
using ShareHandle = std::unique_ptr<CURLSH, ShareDeleter>;

TransportError ownError(std::string message) { return TransportError{-1, std::move(message)}; }

TransportError shutDownError() { return ownError(kShutDownMessage); }

// Runs a completion, keeping its exceptions on this side.
void runCompletion(const Transport::Completion& completion, const Text& answer,
                   const std::optional<TransportError>& error) noexcept {
  if (!completion) return;
  try {
    completion(answer, error);
  } catch (...) {
    // A completion's failure is its own; the transport goes on.
  }
}

struct Pending {
  URLRequest request;
  Transport::Completion completion;
};

// One request in flight. The easy handle is declared last so that it is cleaned up before
// the header list and body it points to.
struct Transfer {
  Transport::Completion completion;
  HeaderList headers;
  Bytes body;
  std::string answer;
  bool tooLarge = false;
  char errorBuffer[CURL_ERROR_SIZE] = {};
  EasyHandle easy;
};

// What the transport and its thread share.
struct State {
  GatewayConfig config;
  // TLS sessions, resumed by the next connection of any request of this transport (each
  // request has a new easy handle, which would otherwise start without any). Used on the
  // transport thread alone, so it needs no lock functions. Declared before `multi` so that it
  // is cleaned up after it.
  ShareHandle share;
  MultiHandle multi;

  std::mutex mutex;
  std::condition_variable threadEnded;
  std::deque<Pending> queue;   // guarded by mutex
  bool stopping = false;       // guarded by mutex
  bool threadRunning = false;  // guarded by mutex
  std::thread::id threadId;    // guarded by mutex
};

std::size_t onAnswerBytes(char* data, std::size_t size, std::size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  const std::size_t bytes = size * count;
  if (bytes > Transport::kMaxAnswerBytes - transfer->answer.size()) {
    transfer->tooLarge = true;
    return 0;  // anything but `bytes` aborts the transfer
  }
  try {
    transfer->answer.append(data, bytes);
  } catch (...) {
    return 0;
  }
  return bytes;
}

bool isToken(const std::string& text) {
  if (text.empty()) return false;
  for (unsigned char c : text) {
    if (c <= 0x20 || c >= 0x7F || c == ':' || c == '(' || c == ')' || c == ',' || c == '/' ||
        c == ';' || c == '<' || c == '=' || c == '>' || c == '?' || c == '@' || c == '[' ||
        c == '\\' || c == ']' || c == '{' || c == '}' || c == '"') {
      return false;
    }
  }
  return true;
}

bool isHeaderValue(const std::string& text) {
  for (unsigned char c : text) {
    if (c == '\r' || c == '\n' || c == '\0') return false;
  }
  return true;
}

// The request's own headers as libcurl lines, then blank overrides that keep libcurl from
// adding "Expect: 100-continue" or a form Content-Type of its own. Absent when a header
// cannot be sent as it stands.
std::optional<HeaderList> headerLines(const URLRequest& request) {
  HeaderList list;
  auto append = [&list](const std::string& line) {
    curl_slist* grown = curl_slist_append(list.get(), line.c_str());
    if (grown == nullptr) return false;
    list.release();
    list.reset(grown);
    return true;
  };
  for (const auto& [name, value] : request.allHTTPHeaderFields) {
    if (!isToken(name) || !isHeaderValue(value)) return std::nullopt;
    // "Name;" is libcurl's way of sending a header with an empty value.
    if (!append(value.empty() ? name + ";" : name + ": " + value)) return std::nullopt;
  }
  if (!request.valueForHTTPHeaderField("Expect") && !append("Expect:")) return std::nullopt;
  if (!request.valueForHTTPHeaderField("Content-Type") && !append("Content-Type:")) {
    return std::nullopt;
  }
  return list;
}

// The time limit in milliseconds: the request's own when it has one, else the configured
// one; the shorter of the two when both are set; 0 for none.
long timeoutMs(double requestSeconds, long configuredMs) {
  double limit = 0;
  if (std::isfinite(requestSeconds) && requestSeconds > 0) {
    limit = std::min(std::ceil(requestSeconds * 1000.0), kLongestTimeoutMs);
  }
  if (configuredMs > 0 && (limit == 0 || static_cast<double>(configuredMs) < limit)) {
    limit = static_cast<double>(configuredMs);
  }
  return static_cast<long>(limit);
}

class TransferRunner {
 public:
  explicit TransferRunner(std::shared_ptr<State> state) : state_(std::move(state)) {}

  void run() {
    CURLM* multi = state_->multi.get();
    for (;;) {
      std::deque<Pending> incoming;
      bool stopping = false;
      {
        std::lock_guard lock(state_->mutex);
        incoming.swap(state_->queue);
        stopping = state_->stopping;
      }
      if (stopping) {
        failEverything(std::move(incoming));
        break;
      }
      for (Pending& pending : incoming) start(std::move(pending));
      incoming.clear();
      int running = 0;
      curl_multi_perform(multi, &running);
      finishDone();
      curl_multi_poll(multi, nullptr, 0, kIdlePollMs, nullptr);
    }
    {
      std::lock_guard lock(state_->mutex);
      state_->threadRunning = false;
    }
    state_->threadEnded.notify_all();
  }

 private:
  void start(Pending pending) {
    auto transfer = std::make_unique<Transfer>();
    transfer->completion = std::move(pending.completion);
    const URLRequest& request = pending.request;
    auto fail = [&transfer](const std::string& message) {
      runCompletion(transfer->completion, std::nullopt, ownError(message));
    };
    if (!request.url) return fail("no URL");
    if (!isToken(request.httpMethod)) return fail("malformed HTTP method");
    std::optional<HeaderList> headers = headerLines(request);
    if (!headers) return fail("malformed header field");
    transfer->headers = std::move(*headers);
    transfer->body = request.httpBody;
    transfer->easy.reset(curl_easy_init());
    CURL* easy = transfer->easy.get();
    if (easy == nullptr) return fail("cannot create a transfer");

    const GatewayConfig& config = state_->config;
    CURLcode rc = CURLE_OK;
    auto set = [&rc, easy](CURLoption option, auto value) {
      if (rc == CURLE_OK) rc = curl_easy_setopt(easy, option, value);
    };
    set(CURLOPT_URL, request.url->c_str());
#if LIBCURL_VERSION_NUM >= 0x075500
    set(CURLOPT_PROTOCOLS_STR, "http,https");
#else
    set(CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#endif
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_ERRORBUFFER, transfer->errorBuffer);
    set(CURLOPT_WRITEFUNCTION, &onAnswerBytes);
    set(CURLOPT_WRITEDATA, static_cast<void*>(transfer.get()));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (!config.caFile.empty()) set(CURLOPT_CAINFO, config.caFile.c_str());
    if (!config.pinnedPublicKey.empty()) {
      set(CURLOPT_PINNEDPUBLICKEY, config.pinnedPublicKey.c_str());
    }
    if (config.connectTimeoutMs > 0) set(CURLOPT_CONNECTTIMEOUT_MS, config.connectTimeoutMs);
    if (const long limit = timeoutMs(request.timeoutInterval, config.requestTimeoutMs)) {
      set(CURLOPT_TIMEOUT_MS, limit);
    }
    // An empty body still needs a valid pointer, or libcurl would read one from stdin.
    static const char kNoBody[] = "";
    const char* body =
        transfer->body.empty() ? kNoBody : reinterpret_cast<const char*>(transfer->body.data());
    if (request.httpMethod == "GET" && transfer->body.empty()) {
      set(CURLOPT_HTTPGET, 1L);
    } else {
      if (request.httpMethod == "POST") {
        set(CURLOPT_POST, 1L);
      } else {
        set(CURLOPT_CUSTOMREQUEST, request.httpMethod.c_str());
      }
      set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(transfer->body.size()));
      set(CURLOPT_POSTFIELDS, body);
    }
    set(CURLOPT_HTTPHEADER, transfer->headers.get());
    if (state_->share) set(CURLOPT_SHARE, state_->share.get());
    if (rc != CURLE_OK) return fail(curl_easy_strerror(rc));

    if (curl_multi_add_handle(state_->multi.get(), easy) != CURLM_OK) {
      return fail("cannot start the transfer");
    }
    try {
      active_.emplace(easy, std::move(transfer));
    } catch (...) {
      curl_multi_remove_handle(state_->multi.get(), easy);
      fail("out of memory");
    }
  }

  // Hands every finished transfer to its completion.
  void finishDone() {
    CURLM* multi = state_->multi.get();
    int left = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      CURL* easy = message->easy_handle;
      const CURLcode code = message->data.result;
      auto found = active_.find(easy);
      if (found == active_.end()) continue;
      std::unique_ptr<Transfer> transfer = std::move(found->second);
      active_.erase(found);
      curl_multi_remove_handle(multi, easy);
      finish(*transfer, code);
    }
  }

  static void finish(Transfer& transfer, CURLcode code) {
    Text answer;
    std::optional<TransportError> error;
    if (transfer.tooLarge) {
      error = TransportError{code, "answer larger than 1 MiB"};
    } else if (code != CURLE_OK) {
      std::string message = curl_easy_strerror(code);
      if (transfer.errorBuffer[0] != '\0') message += std::string(": ") + transfer.errorBuffer;
      for (char& c : message) {
        if (c == '\n' || c == '\r') c = ' ';
      }
      error = TransportError{code, std::move(message)};
    } else if (isValidUtf8(transfer.answer)) {
      answer = std::move(transfer.answer);
    }
    runCompletion(transfer.completion, answer, error);
  }

  // Completes whatever is in flight or queued with the shut-down error, and then whatever
  // those completions queued meanwhile (post() completes at once by now, but be sure).
  void failEverything(std::deque<Pending> incoming) {
    CURLM* multi = state_->multi.get();
    for (auto& [easy, transfer] : active_) curl_multi_remove_handle(multi, easy);
    std::map<CURL*, std::unique_ptr<Transfer>> inFlight = std::move(active_);
    active_.clear();
    for (auto& [easy, transfer] : inFlight) {
      runCompletion(transfer->completion, std::nullopt, shutDownError());
      transfer.reset();
    }
    for (;;) {
      for (Pending& pending : incoming) {
        runCompletion(pending.completion, std::nullopt, shutDownError());
        pending = Pending{};
      }
      incoming.clear();
      std::lock_guard lock(state_->mutex);
      if (state_->queue.empty()) break;
      incoming.swap(state_->queue);
    }
  }

  std::shared_ptr<State> state_;
  std::map<CURL*, std::unique_ptr<Transfer>> active_;
};

class CurlTransport final : public Transport {
 public:
  explicit CurlTransport(std::shared_ptr<State> state) : state_(std::move(state)) {}
  ~CurlTransport() override { shutdown(); }
  CurlTransport(const CurlTransport&) = delete;
  CurlTransport& operator=(const CurlTransport&) = delete;

  void post(URLRequest request, Completion completion) override {
    Pending pending{std::move(request), std::move(completion)};
    std::optional<TransportError> refusal;
    {
      std::lock_guard lock(state_->mutex);
      if (state_->stopping) {
        refusal = shutDownError();
      } else {
        try {
          if (!thread_.joinable()) {
            thread_ = std::thread([state = state_] { TransferRunner(state).run(); });
            state_->threadRunning = true;
            state_->threadId = thread_.get_id();
          }
          state_->queue.push_back(std::move(pending));
          curl_multi_wakeup(state_->multi.get());
        } catch (...) {
          refusal = ownError("cannot start the transport thread");
        }
      }
    }
    if (refusal) runCompletion(pending.completion, std::nullopt, refusal);
  }

  void shutdown() override {
    std::thread thread;
    bool onTransportThread = false;
    {
      std::unique_lock lock(state_->mutex);
      state_->stopping = true;
      thread = std::move(thread_);
      onTransportThread = state_->threadRunning && state_->threadId == std::this_thread::get_id();
      curl_multi_wakeup(state_->multi.get());
      if (!thread.joinable() && !onTransportThread) {
        // Another caller is joining the thread: wait with it until the thread has ended.
        state_->threadEnded.wait(lock, [this] { return !state_->threadRunning; });
      }
    }
    if (!thread.joinable()) return;
    if (onTransportThread) {
      thread.detach();
    } else {
      thread.join();
    }
  }

 private:
  std::shared_ptr<State> state_;
  std::thread thread_;  // guarded by state_->mutex; empty once shut down
};

}  // namespace

std::shared_ptr<Transport> Transport::create(const GatewayConfig& config) {
  static const CURLcode globalInit = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (globalInit != CURLE_OK) return nullptr;
  auto state = std::make_shared<State>();
  state->config = config;
  state->multi.reset(curl_multi_init());
  state->share.reset(curl_share_init());
  if (state->share) {
    curl_share_setopt(state->share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  }
  if (!state->multi) return nullptr;
  curl_multi_setopt(state->multi.get(), CURLMOPT_MAXCONNECTS, kMaxCachedConnections);
  curl_multi_setopt(state->multi.get(), CURLMOPT_MAX_HOST_CONNECTIONS, kMaxHostConnections);
  return std::make_shared<CurlTransport>(std::move(state));
}

}  // namespace qipg::internal
