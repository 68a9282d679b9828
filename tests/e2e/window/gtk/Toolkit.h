// The GTK window and view for the shared window tests and the window benchmark.
#pragma once

#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../Shells.h"
#include "qipg/PaymentView.h"
#include "qipg/PaymentWindow.h"

namespace toolkit {

constexpr char kName[] = "gtk";
using Window = Shell<qipg::PaymentWindow, qipg::PaymentView>;

// GTK, WebKit and their libraries are built without frame pointers: unwind the slow way, so
// that leak reports show whose allocation it was and scripts/lsan.supp can match the library.
constexpr char kAsanOptions[] = "fast_unwind_on_malloc=0";

inline bool init(int*, char**) { return gtk_init_check(); }

inline std::shared_ptr<Window> present(const qipg::URLRequest& request,
                                       std::shared_ptr<qipg::IPGPaymentControllerDelegate> delegate,
                                       qipg::PaymentWindowOptions options, std::string* error) {
  if (!embedded()) {
    auto window = qipg::presentPaymentWindow(request, std::move(delegate), options, error);
    return window ? std::make_shared<Window>(std::move(window)) : nullptr;
  }
  auto view = qipg::PaymentView::create(error);
  if (!view) return nullptr;
  // A till: the cart beside the payment. Its close button cancels the payment; it stays.
  GtkWidget* till = gtk_window_new();
  gtk_window_set_default_size(GTK_WINDOW(till), 800, options.height);
  GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
  gtk_box_append(GTK_BOX(row), gtk_label_new("Cart: 1 item"));
  gtk_box_append(GTK_BOX(row), GTK_WIDGET(view->widget()));
  gtk_window_set_child(GTK_WINDOW(till), row);
  g_signal_connect(till, "close-request", G_CALLBACK(+[](GtkWindow*, gpointer shown) -> gboolean {
                     static_cast<qipg::PaymentView*>(shown)->pressCancel();
                     return TRUE;
                   }),
                   view.get());
  if (!view->start(request, std::move(delegate), std::move(options), error)) {
    gtk_window_destroy(GTK_WINDOW(till));
    return nullptr;
  }
  gtk_window_present(GTK_WINDOW(till));
  return std::make_shared<Window>(view, till, [till] { gtk_window_destroy(GTK_WINDOW(till)); });
}

inline std::optional<qipg::PaymentOutcome> run(const qipg::URLRequest& request,
                                               qipg::PaymentWindowOptions options,
                                               std::string* error) {
  return qipg::runPaymentWindow(request, std::move(options), error);
}

inline bool spinUntil(const std::function<bool()>& done, unsigned seconds = 120) {
  return qipg::runMainLoopUntil(done, seconds);
}

// Handles whatever is ready now, without waiting.
inline void drain() {
  while (g_main_context_pending(nullptr)) g_main_context_iteration(nullptr, FALSE);
}

inline void closeWithWindowButton(Window& window) {
  gtk_window_close(GTK_WINDOW(window.nativeWindow()));
}

// Runs `task` from the main loop, later.
inline void later(std::function<void()> task) {
  g_idle_add_full(
      G_PRIORITY_DEFAULT_IDLE,
      [](gpointer data) -> gboolean {
        (*static_cast<std::function<void()>*>(data))();
        return G_SOURCE_REMOVE;
      },
      new std::function<void()>(std::move(task)),
      [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
}

// Closes every visible top-level window, as with its close button.
inline void closeTopWindows() {
  GListModel* windows = gtk_window_get_toplevels();
  for (guint i = g_list_model_get_n_items(windows); i-- > 0;) {
    auto* window = GTK_WINDOW(g_list_model_get_item(windows, i));
    if (gtk_widget_get_visible(GTK_WIDGET(window))) gtk_window_close(window);
    g_object_unref(window);
  }
}

inline bool webViewShown(Window& window) {
  auto* view = GTK_WIDGET(window.nativeWebView());
  return view != nullptr && gtk_widget_get_visible(view) && gtk_widget_get_opacity(view) > 0.0;
}

// The newest progress line: whether it shows, and its place in the bar's content box.
struct Line {
  bool shown = false;
  double x = 0, y = 0, width = 0, height = 0, barWidth = 0, barHeight = 0;
};

// The widgets under `widget` (itself included) for which `match` holds, in tree order.
inline void findAll(GtkWidget* widget, const std::function<bool(GtkWidget*)>& match,
                    std::vector<GtkWidget*>& found) {
  if (match(widget)) found.push_back(widget);
  for (GtkWidget* c = gtk_widget_get_first_child(widget); c; c = gtk_widget_get_next_sibling(c)) {
    findAll(c, match, found);
  }
}

inline std::optional<Line> progressLine(Window& window) {
  std::vector<GtkWidget*> lines;
  if (window.nativeWindow() == nullptr) return std::nullopt;
  findAll(
      GTK_WIDGET(window.nativeWindow()),
      [](GtkWidget* w) { return gtk_widget_has_css_class(w, "qipg-progress-line") != 0; }, lines);
  if (lines.empty()) return std::nullopt;
  GtkWidget* line = lines.back();
  GtkWidget* bar = gtk_widget_get_parent(line);
  graphene_rect_t place{};
  if (!gtk_widget_compute_bounds(line, bar, &place)) place = {};
  return Line{gtk_widget_get_mapped(line) != 0,
              place.origin.x,
              place.origin.y,
              place.size.width,
              place.size.height,
              static_cast<double>(gtk_widget_get_width(bar)),
              static_cast<double>(gtk_widget_get_height(bar))};
}

// Whether a widget of the window is named `name` for assistive technology in `role` (its label,
// or a button's own text); a progress bar must also give its value.
inline bool named(Window& window, Role role, const std::string& name) {
  const GtkAccessibleRole roles[] = {GTK_ACCESSIBLE_ROLE_NONE, GTK_ACCESSIBLE_ROLE_BUTTON,
                                     GTK_ACCESSIBLE_ROLE_IMG, GTK_ACCESSIBLE_ROLE_PROGRESS_BAR};
  const auto labelled = [&](GtkWidget* w) {
    const char* text = GTK_IS_BUTTON(w) ? gtk_button_get_label(GTK_BUTTON(w)) : nullptr;
    if (text != nullptr) return name == text;
    char* differs = gtk_test_accessible_check_property(GTK_ACCESSIBLE(w),
                                                       GTK_ACCESSIBLE_PROPERTY_LABEL, name.c_str());
    g_free(differs);
    return differs == nullptr;
  };
  std::vector<GtkWidget*> found;
  if (window.nativeWindow() == nullptr) return false;
  findAll(
      GTK_WIDGET(window.nativeWindow()),
      [&](GtkWidget* w) {
        auto* accessible = GTK_ACCESSIBLE(w);
        return (role == Role::Any ||
                gtk_test_accessible_has_role(accessible, roles[static_cast<int>(role)])) &&
               (role != Role::ProgressBar ||
                gtk_test_accessible_has_property(accessible, GTK_ACCESSIBLE_PROPERTY_VALUE_NOW)) &&
               labelled(w);
      },
      found);
  return !found.empty();
}

}  // namespace toolkit
