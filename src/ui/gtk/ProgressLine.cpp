#include "ui/gtk/ProgressLine.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace qipg::internal {
namespace {

using SharedState = std::shared_ptr<ProgressLineState>;

constexpr char kStateKey[] = "qipg-progress-line";

void drawLine(GtkDrawingArea*, cairo_t* cr, int width, int height, gpointer data) {
  const auto& state = **static_cast<SharedState*>(data);
  if (state.style == ProgressViewStyle::Default) {  // a faint track under the progress
    cairo_set_source_rgba(cr, 0.0, 0.0, 0.0, 0.08);
    cairo_rectangle(cr, 0, 0, width, height);
    cairo_fill(cr);
  }
  const double fraction = std::clamp(static_cast<double>(state.progress), 0.0, 1.0);
  cairo_set_source_rgba(cr, state.tint.red, state.tint.green, state.tint.blue, state.tint.alpha);
  cairo_rectangle(cr, 0, 0, std::round(width * fraction), height);
  cairo_fill(cr);
}

void releaseState(gpointer data) { delete static_cast<SharedState*>(data); }

}  // namespace

ProgressLine::ProgressLine(GtkWidget* widget, SharedState state)
    : ProgressLineBase(std::move(state)), widget_(widget) {
  g_object_add_weak_pointer(G_OBJECT(widget_), reinterpret_cast<gpointer*>(&widget_));
}

ProgressLine::~ProgressLine() {
  if (widget_ != nullptr) {
    g_object_remove_weak_pointer(G_OBJECT(widget_), reinterpret_cast<gpointer*>(&widget_));
  }
}

std::shared_ptr<ProgressLine> ProgressLine::addTo(GtkOverlay* bar, const std::string& name) {
  GtkWidget* widget = GTK_WIDGET(g_object_new(GTK_TYPE_DRAWING_AREA, "accessible-role",
                                              GTK_ACCESSIBLE_ROLE_PROGRESS_BAR, nullptr));
  gtk_widget_add_css_class(widget, "qipg-progress-line");
  gtk_widget_set_can_target(widget, FALSE);
  gtk_widget_set_can_focus(widget, FALSE);
  gtk_accessible_update_property(GTK_ACCESSIBLE(widget), GTK_ACCESSIBLE_PROPERTY_VALUE_MIN, 0.0,
                                 GTK_ACCESSIBLE_PROPERTY_VALUE_MAX, 1.0,
                                 GTK_ACCESSIBLE_PROPERTY_VALUE_NOW, 0.0,
                                 GTK_ACCESSIBLE_PROPERTY_LABEL, name.c_str(), -1);
  auto state = std::make_shared<ProgressLineState>();
  // The widget shares the state through its draw function and its object data.
  gtk_drawing_area_set_draw_func(GTK_DRAWING_AREA(widget), &drawLine, new SharedState(state),
                                 &releaseState);
  g_object_set_data_full(G_OBJECT(widget), kStateKey, new SharedState(state), &releaseState);
  gtk_overlay_add_overlay(bar, widget);
  return std::shared_ptr<ProgressLine>(new ProgressLine(widget, std::move(state)));
}

void ProgressLine::changed() {
  if (widget_ == nullptr) return;
  gtk_widget_set_visible(widget_, !state_->hidden);
  gtk_accessible_update_property(GTK_ACCESSIBLE(widget_), GTK_ACCESSIBLE_PROPERTY_VALUE_NOW,
                                 static_cast<double>(state_->progress), -1);
  gtk_widget_queue_draw(widget_);
}

void ProgressLine::framed() {
  if (widget_ == nullptr) return;
  if (GtkWidget* bar = gtk_widget_get_parent(widget_)) {
    state_->barWidth = gtk_widget_get_width(bar);
    state_->barHeight = gtk_widget_get_height(bar);
    gtk_widget_queue_allocate(bar);
  }
}

gboolean ProgressLine::placeChild(GtkOverlay* bar, GtkWidget* child, GdkRectangle* allocation,
                                  gpointer /*unused*/) {
  auto* shared = static_cast<SharedState*>(g_object_get_data(G_OBJECT(child), kStateKey));
  if (shared == nullptr) return FALSE;
  const Rect place = (*shared)->placeIn(gtk_widget_get_width(GTK_WIDGET(bar)),
                                        gtk_widget_get_height(GTK_WIDGET(bar)));
  allocation->x = static_cast<int>(std::lround(place.x));
  allocation->y = static_cast<int>(std::lround(place.y));
  allocation->width = static_cast<int>(std::lround(place.width));
  allocation->height = static_cast<int>(std::lround(place.height));
  return TRUE;
}

}  // namespace qipg::internal
