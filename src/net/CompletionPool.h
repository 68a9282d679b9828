// A small bounded pool of threads that run a transport's completions, so that a slow
// completion holds back neither the transfers nor the other completions. The first thread
// starts with the pool and lives until close(); more start when a task finds no idle thread,
// up to the bound, and live until close(). They are detached: each keeps what it shares with
// the pool alive, so the pool may be released from its own thread.
//
// Thread-safety: every member may be called from any thread, also from a task.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace qipg::internal {

class CompletionPool {
 public:
  // Starts the first thread; throws std::system_error when it cannot.
  explicit CompletionPool(std::size_t maxThreads);
  ~CompletionPool();
  CompletionPool(const CompletionPool&) = delete;
  CompletionPool& operator=(const CompletionPool&) = delete;

  // Queues `task` for a pool thread; it never runs on the calling thread. When no further
  // thread can be started the threads there are take it in turn; when memory runs out the
  // call waits for them to make room. Only after close(), with no thread left and none to
  // start, or from a pool thread that cannot queue it, does a task run at once where it was
  // submitted. Exceptions thrown by the task are swallowed. The task is destroyed on the
  // thread that ran it.
  void submit(std::function<void()> task) noexcept;

  // Waits until every task queued so far (and any they queue) has run. Returns at once when
  // called from a pool thread.
  void waitIdle();

  // Lets the threads finish the queued tasks and end, and waits until they have (returns at
  // once from a pool thread). Later tasks still run, on a thread started for them.
  void close();

 private:
  struct Shared;
  static void work(std::shared_ptr<Shared> shared);
  static void runHere(std::function<void()>& task) noexcept;

  std::shared_ptr<Shared> shared_;
};

}  // namespace qipg::internal
