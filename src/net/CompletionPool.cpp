#include "net/CompletionPool.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace qipg::internal {

struct CompletionPool::Shared {
  explicit Shared(std::size_t limit) : maxThreads(limit) {}

  bool onPoolThread() const {  // with mutex held
    return std::find(threadIds.begin(), threadIds.end(), std::this_thread::get_id()) !=
           threadIds.end();
  }

  const std::size_t maxThreads;
  std::mutex mutex;
  std::condition_variable wake;     // a task was queued, or closing
  std::condition_variable settled;  // idle, or a thread ended
  std::deque<std::function<void()>> tasks;
  std::vector<std::thread::id> threadIds;
  std::size_t idle = 0;  // threads waiting for a task
  std::size_t busy = 0;  // tasks running
  bool closing = false;
};

CompletionPool::CompletionPool(std::size_t maxThreads)
    : shared_(std::make_shared<Shared>(std::max<std::size_t>(maxThreads, 1))) {
  std::lock_guard lock(shared_->mutex);
  shared_->threadIds.reserve(1);
  std::thread thread(&CompletionPool::work, shared_);
  shared_->threadIds.push_back(thread.get_id());
  thread.detach();
}

CompletionPool::~CompletionPool() { close(); }

void CompletionPool::work(std::shared_ptr<Shared> shared) {
  std::unique_lock lock(shared->mutex);
  for (;;) {
    ++shared->idle;
    shared->wake.wait(lock, [&] { return !shared->tasks.empty() || shared->closing; });
    --shared->idle;
    if (shared->tasks.empty()) break;
    std::function<void()> task = std::move(shared->tasks.front());
    shared->tasks.pop_front();
    ++shared->busy;
    lock.unlock();
    try {
      task();
    } catch (...) {
      // A completion's failure is its own; the pool goes on.
    }
    task = nullptr;  // what the task holds is released here, outside the lock
    lock.lock();
    --shared->busy;
    if (shared->tasks.empty() && shared->busy == 0) shared->settled.notify_all();
  }
  auto& ids = shared->threadIds;
  ids.erase(std::find(ids.begin(), ids.end(), std::this_thread::get_id()));
  shared->settled.notify_all();
}

void CompletionPool::submit(std::function<void()> task) noexcept {
  Shared& shared = *shared_;
  std::unique_lock lock(shared.mutex);
  for (;;) {
    try {
      shared.tasks.push_back(std::move(task));
      break;
    } catch (...) {
      // No memory to queue it: wait until the threads have taken what is queued (a task
      // moved from only when the push succeeded, so it is still whole).
      if (shared.threadIds.empty() || shared.onPoolThread()) {
        lock.unlock();
        return runHere(task);
      }
      shared.settled.wait_for(lock, std::chrono::milliseconds(1));
    }
  }
  if (shared.idle < shared.tasks.size() &&
      (shared.threadIds.size() < shared.maxThreads || shared.closing)) {
    try {
      shared.threadIds.reserve(shared.threadIds.size() + 1);
      std::thread thread(&CompletionPool::work, shared_);
      shared.threadIds.push_back(thread.get_id());
      thread.detach();
    } catch (...) {
      // The threads there are will get to it.
    }
  }
  if (!shared.threadIds.empty()) {
    shared.wake.notify_one();
    return;
  }
  // Closed, and no thread could be started for it.
  std::function<void()> orphan = std::move(shared.tasks.back());
  shared.tasks.pop_back();
  lock.unlock();
  runHere(orphan);
}

void CompletionPool::runHere(std::function<void()>& task) noexcept {
  try {
    if (task) task();
  } catch (...) {
  }
}

void CompletionPool::waitIdle() {
  Shared& shared = *shared_;
  std::unique_lock lock(shared.mutex);
  if (shared.onPoolThread()) return;
  shared.settled.wait(lock, [&] { return shared.tasks.empty() && shared.busy == 0; });
}

void CompletionPool::close() {
  Shared& shared = *shared_;
  std::unique_lock lock(shared.mutex);
  shared.closing = true;
  shared.wake.notify_all();
  if (shared.onPoolThread()) return;
  shared.settled.wait(lock, [&] { return shared.threadIds.empty(); });
}

}  // namespace qipg::internal
