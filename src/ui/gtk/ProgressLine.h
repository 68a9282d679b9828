// The progress line on GTK4: a thin drawing area laid over the bar (a GtkOverlay) at the
// frame the controller gives it, following the bar's size changes by its autoresizing mask.
#pragma once

#include <gtk/gtk.h>

#include <memory>

#include "qipg/PaymentPagePorts.h"

namespace qipg::internal {

class ProgressLine final : public ProgressBarPort {
 public:
  // Adds a new line on top of `bar`'s other overlay children. `bar` must have
  // ProgressLine::placeChild connected to its "get-child-position" signal.
  static std::shared_ptr<ProgressLine> addTo(GtkOverlay* bar);

  ~ProgressLine() override;
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void setProgress(float progress) override;
  float progress() const override;
  void setHidden(bool hidden) override;
  bool isHidden() const override;
  void setProgressViewStyle(ProgressViewStyle style) override;
  void setTintColor(const Color& color) override;
  void setAutoresizingMask(unsigned mask) override;
  void setFrame(const Rect& frame) override;

  // The "get-child-position" handler of the bar: places the lines, leaves other children to
  // the overlay.
  static gboolean placeChild(GtkOverlay* bar, GtkWidget* child, GdkRectangle* allocation,
                             gpointer unused);

  // What the line shows, shared with its widget (which may outlive this object).
  struct State;

 private:
  ProgressLine(GtkWidget* widget, std::shared_ptr<State> state);
  void changed();

  GtkWidget* widget_;  // weak: nulled when the widget is finalised
  std::shared_ptr<State> state_;
};

}  // namespace qipg::internal
