// Qt's event loop as the payment page's run loop: repeating timers and tasks posted to the
// GUI thread, and the application the windows need.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "qipg/PaymentPagePorts.h"

namespace qipg::internal {

// The process-wide scheduler of repeating timers on the GUI thread. Lives until the process
// ends; a timer that is never invalidated keeps its action until then.
std::shared_ptr<TimerSchedulerPort> qtTimerScheduler();

// Runs `task` once from the GUI thread's event loop; callable from any thread. Dropped when
// there is no application.
void postToGuiThread(std::function<void()> task);

// True when a QApplication runs or could be created (a display answers); creates it if need
// be. Else false with the reason in `*error`.
bool ensureQtApplication(std::string* error);

// Sets the engine's environment (sandbox off as root, no GPU without one) before it starts.
void prepareQtWebEngineEnvironment();

}  // namespace qipg::internal
