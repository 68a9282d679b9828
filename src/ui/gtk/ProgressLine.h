// The progress line on GTK4: a thin drawing area laid over the bar (a GtkOverlay) at the
// frame the controller gives it, following the bar's size changes by its autoresizing mask.
#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <string>

#include "ui/window/ProgressLineBase.h"

namespace qipg::internal {

class ProgressLine final : public ProgressLineBase {
 public:
  // Adds a new line, named `name` for assistive technology, on top of `bar`'s other overlay
  // children. `bar` must have ProgressLine::placeChild connected to its "get-child-position"
  // signal.
  static std::shared_ptr<ProgressLine> addTo(GtkOverlay* bar, const std::string& name);

  ~ProgressLine() override;
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // The "get-child-position" handler of the bar: places the lines, leaves other children to
  // the overlay.
  static gboolean placeChild(GtkOverlay* bar, GtkWidget* child, GdkRectangle* allocation,
                             gpointer unused);

 private:
  ProgressLine(GtkWidget* widget, std::shared_ptr<ProgressLineState> state);
  void changed() override;
  void framed() override;

  GtkWidget* widget_;  // weak: nulled when the widget is finalised
};

}  // namespace qipg::internal
