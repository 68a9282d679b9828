// What a progress line keeps, the same in both windows; each toolkit draws and places it.
#pragma once

#include <memory>

#include "qipg/PaymentPagePorts.h"
#include "ui/window/Layout.h"

namespace qipg::internal {

struct ProgressLineState {
  float progress = 0.0f;
  bool hidden = false;
  ProgressViewStyle style = ProgressViewStyle::Default;
  Color tint = Color::systemBlue();
  unsigned mask = AutoresizingNone;
  Rect frame;
  // The bar's size when the frame was set: growth since then is shared out by the mask.
  double barWidth = 0.0;
  double barHeight = 0.0;

  // Where the line goes in a bar now `width` x `height`.
  Rect placeIn(double width, double height) const {
    return autoresized(frame, mask, barWidth, barHeight, width, height);
  }
};

class ProgressLineBase : public ProgressBarPort {
 public:
  void setProgress(float progress) override {
    state_->progress = progress;
    changed();
  }
  float progress() const override { return state_->progress; }
  void setHidden(bool hidden) override {
    state_->hidden = hidden;
    changed();
  }
  bool isHidden() const override { return state_->hidden; }
  void setProgressViewStyle(ProgressViewStyle style) override {
    state_->style = style;
    changed();
  }
  void setTintColor(const Color& color) override {
    state_->tint = color;
    changed();
  }
  void setAutoresizingMask(unsigned mask) override { state_->mask = mask; }
  void setFrame(const Rect& frame) override {
    state_->frame = frame;
    framed();
  }

 protected:
  explicit ProgressLineBase(std::shared_ptr<ProgressLineState> state) : state_(std::move(state)) {}
  // The toolkit shows the state anew.
  virtual void changed() = 0;
  // The toolkit measures the bar into the state and places the line.
  virtual void framed() = 0;

  std::shared_ptr<ProgressLineState> state_;  // shared with the line's widget
};

}  // namespace qipg::internal
