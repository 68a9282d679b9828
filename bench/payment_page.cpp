// The payment window benchmark for the GTK window (see PaymentPageBench.h).
#include <unistd.h>
#include <webkit/webkit.h>

#include "Toolkit.h"

namespace toolkit {

// The engine alone, for the window benchmark: a plain web view in a plain window, no library
// code, with the environment the library gives its own engine, loading `url` (its certificate
// allowed for 127.0.0.1, a loopback bench server). The window stays open; false when the page
// did not load in time.
inline bool openBareView(const std::string& url) {
  if (geteuid() == 0) setenv("WEBKIT_DISABLE_SANDBOX_THIS_IS_DANGEROUS", "1", 0);
  struct Load {
    bool failed = false;
    bool done = false;
  };
  static Load load;
  GtkWidget* window = gtk_window_new();
  gtk_window_set_default_size(GTK_WINDOW(window), 480, 760);
  WebKitNetworkSession* session = webkit_network_session_new_ephemeral();
  GtkWidget* view =
      GTK_WIDGET(g_object_new(WEBKIT_TYPE_WEB_VIEW, "network-session", session, nullptr));
  g_object_unref(session);
  gtk_window_set_child(GTK_WINDOW(window), view);
  g_signal_connect(view, "load-changed",
                   G_CALLBACK(+[](WebKitWebView*, WebKitLoadEvent event, gpointer data) {
                     auto* state = static_cast<Load*>(data);
                     if (event == WEBKIT_LOAD_STARTED) state->failed = false;
                     if (event == WEBKIT_LOAD_FINISHED && !state->failed) state->done = true;
                   }),
                   &load);
  g_signal_connect(view, "load-failed-with-tls-errors",
                   G_CALLBACK(+[](WebKitWebView* view, const char* uri, GTlsCertificate* cert,
                                  GTlsCertificateFlags, gpointer data) -> gboolean {
                     static_cast<Load*>(data)->failed = true;
                     webkit_network_session_allow_tls_certificate_for_host(
                         webkit_web_view_get_network_session(view), cert, "127.0.0.1");
                     webkit_web_view_load_uri(view, uri);
                     return TRUE;
                   }),
                   &load);
  webkit_web_view_load_uri(WEBKIT_WEB_VIEW(view), url.c_str());
  gtk_window_present(GTK_WINDOW(window));
  return spinUntil([] { return load.done; }, 60);
}

}  // namespace toolkit

#include "PaymentPageBench.h"

int main(int argc, char** argv) { return bench::run(argc, argv); }
