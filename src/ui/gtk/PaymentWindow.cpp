#include "qipg/PaymentWindow.h"

#include <gtk/gtk.h>

#include <utility>

#include "qipg/PaymentView.h"
#include "ui/gtk/MainLoop.h"
#include "ui/gtk/PaymentViewImpl.h"
#include "ui/gtk/Screenshot.h"
#include "ui/gtk/WeakPointer.h"

namespace qipg {

using internal::unwatch;
using internal::watch;

// A window around a payment view: the view's payment ends by closing the window, and the
// window's close button is the view's Cancel.
struct PaymentWindow::Impl final : std::enable_shared_from_this<PaymentWindow::Impl> {
  ~Impl() {
    if (window_ != nullptr) {
      g_signal_handlers_disconnect_by_data(window_, this);
      gtk_window_destroy(window_);
    }
    unwatch(window_);
  }

  static gboolean onCloseRequest(GtkWindow*, gpointer data) {
    static_cast<Impl*>(data)->view_->cancel();  // the dismissal closes the window
    return TRUE;
  }
  static void onDestroy(GtkWidget*, gpointer data) {
    auto* self = static_cast<Impl*>(data);
    // Destroyed by the host: the payment ends without a word to its delegate.
    self->view_->abandon();
    internal::runWhenIdle([held = std::move(self->keepAlive_)] {});
  }

  GtkWindow* window_ = nullptr;
  std::shared_ptr<PaymentView::Impl> view_;
  std::shared_ptr<Impl> keepAlive_;  // while the window is up
};

PaymentWindow::PaymentWindow(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}

PaymentWindow::~PaymentWindow() = default;

std::shared_ptr<WebviewController> PaymentWindow::controller() const {
  return impl_->view_->controller();
}

bool PaymentWindow::isOpen() const { return impl_->window_ != nullptr && impl_->view_->active(); }

void PaymentWindow::runJavaScript(const std::string& script,
                                  std::function<void(const Text&)> completion) {
  impl_->view_->evaluate(script, std::move(completion), true);
}

void PaymentWindow::saveScreenshot(const std::string& pngPath, std::function<void(bool)> completion,
                                   SnapshotArea area) {
  if (!isOpen() || impl_->view_->webView_ == nullptr) {
    if (completion) completion(false);
    return;
  }
  internal::saveScreenshot(GTK_WIDGET(impl_->window_), GTK_WIDGET(impl_->view_->webView_),
                           pngPath, std::move(completion), area == SnapshotArea::Window);
}

void PaymentWindow::pressCancel() {
  impl_->view_->cancel();
}

void* PaymentWindow::nativeWindow() const { return impl_->window_; }

void* PaymentWindow::nativeWebView() const { return impl_->view_->webView_; }

void PaymentWindow::prewarm() { PaymentView::prewarm(); }

std::shared_ptr<PaymentWindow> presentPaymentWindow(
    const URLRequest& request, std::shared_ptr<IPGPaymentControllerDelegate> delegate,
    PaymentWindowOptions options, std::string* error) {
  if (!gtk_is_initialized() && !gtk_init_check()) {
    if (error != nullptr) {
      *error = "cannot open a display for the payment window (set DISPLAY or WAYLAND_DISPLAY)";
    }
    return nullptr;
  }
  auto impl = std::make_shared<PaymentWindow::Impl>();
  impl->view_ = std::make_shared<PaymentView::Impl>();
  PaymentView::Impl& view = *impl->view_;
  view.build();
  GtkWidget* window = gtk_window_new();
  watch(impl->window_, window);
  gtk_window_set_default_size(impl->window_, options.width, options.height);
  if (options.transientFor != nullptr) {
    gtk_window_set_transient_for(impl->window_, GTK_WINDOW(options.transientFor));
    gtk_window_set_modal(impl->window_, TRUE);
    gtk_window_set_destroy_with_parent(impl->window_, TRUE);
  }
  gtk_window_set_deletable(impl->window_, options.closeButton);
  if (options.fullScreen) gtk_window_fullscreen(impl->window_);
  const std::string title = options.title;
  if (!view.start(request, std::move(delegate), std::move(options), error)) {
    gtk_window_destroy(impl->window_);
    return nullptr;
  }
  // Set once the payment has chosen the chrome's language.
  gtk_window_set_title(impl->window_, (title.empty() ? view.words_.payment : title).c_str());
  gtk_window_set_child(impl->window_, view.root_);
  view.onEnded = [weak = std::weak_ptr<PaymentWindow::Impl>(impl)] {
    // Dismissal destroys the window; there is no animation.
    if (auto self = weak.lock(); self && self->window_ != nullptr) {
      g_signal_handlers_disconnect_by_data(self->window_, self.get());
      gtk_window_destroy(self->window_);
      internal::runWhenIdle([held = std::move(self->keepAlive_)] {});
    }
  };
  g_signal_connect(window, "close-request", G_CALLBACK(&PaymentWindow::Impl::onCloseRequest),
                   impl.get());
  g_signal_connect(window, "destroy", G_CALLBACK(&PaymentWindow::Impl::onDestroy), impl.get());
  impl->keepAlive_ = impl;
  gtk_window_present(impl->window_);
  return std::make_shared<PaymentWindow>(std::move(impl));
}

std::optional<PaymentOutcome> runPaymentWindow(const URLRequest& request,
                                               PaymentWindowOptions options, std::string* error) {
  internal::OutcomeRecorder recorder(options);
  auto window = presentPaymentWindow(request, recorder.delegate(), std::move(options), error);
  if (!window) return std::nullopt;
  return internal::runToEnd(
      recorder, [&] { return window->isOpen(); },
      [](const std::function<bool()>& done) {
        while (!done()) g_main_context_iteration(nullptr, TRUE);
      },
      [](const std::function<bool()>& enough) {
        while (!enough() && g_main_context_pending(nullptr)) {
          g_main_context_iteration(nullptr, FALSE);
        }
      },
      error);
}

bool runMainLoopUntil(const std::function<bool()>& done, unsigned seconds) {
  bool timedOut = false;
  const guint timer = g_timeout_add_seconds(
      seconds,
      [](gpointer flag) -> gboolean {
        *static_cast<bool*>(flag) = true;
        return G_SOURCE_REMOVE;
      },
      &timedOut);
  while (!done() && !timedOut) g_main_context_iteration(nullptr, TRUE);
  if (!timedOut) g_source_remove(timer);
  return !timedOut;
}

}  // namespace qipg
