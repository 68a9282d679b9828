// How the sandbox keeps serving while peers misbehave: a pool that gives every connection a
// thread of its own (up to a bound), so slow or idle peers never leave a real call waiting, and
// a deadline for reading each request, TLS handshake included, so a peer that trickles its
// bytes cannot hold a thread for longer than that.
//
// Thread-safe.
#pragma once

#include <httplib.h>
#include <openssl/ssl.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace qipg::sandbox::internal {

// httplib's task queue: a connection's work starts at once on an idle thread or a new one, up
// to kMaxThreads; beyond that it waits for a free one.
class ConnectionPool final : public httplib::TaskQueue {
 public:
  static constexpr std::size_t kMaxThreads = 1024;

  ~ConnectionPool() override { shutdown(); }
  void enqueue(std::function<void()> task) override;
  void shutdown() override;

 private:
  void work();

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> tasks_;
  std::vector<std::thread> threads_;
  std::size_t idle_ = 0;
  bool stopping_ = false;
};

// Deadlines for reading requests. Each connection's TLS handshake and first request, and each
// later request on it, must arrive in full within `limit`; a connection that is late is shut
// down, which ends whatever read its thread is blocked in. The deadline is lifted while a
// request is being answered (a handler may rightly take long) and set again for the next one.
class ReadDeadlines {
 public:
  explicit ReadDeadlines(std::chrono::milliseconds limit);
  ~ReadDeadlines();
  ReadDeadlines(const ReadDeadlines&) = delete;
  ReadDeadlines& operator=(const ReadDeadlines&) = delete;

  // Sets the clock running for every connection of `context` as its handshake starts. Call
  // once, before the server accepts.
  void watch(SSL_CTX* context);
  // On the thread serving a connection: its request is in (lift the deadline) / its answer is
  // out (the next request is due within the limit).
  void requestRead();
  void answered();

 private:
  struct Entry {
    int fd;
    std::chrono::steady_clock::time_point due;
  };
  static int connectionIndex();
  static void onHandshake(const SSL* ssl, int where, int ret);
  static void onFree(void* parent, void* pointer, CRYPTO_EX_DATA* data, int index, long argl,
                     void* argp);
  void arm(SSL* ssl);
  void forget(SSL* ssl);
  void patrol();

  const std::chrono::milliseconds limit_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::map<SSL*, Entry> due_;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace qipg::sandbox::internal
