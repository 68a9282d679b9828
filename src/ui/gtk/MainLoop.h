// The GLib main loop as the payment page's run loop: repeating timers and idle callbacks on
// the default main context (the GTK main thread).
#pragma once

#include <functional>
#include <memory>

#include "qipg/PaymentPagePorts.h"

namespace qipg::internal {

// The process-wide scheduler of repeating timers on the default main context. Lives until the
// process ends; a timer that is never invalidated keeps its action until then.
std::shared_ptr<TimerSchedulerPort> mainLoopTimerScheduler();

// Runs `task` once from an idle callback of the default main context.
void runWhenIdle(std::function<void()> task);

}  // namespace qipg::internal
