#include "Connections.h"

#include <sys/socket.h>

#include <utility>

namespace qipg::sandbox::internal {

// ---------------------------------------------------------------- ConnectionPool

void ConnectionPool::enqueue(std::function<void()> task) {
  std::lock_guard lock(mutex_);
  tasks_.push_back(std::move(task));
  if (tasks_.size() > idle_ && threads_.size() < kMaxThreads) {
    try {
      threads_.emplace_back([this] { work(); });
      return;
    } catch (...) {
      // No thread to be had: the ones there are take the task in turn.
    }
  }
  wake_.notify_one();
}

void ConnectionPool::shutdown() {
  std::vector<std::thread> threads;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    threads.swap(threads_);
  }
  wake_.notify_all();
  for (std::thread& thread : threads) thread.join();
}

void ConnectionPool::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    ++idle_;
    wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
    --idle_;
    if (tasks_.empty()) return;
    std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    lock.unlock();
    task();
    task = nullptr;
    lock.lock();
  }
}

// ---------------------------------------------------------------- ReadDeadlines

namespace {

// The connection this thread serves (httplib serves one connection per thread at a time).
thread_local SSL* servedHere = nullptr;

int contextIndex() {
  static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
  return index;
}

}  // namespace

// Each connection carries a pointer to its ReadDeadlines, so that freeing it ends its entry.
int ReadDeadlines::connectionIndex() {
  static const int index = CRYPTO_get_ex_new_index(CRYPTO_EX_INDEX_SSL, 0, nullptr, nullptr,
                                                   nullptr, &ReadDeadlines::onFree);
  return index;
}

ReadDeadlines::ReadDeadlines(std::chrono::milliseconds limit)
    : limit_(limit), thread_([this] { patrol(); }) {}

ReadDeadlines::~ReadDeadlines() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void ReadDeadlines::watch(SSL_CTX* context) {
  connectionIndex();
  SSL_CTX_set_ex_data(context, contextIndex(), this);
  SSL_CTX_set_info_callback(context, &ReadDeadlines::onHandshake);
}

void ReadDeadlines::onHandshake(const SSL* constSsl, int where, int) {
  if ((where & SSL_CB_HANDSHAKE_START) == 0) return;
  SSL* ssl = const_cast<SSL*>(constSsl);  // the callback's own SSL, passed as const
  auto* self =
      static_cast<ReadDeadlines*>(SSL_CTX_get_ex_data(SSL_get_SSL_CTX(ssl), contextIndex()));
  // Only the first handshake starts the clock; a renegotiation changes nothing.
  if (self == nullptr || SSL_get_ex_data(ssl, connectionIndex()) != nullptr) return;
  SSL_set_ex_data(ssl, connectionIndex(), self);
  servedHere = ssl;
  self->arm(ssl);
}

void ReadDeadlines::onFree(void* parent, void* pointer, CRYPTO_EX_DATA*, int, long, void*) {
  if (pointer != nullptr) static_cast<ReadDeadlines*>(pointer)->forget(static_cast<SSL*>(parent));
}

void ReadDeadlines::requestRead() {
  if (servedHere != nullptr) forget(servedHere);
}

void ReadDeadlines::answered() {
  if (servedHere != nullptr) arm(servedHere);
}

void ReadDeadlines::arm(SSL* ssl) {
  std::lock_guard lock(mutex_);
  due_[ssl] = Entry{SSL_get_fd(ssl), std::chrono::steady_clock::now() + limit_};
}

void ReadDeadlines::forget(SSL* ssl) {
  std::lock_guard lock(mutex_);
  due_.erase(ssl);
}

void ReadDeadlines::patrol() {
  constexpr auto kTick = std::chrono::milliseconds(200);
  std::unique_lock lock(mutex_);
  while (!wake_.wait_for(lock, kTick, [this] { return stopping_; })) {
    const auto now = std::chrono::steady_clock::now();
    for (auto it = due_.begin(); it != due_.end();) {
      if (it->second.due > now) {
        ++it;
        continue;
      }
      // The socket is still open: its SSL, whose freeing would erase this entry under the same
      // lock, is freed before the socket is closed.
      ::shutdown(it->second.fd, SHUT_RDWR);
      it = due_.erase(it);
    }
  }
}

}  // namespace qipg::sandbox::internal
