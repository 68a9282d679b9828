// Fakes of the payment page's ports: a scripted web view, a bar view that records its
// progress bars, a manual clock for the repeating timers, and a presenter and a delegate that
// write what happens, in order, into one shared event log.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qipg/IPGPaymentControllerDelegate.h"
#include "qipg/PaymentPagePorts.h"

namespace qipg::testing {

using EventLog = std::vector<std::string>;

struct FakeWebView : WebViewPort {
  explicit FakeWebView(std::shared_ptr<EventLog> l) : log(std::move(l)) {}
  void loadRequest(const URLRequest& request) override { loaded.push_back(request); }
  void stopLoading() override { log->push_back("stopLoading"); }
  Text currentURL() const override { return address; }
  void evaluateJavaScript(const std::string& script,
                          std::function<void(const Text&)> completion) override {
    scripts.push_back(script);
    pending.push_back(std::move(completion));
  }
  // Completes the oldest evaluation with `result`.
  void answer(const Text& result) {
    auto completion = std::move(pending.front());
    pending.erase(pending.begin());
    completion(result);
  }

  std::shared_ptr<EventLog> log;
  Text address;
  std::vector<URLRequest> loaded;
  std::vector<std::string> scripts;
  std::vector<std::function<void(const Text&)>> pending;
};

struct FakeProgressBar : ProgressBarPort {
  void setProgress(float value) override { progressValue = value; }
  float progress() const override { return progressValue; }
  void setHidden(bool value) override { hidden = value; }
  bool isHidden() const override { return hidden; }
  void setProgressViewStyle(ProgressViewStyle) override {}
  void setTintColor(const Color&) override {}
  void setAutoresizingMask(unsigned) override {}
  void setFrame(const Rect& value) override { frame = value; }

  float progressValue = 0.0f;
  bool hidden = false;
  Rect frame;
};

struct FakeBarView : BarViewPort {
  Rect bounds() const override { return {0, 0, 390, 44}; }
  std::shared_ptr<ProgressBarPort> addProgressBar() override {
    bars.push_back(std::make_shared<FakeProgressBar>());
    return bars.back();
  }
  FakeProgressBar& newest() { return *bars.back(); }
  std::vector<std::shared_ptr<FakeProgressBar>> bars;
};

struct FakeLabel : LabelPort {
  void setText(const Text& value) override { text = value; }
  Text text = "a title from elsewhere";
};

// Timers that fire only when the test advances the clock, one 0.1 s tick at a time, in the
// order they were scheduled.
struct ManualClock : TimerSchedulerPort {
  struct Timer : TimerPort {
    explicit Timer(std::function<void()> a) : action(std::move(a)) {}
    void invalidate() override { action = nullptr; }
    bool isValid() const override { return action != nullptr; }
    std::function<void()> action;
  };

  // The run loop ends: every timer stops and releases what its action holds.
  ~ManualClock() override { invalidateAll(); }
  void invalidateAll() {
    for (const auto& timer : timers) timer->invalidate();
  }
  std::shared_ptr<TimerPort> scheduleRepeating(double intervalSeconds,
                                               std::function<void()> action) override {
    intervals.push_back(intervalSeconds);
    timers.push_back(std::make_shared<Timer>(std::move(action)));
    return timers.back();
  }
  void advance(int ticks) {
    for (int i = 0; i < ticks; ++i) {
      for (const auto& timer : std::vector(timers)) {
        if (auto action = timer->action) action();
      }
    }
  }
  int running() const {
    int count = 0;
    for (const auto& timer : timers) count += timer->isValid() ? 1 : 0;
    return count;
  }

  std::vector<double> intervals;
  std::vector<std::shared_ptr<Timer>> timers;
};

// Records each dismissal and keeps its completion until the test lets the animation end.
struct FakePresenter : PresenterPort {
  explicit FakePresenter(std::shared_ptr<EventLog> l) : log(std::move(l)) {}
  void dismiss(bool animated, std::function<void()> completion) override {
    log->push_back(animated ? "dismiss(animated)" : "dismiss");
    pending.push_back(std::move(completion));
  }
  void finishDismissals() {
    auto completions = std::move(pending);
    pending.clear();
    for (auto& completion : completions) completion();
  }
  std::shared_ptr<EventLog> log;
  std::vector<std::function<void()>> pending;
};

struct RecordingDelegate : IPGPaymentControllerDelegate {
  explicit RecordingDelegate(std::shared_ptr<EventLog> l) : log(std::move(l)) {}
  void didTransactionComplete(const PaymentResponse& response) override {
    log->push_back("complete");
    responses.push_back(response);
  }
  void didTransactionCancelledByUser() override { log->push_back("cancelled"); }
  std::shared_ptr<EventLog> log;
  std::vector<PaymentResponse> responses;
};

}  // namespace qipg::testing
