/// @file PaymentPagePorts.h
/// The small interfaces through which the payment page (WebviewController) reaches a
/// user-interface toolkit: a web view, a bar view that hosts progress bars, a progress bar, a
/// label, a repeating-timer scheduler and the presenter that can dismiss the page.
///
/// The controller holds no toolkit code; an adapter implements these for a real toolkit
/// (libqipg-gtk implements them on GTK4 and WebKitGTK, see <qipg/PaymentWindow.h>) and tests
/// implement them with fakes and a manual clock.
///
/// Thread-safety: none. Every call is made on the user-interface thread, and implementations
/// call the controller back on that same thread.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "qipg/Export.h"
#include "qipg/Types.h"
#include "qipg/URLRequest.h"

namespace qipg {

/// A rectangle in a view's own coordinates (points; pixels in the GTK adapter).
struct QIPG_EXPORT Rect {
  double x = 0.0;       ///< left edge
  double y = 0.0;       ///< top edge
  double width = 0.0;   ///< width
  double height = 0.0;  ///< height
  /// Equal when all four values are.
  bool operator==(const Rect&) const = default;
};

/// An RGBA colour, each component in [0, 1].
struct QIPG_EXPORT Color {
  double red = 0.0;    ///< red component
  double green = 0.0;  ///< green component
  double blue = 0.0;   ///< blue component
  double alpha = 1.0;  ///< opacity: 1 is opaque
  /// Equal when all four components are.
  bool operator==(const Color&) const = default;

  /// The platform's standard blue (#007AFF), the tint of the progress line.
  static constexpr Color systemBlue() { return {0.0, 122.0 / 255.0, 1.0, 1.0}; }
};

/// How a subview follows its superview's size changes; values combine with |.
enum AutoresizingMask : unsigned {
  AutoresizingNone = 0,
  AutoresizingFlexibleLeftMargin = 1,
  AutoresizingFlexibleWidth = 2,
  AutoresizingFlexibleRightMargin = 4,
  AutoresizingFlexibleTopMargin = 8,
  AutoresizingFlexibleHeight = 16,
  AutoresizingFlexibleBottomMargin = 32,
};

/// The look of a progress bar.
enum class ProgressViewStyle {
  Default = 0,  ///< the platform's default look
  Bar = 1,      ///< the toolbar look
};

/// What started a navigation, as far as the web view can tell.
enum class NavigationType {
  LinkClicked = 0,
  FormSubmitted = 1,
  BackForward = 2,
  Reload = 3,
  FormResubmitted = 4,
  Other = 5,
};

/// Why a page load failed. The controller does not look inside; adapters fill what they know.
struct QIPG_EXPORT WebViewError {
  std::string domain;   ///< e.g. "WebKitNetworkError"
  int code = 0;         ///< the toolkit's code in that domain
  std::string message;  ///< one line, for logs
};

/// The embedded browser. The controller holds it weakly.
class QIPG_EXPORT WebViewPort {
 public:
  virtual ~WebViewPort() = default;

  /// Starts loading `request` (its method, headers and body, as far as the browser allows).
  /// Start, finish and failure of this and every later load are reported to the controller's
  /// webViewDidStartLoad / webViewDidFinishLoad / webViewDidFailLoadWithError.
  virtual void loadRequest(const URLRequest& request) = 0;

  /// Stops the load under way, if any.
  virtual void stopLoading() = 0;

  /// The absolute address of the page currently shown (after redirects); absent when none.
  virtual Text currentURL() const = 0;

  /// Evaluates `script` in the page's main frame and calls `completion` once, later or at
  /// once, with the script's result as text (absent when the script failed or gave no value).
  /// When the web view goes away before the result is there, the completion is released
  /// without being called.
  virtual void evaluateJavaScript(const std::string& script,
                                  std::function<void(const Text& result)> completion) = 0;
};

/// A thin progress line. Owned (shared) by the controller that set it up and by the bar view
/// that shows it.
class QIPG_EXPORT ProgressBarPort {
 public:
  virtual ~ProgressBarPort() = default;
  /// Shows `progress`, from 0.0 (nothing) to 1.0 (done).
  virtual void setProgress(float progress) = 0;
  /// The value last set (0.0 on a new bar), exactly as it was stored.
  virtual float progress() const = 0;
  /// Hides or shows the bar.
  virtual void setHidden(bool hidden) = 0;
  /// Whether the bar is hidden (false on a new bar).
  virtual bool isHidden() const = 0;
  /// Sets the bar's look.
  virtual void setProgressViewStyle(ProgressViewStyle style) = 0;
  /// Sets the colour of the part that shows progress.
  virtual void setTintColor(const Color& color) = 0;
  /// A combination of AutoresizingMask values.
  virtual void setAutoresizingMask(unsigned mask) = 0;
  /// Position and size in the bar view's coordinates.
  virtual void setFrame(const Rect& frame) = 0;
};

/// The bar at the top of the page, which hosts the progress lines. The controller holds it
/// weakly.
class QIPG_EXPORT BarViewPort {
 public:
  virtual ~BarViewPort() = default;
  /// The bar's bounds in its own coordinates (x and y are 0).
  virtual Rect bounds() const = 0;
  /// Creates a new progress bar and adds it to the bar, on top of any earlier ones (which stay).
  /// The bar view keeps a reference; the caller shares ownership of the result.
  virtual std::shared_ptr<ProgressBarPort> addProgressBar() = 0;
};

/// A text label (the bar's title). The controller holds it weakly.
class QIPG_EXPORT LabelPort {
 public:
  virtual ~LabelPort() = default;
  /// Shows `text`; an absent text shows nothing.
  virtual void setText(const Text& text) = 0;
};

/// A repeating timer scheduled by a TimerSchedulerPort. Until invalidated, the scheduler owns
/// the timer's action (and what the action captures); dropping the handle does not stop it.
class QIPG_EXPORT TimerPort {
 public:
  virtual ~TimerPort() = default;
  /// Stops the timer for good and releases its action. Calling it again does nothing.
  virtual void invalidate() = 0;
  /// True until invalidate() has been called.
  virtual bool isValid() const = 0;
};

/// The user-interface thread's run loop, as far as timers go. Owned by the platform (the
/// adapter or the test); the controller holds it weakly.
class QIPG_EXPORT TimerSchedulerPort {
 public:
  virtual ~TimerSchedulerPort() = default;
  /// Calls `action` every `intervalSeconds` on the user-interface thread until the returned
  /// timer is invalidated. The first call comes one interval from now.
  virtual std::shared_ptr<TimerPort> scheduleRepeating(double intervalSeconds,
                                                       std::function<void()> action) = 0;
};

/// Whoever presented the payment page; it takes the page off the screen. The controller holds
/// it weakly.
class QIPG_EXPORT PresenterPort {
 public:
  virtual ~PresenterPort() = default;
  /// Takes the page off the screen (with an animation where the toolkit has one and `animated`
  /// is true) and then calls `completion` once, on the user-interface thread, after this call
  /// has returned. The presenter owns `completion` until it has run.
  virtual void dismiss(bool animated, std::function<void()> completion) = 0;
};

}  // namespace qipg
