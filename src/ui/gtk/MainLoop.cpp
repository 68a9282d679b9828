#include "ui/gtk/MainLoop.h"

#include <glib.h>

#include <cmath>
#include <utility>

namespace qipg::internal {
namespace {

// What a timer's source and its handle share. The source owns the action until it is removed;
// removing it clears the action, so what the action captures is released at once.
struct TimerState {
  std::function<void()> action;
  guint sourceId = 0;
};

class MainLoopTimer final : public TimerPort {
 public:
  explicit MainLoopTimer(std::shared_ptr<TimerState> state) : state_(std::move(state)) {}

  void invalidate() override {
    if (state_->sourceId != 0) g_source_remove(state_->sourceId);  // clears the state
  }
  bool isValid() const override { return state_->sourceId != 0; }

 private:
  std::shared_ptr<TimerState> state_;
};

gboolean onTimerTick(gpointer data) {
  // Copies: the action may invalidate its own timer, which destroys the stored one.
  std::shared_ptr<TimerState> state = *static_cast<std::shared_ptr<TimerState>*>(data);
  std::function<void()> action = state->action;
  if (action) action();
  return state->sourceId != 0 ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

void onTimerRemoved(gpointer data) {
  auto* holder = static_cast<std::shared_ptr<TimerState>*>(data);
  (*holder)->sourceId = 0;
  (*holder)->action = nullptr;
  delete holder;
}

class MainLoopTimerScheduler final : public TimerSchedulerPort {
 public:
  std::shared_ptr<TimerPort> scheduleRepeating(double intervalSeconds,
                                               std::function<void()> action) override {
    auto state = std::make_shared<TimerState>();
    state->action = std::move(action);
    const double ms = std::round(intervalSeconds * 1000.0);
    const guint interval = ms < 1.0 ? 1u : ms > 3.6e6 ? 3600000u : static_cast<guint>(ms);
    state->sourceId = g_timeout_add_full(G_PRIORITY_DEFAULT, interval, &onTimerTick,
                                         new std::shared_ptr<TimerState>(state), &onTimerRemoved);
    return std::make_shared<MainLoopTimer>(std::move(state));
  }
};

gboolean onIdle(gpointer data) {
  (*static_cast<std::function<void()>*>(data))();
  return G_SOURCE_REMOVE;
}

void deleteTask(gpointer data) { delete static_cast<std::function<void()>*>(data); }

}  // namespace

std::shared_ptr<TimerSchedulerPort> mainLoopTimerScheduler() {
  static const std::shared_ptr<TimerSchedulerPort> scheduler =
      std::make_shared<MainLoopTimerScheduler>();
  return scheduler;
}

void runWhenIdle(std::function<void()> task) {
  g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, &onIdle, new std::function<void()>(std::move(task)),
                  &deleteTask);
}

}  // namespace qipg::internal
