// The progress line on Qt: a thin widget laid over the bar at the frame the controller gives
// it, following the bar's size changes by its autoresizing mask.
#pragma once

#include <QPointer>
#include <QWidget>
#include <memory>

#include "qipg/PaymentPagePorts.h"

namespace qipg::internal {

class ProgressLine final : public ProgressBarPort {
 public:
  // Adds a new line on top of `bar`'s other children.
  static std::shared_ptr<ProgressLine> addTo(QWidget* bar);
  // Places every line of `bar` for the bar's current size (call when the bar is resized).
  static void placeAll(QWidget* bar);

  void setProgress(float progress) override;
  float progress() const override;
  void setHidden(bool hidden) override;
  bool isHidden() const override;
  void setProgressViewStyle(ProgressViewStyle style) override;
  void setTintColor(const Color& color) override;
  void setAutoresizingMask(unsigned mask) override;
  void setFrame(const Rect& frame) override;

  // What the line shows, shared with its widget (which may outlive this object).
  struct State;
  class Widget;

 private:
  ProgressLine(Widget* widget, std::shared_ptr<State> state);
  void changed();

  QPointer<Widget> widget_;
  std::shared_ptr<State> state_;
};

}  // namespace qipg::internal
