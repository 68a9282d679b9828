// The libcurl transport: requests and cancellations are handed through a mutex-guarded queue
// to one background thread, which owns the multi handle's transfers and drives them with
// curl_multi_poll. At most kMaxLiveTransfers have an easy handle at once; the others wait as
// the request and its completion alone. A reply goes to the completion pool, with the
// completion itself, so that no host code runs (or is released) on the transfer thread; only a
// completion that asked for it (one that runs no host code) runs on the transfer thread. The
// thread owns a shared_ptr to the state it works on.
#include "net/Transport.h"

#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/Ascii.h"
#include "common/ThreadAnnotations.h"
#include "common/Url.h"
#include "net/CompletionPool.h"

namespace qipg::internal {
namespace {

constexpr char kShutDownMessage[] = "transport shut down";
constexpr char kCancelledMessage[] = "request cancelled";
// Parallel connections to one host (more requests wait in libcurl for a free one) and
// connections kept open for reuse.
constexpr long kMaxHostConnections = 6;
constexpr long kMaxCachedConnections = 12;
// How long the thread sleeps when nothing happens; posts and shutdown wake it at once.
constexpr int kIdlePollMs = 10000;
// How long the thread keeps looking at the queue after the last transfer ended, before it
// sleeps: a host that posts again within this needs no wake-up, which costs about as much
// as the rest of the call's work on a virtual machine.
constexpr auto kWatchAfterAnswer = std::chrono::microseconds(150);
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

TransportReply failure(int code, std::string message, bool requestSent = false) {
  TransportReply reply;
  reply.error = TransportError{code, std::move(message), requestSent};
  return reply;
}

struct Pending {
  RequestId id = 0;
  URLRequest request;
  Completion completion;
  PostOptions options;
};

// One request in flight. The easy handle is declared last so that it is cleaned up before
// the header list and body it points to.
struct Transfer {
  RequestId id = 0;
  Completion completion;
  PostOptions options;
  HeaderList headers;
  Bytes body;
  std::string answer;
  bool tooLarge = false;
  bool requestSent = false;    // set once libcurl is about to send on a connection
  bool resendRefused = false;  // libcurl wanted to send an atMostOnce request a second time
  std::chrono::steady_clock::time_point startedAt;  // handed to the multi handle
  char errorBuffer[CURL_ERROR_SIZE] = {};
  EasyHandle easy;
};

// What the transport and its thread share.
struct State {
  explicit State(GatewayConfig gatewayConfig)
      : config(std::move(gatewayConfig)),
        pool(std::make_shared<CompletionPool>(Transport::kMaxCompletionThreads)) {}

  const GatewayConfig config;
  const std::shared_ptr<CompletionPool> pool;
  // TLS sessions, resumed by the next connection of any request of this transport (each
  // request has a new easy handle, which would otherwise start without any). Used on the
  // transport thread alone, so it needs no lock functions. Declared before `multi` so that it
  // is cleaned up after it.
  ShareHandle share;
  MultiHandle multi;

  Mutex mutex;
  std::condition_variable_any threadEnded;
  std::deque<Pending> queue QIPG_GUARDED_BY(mutex);
  std::vector<RequestId> cancels QIPG_GUARDED_BY(mutex);
  RequestId lastId QIPG_GUARDED_BY(mutex) = 0;
  bool stopping QIPG_GUARDED_BY(mutex) = false;
  // The thread looks at the queue itself: a request needs no wake-up.
  bool watching QIPG_GUARDED_BY(mutex) = false;
  std::atomic<bool> posted{false};  // a request was queued since the thread began watching
  bool threadRunning QIPG_GUARDED_BY(mutex) = false;
  std::thread::id threadId QIPG_GUARDED_BY(mutex);

  // Something for the thread to do: requests, cancellations or the end.
  bool hasWork() const QIPG_REQUIRES(mutex) {
    return !queue.empty() || !cancels.empty() || stopping;
  }
};

// Hands `reply` to `completion` on a completion thread; the completion is released there too.
void deliver(CompletionPool& pool, Completion completion, TransportReply reply) noexcept {
  if (!completion) return;
  struct Job {
    Job(Completion&& c, TransportReply&& r) : completion(std::move(c)), reply(std::move(r)) {}
    Completion completion;
    TransportReply reply;
  };
  std::shared_ptr<Job> job;
  try {
    // Moved from only once the memory is there.
    job = std::make_shared<Job>(std::move(completion), std::move(reply));
  } catch (...) {
    // Out of memory: better here than never.
    try {
      completion(failure(TransportError::kOwnReason, "out of memory"));
    } catch (...) {
    }
    return;
  }
  // A shared_ptr fits std::function's own storage: handing it over allocates nothing.
  pool.submit([job = std::move(job)] { job->completion(job->reply); });
}

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

// Called before every attempt to send the request, the retries libcurl makes on its own
// included.
int onRequestAboutToGo(void* user, char*, char*, int, int) {
  auto* transfer = static_cast<Transfer*>(user);
  if (transfer->requestSent && transfer->options.atMostOnce) {
    transfer->resendRefused = true;
    return CURL_PREREQFUNC_ABORT;
  }
  transfer->requestSent = true;
  return CURL_PREREQFUNC_OK;
}

}  // namespace

URLRequest formPostRequest(const Text& url, const std::string& body) {
  URLRequest request;
  request.url = url;
  request.httpMethod = "POST";
  request.setValueForHTTPHeaderField("application/x-www-form-urlencoded", "Content-Type");
  request.setValueForHTTPHeaderField(std::to_string(body.size()), "Content-Length");
  request.httpBody.assign(body.begin(), body.end());
  // No per-request limit: GatewayConfig's time-outs apply.
  request.timeoutInterval = 0;
  // The transport keeps no cache, so every post goes to the gateway anyway.
  request.cachePolicy = URLRequestCachePolicy::ReloadIgnoringLocalAndRemoteCacheData;
  return request;
}

namespace {

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

  // Runs `completion` here when it asked for the transfer thread, else on a completion thread.
  void complete(Completion completion, const PostOptions& options, TransportReply reply) {
    if (!options.completeOnTransferThread) {
      return deliver(*state_->pool, std::move(completion), std::move(reply));
    }
    try {
      if (completion) completion(reply);
    } catch (...) {
      // Swallowed, as on a completion thread.
    }
  }

  void run() {
    CURLM* multi = state_->multi.get();
    for (;;) {
      std::deque<Pending> incoming;
      std::vector<RequestId> cancels;
      bool stopping = false;
      {
        MutexLock lock(state_->mutex);
        incoming.swap(state_->queue);
        cancels.swap(state_->cancels);
        stopping = state_->stopping;
      }
      if (stopping) {
        failEverything(std::move(incoming));
        break;
      }
      for (Pending& pending : incoming) wait(std::move(pending));
      incoming.clear();
      for (RequestId id : cancels) cancel(id);
      startWaiting();
      int running = 0;
      curl_multi_perform(multi, &running);
      const bool answered = finishDone();
      startWaiting();
      if (answered && live_.empty() && waiting_.empty() && watchForPosts()) continue;
      curl_multi_poll(multi, nullptr, 0, kIdlePollMs, nullptr);
    }
    // The connections close here, while the process is surely whole: a transport that
    // outlives this thread may be released during the process's exit, after OpenSSL's own
    // exit handler, when closing a TLS connection would use what that handler freed.
    spare_.clear();
    {
      MutexLock lock(state_->mutex);
      state_->multi.reset();
      state_->share.reset();
      state_->threadRunning = false;
    }
    state_->threadEnded.notify_all();
  }

 private:
  void wait(Pending pending) {
    try {
      waiting_.emplace(pending.id, std::move(pending));
    } catch (...) {
      complete(std::move(pending.completion), pending.options,
               failure(TransportError::kOwnReason, "out of memory"));
    }
  }

  // Gives the longest-waiting requests a transfer while there is room.
  void startWaiting() {
    while (live_.size() < Transport::kMaxLiveTransfers && !waiting_.empty()) {
      auto first = waiting_.begin();
      Pending pending = std::move(first->second);
      waiting_.erase(first);
      start(std::move(pending));
    }
  }

  void cancel(RequestId id) {
    if (auto queued = waiting_.find(id); queued != waiting_.end()) {
      Pending pending = std::move(queued->second);
      waiting_.erase(queued);
      complete(std::move(pending.completion), pending.options,
               failure(TransportError::kCancelled, kCancelledMessage));
      return;
    }
    for (auto it = live_.begin(); it != live_.end(); ++it) {
      if (it->second->id != id) continue;
      std::unique_ptr<Transfer> transfer = std::move(it->second);
      live_.erase(it);
      // Removed before it is done, libcurl closes its connection.
      curl_multi_remove_handle(state_->multi.get(), transfer->easy.get());
      complete(std::move(transfer->completion), transfer->options,
               failure(TransportError::kCancelled, kCancelledMessage, transfer->requestSent));
      return;
    }
  }

  void start(Pending pending) {
    auto transfer = std::make_unique<Transfer>();
    transfer->id = pending.id;
    transfer->completion = std::move(pending.completion);
    transfer->options = pending.options;
    const URLRequest& request = pending.request;
    auto fail = [this, &transfer](const std::string& message) {
      complete(std::move(transfer->completion), transfer->options,
               failure(TransportError::kOwnReason, message));
    };
    if (!request.url) return fail("no URL");
    if (!isToken(request.httpMethod)) return fail("malformed HTTP method");
    std::optional<HeaderList> headers = headerLines(request);
    if (!headers) return fail("malformed header field");
    transfer->headers = std::move(*headers);
    transfer->body = std::move(pending.request.httpBody);
    transfer->easy = takeEasy();
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
    // An empty proxy turns off the proxy variables of the environment for this request.
    if (isLoopback(*request.url)) set(CURLOPT_PROXY, "");
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_ERRORBUFFER, transfer->errorBuffer);
    set(CURLOPT_WRITEFUNCTION, &onAnswerBytes);
    set(CURLOPT_WRITEDATA, static_cast<void*>(transfer.get()));
    set(CURLOPT_PREREQFUNCTION, &onRequestAboutToGo);
    set(CURLOPT_PREREQDATA, static_cast<void*>(transfer.get()));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (!config.caFile.empty()) set(CURLOPT_CAINFO, config.caFile.c_str());
    if (!config.pinnedPublicKey.empty()) {
      set(CURLOPT_PINNEDPUBLICKEY, config.pinnedPublicKey.c_str());
    }
    if (config.connectTimeoutMs > 0) set(CURLOPT_CONNECTTIMEOUT_MS, config.connectTimeoutMs);
    if (config.idleTimeoutMs > 0) {
      // Less than a byte a second for the whole idle time ends the transfer.
      set(CURLOPT_LOW_SPEED_LIMIT, 1L);
      set(CURLOPT_LOW_SPEED_TIME,
          static_cast<long>(std::ceil(
              std::min(static_cast<double>(config.idleTimeoutMs), kLongestTimeoutMs) / 1000.0)));
    }
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

    transfer->startedAt = std::chrono::steady_clock::now();
    if (curl_multi_add_handle(state_->multi.get(), easy) != CURLM_OK) {
      return fail("cannot start the transfer");
    }
    try {
      live_.emplace(easy, std::move(transfer));
    } catch (...) {
      curl_multi_remove_handle(state_->multi.get(), easy);
      fail("out of memory");
    }
  }

  // Looks at the queue for a short while, so that a host's next request finds the thread
  // awake; true when there is something to do. Only where another core can run the host.
  bool watchForPosts() {
    static const bool worthIt = std::thread::hardware_concurrency() > 1;
    if (!worthIt) return false;
    {
      MutexLock lock(state_->mutex);
      if (state_->hasWork()) return true;
      state_->watching = true;
      state_->posted.store(false, std::memory_order_relaxed);
    }
    const auto until = std::chrono::steady_clock::now() + kWatchAfterAnswer;
    while (!state_->posted.load(std::memory_order_acquire) &&
           std::chrono::steady_clock::now() < until) {
      std::this_thread::yield();
    }
    // A request queued from here on wakes the thread as usual.
    MutexLock lock(state_->mutex);
    state_->watching = false;
    return state_->hasWork();
  }

  // Hands every finished transfer to its completion; true when there was one.
  bool finishDone() {
    CURLM* multi = state_->multi.get();
    bool any = false;
    int left = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      CURL* easy = message->easy_handle;
      const CURLcode code = message->data.result;
      auto found = live_.find(easy);
      if (found == live_.end()) continue;
      std::unique_ptr<Transfer> transfer = std::move(found->second);
      live_.erase(found);
      curl_multi_remove_handle(multi, easy);
      finish(*transfer, code);
      recycle(std::move(transfer->easy));
      any = true;
    }
    return any;
  }

  // hasLoopbackHost for `url`, remembered for the last URL asked about: a transport posts to
  // the few endpoints of one gateway, so most calls need not read their URL again.
  bool isLoopback(const std::string& url) {
    if (url == lastURL_) return lastURLIsLoopback_;
    const bool loopback = hasLoopbackHost(url);
    try {
      lastURL_ = url;
      lastURLIsLoopback_ = loopback;
    } catch (...) {
      lastURL_.clear();  // "" is never a loopback URL, so the pair stays true
      lastURLIsLoopback_ = false;
    }
    return loopback;
  }

  // A handle that a finished transfer left, reset to libcurl's defaults, or a new one: reusing
  // one spares each call the handle's set-up and its buffers.
  EasyHandle takeEasy() {
    if (spare_.empty()) return EasyHandle(curl_easy_init());
    EasyHandle easy = std::move(spare_.back());
    spare_.pop_back();
    return easy;
  }

  void recycle(EasyHandle easy) noexcept {
    if (!easy || spare_.size() >= kSpareHandles) return;
    // Reset at once, so that a kept handle points to nothing of the transfer it served.
    curl_easy_reset(easy.get());
    try {
      spare_.push_back(std::move(easy));
    } catch (...) {
      // Not kept: cleaned up here.
    }
  }

  // The transfer's timings and sizes, from what libcurl measured.
  static void measure(Transfer& transfer, TransportReply& reply) {
    CURL* easy = transfer.easy.get();
    curl_off_t sent = 0, answered = 0, up = 0, down = 0;
    curl_easy_getinfo(easy, CURLINFO_PRETRANSFER_TIME_T, &sent);
    curl_easy_getinfo(easy, CURLINFO_STARTTRANSFER_TIME_T, &answered);
    curl_easy_getinfo(easy, CURLINFO_SIZE_UPLOAD_T, &up);
    curl_easy_getinfo(easy, CURLINFO_SIZE_DOWNLOAD_T, &down);
    if (transfer.requestSent) {
      reply.sentAt = transfer.startedAt + std::chrono::microseconds(sent);
    }
    if (reply.httpStatus != 0) {
      reply.answeredAt = transfer.startedAt + std::chrono::microseconds(answered);
    }
    reply.bytesSent = up > 0 ? static_cast<std::uint64_t>(up) : 0;
    reply.bytesReceived = down > 0 ? static_cast<std::uint64_t>(down) : 0;
  }

  void finish(Transfer& transfer, CURLcode code) {
    TransportReply reply;
    curl_easy_getinfo(transfer.easy.get(), CURLINFO_RESPONSE_CODE, &reply.httpStatus);
    measure(transfer, reply);
    if (transfer.tooLarge) {
      reply.error = TransportError{TransportError::kOwnReason, "answer larger than 1 MiB", true};
    } else if (transfer.resendRefused) {
      reply.error = TransportError{TransportError::kOwnReason,
                                   "the connection closed after the request was sent, before any "
                                   "answer; the request was not sent again",
                                   true};
    } else if (code != CURLE_OK) {
      std::string message = curl_easy_strerror(code);
      if (transfer.errorBuffer[0] != '\0') message += std::string(": ") + transfer.errorBuffer;
      for (char& c : message) {
        if (c == '\n' || c == '\r') c = ' ';
      }
      reply.error = TransportError{code, std::move(message), transfer.requestSent};
    } else if (isValidUtf8(transfer.answer)) {
      reply.answer = std::move(transfer.answer);
    }
    complete(std::move(transfer.completion), transfer.options, std::move(reply));
  }

  // Completes whatever is under way, waiting or queued with the shut-down error.
  void failEverything(std::deque<Pending> incoming) {
    for (auto& [easy, transfer] : live_) {
      curl_multi_remove_handle(state_->multi.get(), easy);
      complete(std::move(transfer->completion), transfer->options,
               failure(TransportError::kShutDown, kShutDownMessage, transfer->requestSent));
    }
    live_.clear();
    for (auto& [id, pending] : waiting_) {
      complete(std::move(pending.completion), pending.options,
               failure(TransportError::kShutDown, kShutDownMessage));
    }
    waiting_.clear();
    for (Pending& pending : incoming) {
      complete(std::move(pending.completion), pending.options,
               failure(TransportError::kShutDown, kShutDownMessage));
    }
  }

  // As many handles as calls that usually run side by side on one host's connections.
  static constexpr std::size_t kSpareHandles = kMaxHostConnections;

  std::shared_ptr<State> state_;
  std::map<RequestId, Pending> waiting_;  // by id, so in the order posted
  std::map<CURL*, std::unique_ptr<Transfer>> live_;
  std::string lastURL_;
  bool lastURLIsLoopback_ = false;
  std::vector<EasyHandle> spare_;
};

class CurlTransport final : public Transport {
 public:
  explicit CurlTransport(std::shared_ptr<State> state) : state_(std::move(state)) {}
  ~CurlTransport() override {
    shutdown();
    state_->pool->close();
  }
  CurlTransport(const CurlTransport&) = delete;
  CurlTransport& operator=(const CurlTransport&) = delete;

  RequestId send(URLRequest request, Completion completion, PostOptions options) override {
    MutexLock lock(state_->mutex);
    Pending pending{++state_->lastId, std::move(request), std::move(completion), options};
    const RequestId id = pending.id;
    TransportReply refusal = failure(TransportError::kShutDown, kShutDownMessage);
    if (!state_->stopping) {
      try {
        if (!thread_.joinable()) {
          thread_ = std::thread([state = state_] { TransferRunner(state).run(); });
          state_->threadRunning = true;
          state_->threadId = thread_.get_id();
        }
        state_->queue.push_back(std::move(pending));
        if (state_->watching) {
          state_->posted.store(true, std::memory_order_release);
        } else {
          curl_multi_wakeup(state_->multi.get());
        }
        return id;
      } catch (...) {
        refusal = failure(TransportError::kOwnReason, "cannot start the transport thread");
      }
    }
    lock.unlock();
    deliver(*state_->pool, std::move(pending.completion), std::move(refusal));
    return id;
  }

  void cancel(RequestId id) override {
    MutexLock lock(state_->mutex);
    if (state_->stopping || id == 0 || id > state_->lastId) return;
    try {
      state_->cancels.push_back(id);
    } catch (...) {
      return;  // out of memory: the request simply runs on
    }
    curl_multi_wakeup(state_->multi.get());
  }

  void shutdown() override {
    std::thread thread;
    bool onTransferThread = false;
    {
      MutexLock lock(state_->mutex);
      state_->stopping = true;
      thread = std::move(thread_);
      onTransferThread = state_->threadRunning && state_->threadId == std::this_thread::get_id();
      curl_multi_wakeup(state_->multi.get());
      if (!thread.joinable() && !onTransferThread) {
        // Another caller is joining the thread: wait with it until the thread has ended.
        while (state_->threadRunning) state_->threadEnded.wait(lock);
      }
    }
    if (onTransferThread) {
      // Only a host object released there could bring us here; let the thread end alone.
      if (thread.joinable()) thread.detach();
      return;
    }
    if (thread.joinable()) thread.join();
    state_->pool->waitIdle();
  }

 private:
  std::shared_ptr<State> state_;
  std::thread thread_ QIPG_GUARDED_BY(state_->mutex);  // empty once shut down
};

}  // namespace

namespace {

// Every transport of the process, so that an exit with requests in flight stops them before
// OpenSSL's exit handler frees what their TLS connections use (libcurl registers that handler
// when it starts, so ours, registered after it, runs first).
struct LiveTransports {
  std::mutex mutex;
  std::vector<std::weak_ptr<Transport>> transports;
};

LiveTransports& liveTransports() {
  static auto* live = new LiveTransports;  // never destroyed: exit handlers use it
  return *live;
}

void shutDownLiveTransports() {
  std::vector<std::shared_ptr<Transport>> alive;
  {
    LiveTransports& live = liveTransports();
    std::lock_guard lock(live.mutex);
    for (const std::weak_ptr<Transport>& weak : live.transports) {
      if (auto transport = weak.lock()) alive.push_back(std::move(transport));
    }
  }
  // Outside the lock: a transport released on its own transfer thread takes it.
  for (const auto& transport : alive) transport->shutdown();
}

bool startLibcurl() {
  if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return false;
  return std::atexit(shutDownLiveTransports) == 0;
}

void track(const std::shared_ptr<Transport>& transport) {
  LiveTransports& live = liveTransports();
  std::lock_guard lock(live.mutex);
  std::erase_if(live.transports, [](const auto& weak) { return weak.expired(); });
  live.transports.push_back(transport);
}

}  // namespace

std::shared_ptr<Transport> Transport::create(const GatewayConfig& config) {
  static const bool started = startLibcurl();
  if (!started) return nullptr;
  try {
    auto state = std::make_shared<State>(config);
    state->multi.reset(curl_multi_init());
    state->share.reset(curl_share_init());
    if (state->share) {
      curl_share_setopt(state->share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }
    if (!state->multi) return nullptr;
    curl_multi_setopt(state->multi.get(), CURLMOPT_MAXCONNECTS, kMaxCachedConnections);
    curl_multi_setopt(state->multi.get(), CURLMOPT_MAX_HOST_CONNECTIONS, kMaxHostConnections);
    auto transport = std::make_shared<CurlTransport>(std::move(state));
    track(transport);
    return transport;
  } catch (...) {
    return nullptr;  // no memory, or no completion thread
  }
}

}  // namespace qipg::internal
