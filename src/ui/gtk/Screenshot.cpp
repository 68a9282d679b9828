#include "ui/gtk/Screenshot.h"

#include <webkit/webkit.h>

#include <utility>

#include "ui/gtk/WeakPointer.h"
#include "ui/window/Files.h"

namespace qipg::internal {
namespace {

bool saveTexture(GdkTexture* texture, const std::string& path) {
  if (texture == nullptr) return false;
  GBytes* png = gdk_texture_save_to_png_bytes(texture);
  gsize size = 0;
  const void* data = png != nullptr ? g_bytes_get_data(png, &size) : nullptr;
  const bool ok = png != nullptr && internal::writeOwnerOnly(path, data, size);
  if (png != nullptr) g_bytes_unref(png);
  return ok;
}

// One picture under way. WebKit pictures the page as it is now (the window may not have shown
// a freshly loaded page yet); for the whole window, the window is then rendered after its next
// paint with that picture laid over the web view's place.
struct Shot {
  std::string path;
  std::function<void(bool)> completion;
  bool wholeWindow = false;
  GtkWidget* window = nullptr;   // weak
  GtkWidget* webView = nullptr;  // weak
  GdkTexture* page = nullptr;
  gulong handler = 0;
  bool done = false;

  ~Shot() {
    unwatch(window);
    unwatch(webView);
    if (page != nullptr) g_object_unref(page);
  }
  void finish(bool saved) {
    if (done) return;
    done = true;
    if (completion) completion(saved);
  }
};

GdkTexture* renderWindow(GtkWidget* window, GtkWidget* webView, GdkTexture* page) {
  const int width = gtk_widget_get_width(window);
  const int height = gtk_widget_get_height(window);
  GtkNative* native = gtk_widget_get_native(window);
  GskRenderer* renderer = native != nullptr ? gtk_native_get_renderer(native) : nullptr;
  if (width <= 0 || height <= 0 || renderer == nullptr) return nullptr;
  GdkPaintable* paintable = gtk_widget_paintable_new(window);
  GtkSnapshot* snapshot = gtk_snapshot_new();
  gdk_paintable_snapshot(paintable, GDK_SNAPSHOT(snapshot), width, height);
  graphene_rect_t place;
  if (page != nullptr && webView != nullptr && gtk_widget_compute_bounds(webView, window, &place)) {
    gtk_snapshot_append_texture(snapshot, page, &place);
  }
  GskRenderNode* node = gtk_snapshot_free_to_node(snapshot);
  GdkTexture* texture = nullptr;
  if (node != nullptr) {
    graphene_rect_t area;
    graphene_rect_init(&area, 0.0f, 0.0f, static_cast<float>(width), static_cast<float>(height));
    texture = gsk_renderer_render_texture(renderer, node, &area);
    gsk_render_node_unref(node);
  }
  g_object_unref(paintable);
  return texture;
}

void onWindowPainted(GdkFrameClock* clock, gpointer data) {
  auto* shot = static_cast<Shot*>(data);
  GdkTexture* texture =
      shot->window != nullptr ? renderWindow(shot->window, shot->webView, shot->page) : nullptr;
  const bool saved = saveTexture(texture, shot->path);
  if (texture != nullptr) g_object_unref(texture);
  shot->finish(saved);
  g_signal_handler_disconnect(clock, shot->handler);  // releases the shot
}

void releaseShot(gpointer data, GClosure*) {
  auto* shot = static_cast<Shot*>(data);
  shot->finish(false);  // the window went away before it was painted
  delete shot;
}

void onPagePictured(GObject* source, GAsyncResult* result, gpointer data) {
  auto* shot = static_cast<Shot*>(data);
  GError* error = nullptr;
  shot->page = webkit_web_view_get_snapshot_finish(WEBKIT_WEB_VIEW(source), result, &error);
  g_clear_error(&error);
  GdkFrameClock* clock = shot->wholeWindow && shot->window != nullptr
                             ? gtk_widget_get_frame_clock(shot->window)
                             : nullptr;
  if (!shot->wholeWindow || clock == nullptr) {
    shot->finish(!shot->wholeWindow && saveTexture(shot->page, shot->path));
    delete shot;
    return;
  }
  shot->handler = g_signal_connect_data(clock, "after-paint", G_CALLBACK(&onWindowPainted), shot,
                                        &releaseShot, GConnectFlags(0));
  gtk_widget_queue_draw(shot->window);
}

}  // namespace

void saveScreenshot(GtkWidget* window, GtkWidget* webView, const std::string& path,
                    std::function<void(bool)> completion, bool wholeWindow) {
  auto* shot = new Shot{path, std::move(completion), wholeWindow};
  watch(shot->window, window);
  watch(shot->webView, webView);
  webkit_web_view_get_snapshot(WEBKIT_WEB_VIEW(webView), WEBKIT_SNAPSHOT_REGION_VISIBLE,
                               WEBKIT_SNAPSHOT_OPTIONS_NONE, nullptr, &onPagePictured, shot);
}

}  // namespace qipg::internal
