// The progress line on Qt: a thin widget laid over the bar at the frame the controller gives
// it, following the bar's size changes by its autoresizing mask.
#pragma once

#include <QPointer>
#include <QWidget>
#include <memory>
#include <string>

#include "ui/window/ProgressLineBase.h"

namespace qipg::internal {

class ProgressLine final : public ProgressLineBase {
 public:
  // Adds a new line, named `name` for assistive technology, on top of `bar`'s other children.
  static std::shared_ptr<ProgressLine> addTo(QWidget* bar, const std::string& name);
  // Places every line of `bar` for the bar's current size (call when the bar is resized).
  static void placeAll(QWidget* bar);

  class Widget;

 private:
  ProgressLine(Widget* widget, std::shared_ptr<ProgressLineState> state);
  void changed() override;
  void framed() override;

  QPointer<Widget> widget_;
};

}  // namespace qipg::internal
