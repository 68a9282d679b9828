#include "ui/qt/EventLoop.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QApplication>
#include <QLoggingCategory>
#include <QMetaObject>
#include <QTimer>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "ui/window/Session.h"

namespace qipg::internal {
namespace {

// What a timer and its handle share. Invalidating deletes the QTimer (and with it the
// connection holding this state) and clears the action at once.
struct TimerState {
  std::function<void()> action;
  QTimer* timer = nullptr;
};

class QtTimer final : public TimerPort {
 public:
  explicit QtTimer(std::shared_ptr<TimerState> state) : state_(std::move(state)) {}
  void invalidate() override {
    if (state_->timer == nullptr) return;
    state_->timer->stop();
    state_->timer->deleteLater();
    state_->timer = nullptr;
    state_->action = nullptr;
  }
  bool isValid() const override { return state_->timer != nullptr; }

 private:
  std::shared_ptr<TimerState> state_;
};

class QtTimerScheduler final : public TimerSchedulerPort {
 public:
  std::shared_ptr<TimerPort> scheduleRepeating(double intervalSeconds,
                                               std::function<void()> action) override {
    auto state = std::make_shared<TimerState>();
    state->action = std::move(action);
    state->timer = new QTimer();
    const double ms = std::round(intervalSeconds * 1000.0);
    state->timer->setInterval(ms < 1.0 ? 1 : ms > 3.6e6 ? 3600000 : static_cast<int>(ms));
    QObject::connect(state->timer, &QTimer::timeout, [raw = state.get(), state] {
      // A copy: the action may invalidate its own timer, which clears the stored one.
      std::function<void()> action = raw->action;
      if (action) action();
    });
    state->timer->start();
    return std::make_shared<QtTimer>(std::move(state));
  }
};

// A display for the xcb platform: $DISPLAY's local socket answers (or a remote display is
// named, which Qt will try).
bool displayAnswers() {
  if (const char* platform = std::getenv("QT_QPA_PLATFORM"); platform && *platform) return true;
  if (const char* wayland = std::getenv("WAYLAND_DISPLAY"); wayland && *wayland) return true;
  const char* display = std::getenv("DISPLAY");
  if (display == nullptr || *display == '\0') return false;
  if (display[0] != ':') return true;
  const std::string path =
      "/tmp/.X11-unix/X" + std::string(display + 1).substr(0, std::strcspn(display + 1, "."));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool ok = fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  if (fd >= 0) close(fd);
  return ok;
}

// The filter in force before ours, which ours passes every category to first.
QLoggingCategory::CategoryFilter hostFilter = nullptr;

// Qt WebEngine describes its GL set-up at every start ("qt.webenginecontext", info level);
// only its warnings are of use to a merchant.
void withoutEngineSetupNotes(QLoggingCategory* category) {
  if (hostFilter != nullptr) hostFilter(category);
  if (qstrcmp(category->categoryName(), "qt.webenginecontext") == 0) {
    category->setEnabled(QtInfoMsg, false);
    category->setEnabled(QtDebugMsg, false);
  }
}

}  // namespace

std::shared_ptr<TimerSchedulerPort> qtTimerScheduler() {
  static const std::shared_ptr<TimerSchedulerPort> scheduler =
      std::make_shared<QtTimerScheduler>();
  return scheduler;
}

void postToGuiThread(std::function<void()> task) {
  if (QCoreApplication* app = QCoreApplication::instance()) {
    QMetaObject::invokeMethod(app, std::move(task), Qt::QueuedConnection);
  }
}

void prepareQtWebEngineEnvironment() {
  // Chromium refuses to run its sandbox as root (CI containers have no user namespaces).
  if (runningAsRoot()) setEnvironmentDefault("QTWEBENGINE_DISABLE_SANDBOX", "1");
  // Chromium logs on stderr what it finds wrong, certificate dumps included, before the window
  // has decided (a certificate our trusted CA vouches for is accepted after such a dump): only
  // its fatal messages stay. The window reports what matters through its own events; a host
  // that sets QTWEBENGINE_CHROMIUM_FLAGS itself chooses its own.
  const bool gpu = gpuAvailable();
  setEnvironmentDefault("QTWEBENGINE_CHROMIUM_FLAGS",
                        gpu ? "--log-level=3" : "--log-level=3 --disable-gpu");
  // Without a GPU, Qt Quick (which shows the web view) would render through a software OpenGL
  // (llvmpipe), whose code and buffers cost about 38 MiB of the window's memory; its own
  // software renderer shows the same page. A host that sets QT_QUICK_BACKEND chooses itself.
  if (!gpu) setEnvironmentDefault("QT_QUICK_BACKEND", "software");
  static const bool filtered = [] {
    hostFilter = QLoggingCategory::installFilter(withoutEngineSetupNotes);
    return true;
  }();
  (void)filtered;
}

bool ensureQtApplication(std::string* error) {
  if (QCoreApplication* app = QCoreApplication::instance()) {
    if (qobject_cast<QApplication*>(app) != nullptr) return true;
    if (error != nullptr) *error = "the payment window needs a QApplication, not a QCoreApplication";
    return false;
  }
  if (!displayAnswers()) {
    if (error != nullptr) {
      *error = "cannot open a display for the payment window (set DISPLAY or WAYLAND_DISPLAY)";
    }
    return false;
  }
  prepareQtWebEngineEnvironment();
  QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
  static int argc = 1;
  static char name[] = "qipg";
  static char* argv[] = {name, nullptr};
  new QApplication(argc, argv);  // lives until the process ends
  return true;
}

}  // namespace qipg::internal
