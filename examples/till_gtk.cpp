// A till in one GTK window: the cart and its total on the left, the payment view on the right.
// Pay starts a standard payment in the view; when it ends, the gateway's status of the order
// decides what the till shows (never the window's word alone), and the till is ready for the
// next customer. Kiosk settings: large text, and a payment left untouched for two minutes is
// cancelled and reconciled.
//
//   . ./sandbox.env                      # QIPG_TEST_BASE_URL, QIPG_CA_FILE, QIPG_MID, QIPG_KEY
//   ./till_gtk
//
// Needs a display (or Xvfb).
#include <gtk/gtk.h>
#include <qipg/Client.h>
#include <qipg/PaymentView.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <utility>

namespace {

constexpr const char* kTotal = "27.50";

struct Till {
  std::shared_ptr<qipg::Client> client;
  std::shared_ptr<qipg::PaymentView> view;
  std::shared_ptr<qipg::IPGPaymentControllerDelegate> delegate;  // kept alive: views hold it weakly
  GtkWidget* pay = nullptr;
  GtkLabel* verdict = nullptr;
  std::string order;
};

void say(Till& till, const std::string& text) { gtk_label_set_text(till.verdict, text.c_str()); }

// What the till shows once the gateway has answered, on the main loop.
struct Verdict {
  Till* till;
  std::string text;
};

// The gateway's word on the order, asked after every payment.
void confirm(Till& till) {
  till.client->status({.orderID = till.order}, [&till](qipg::Result<qipg::PaymentResponse> status) {
    std::string text;
    if (!status) {
      text = "Could not ask the gateway: " + status.error().message;
    } else if (status.value().statusCode() == qipg::Text("S")) {
      text = "Paid. Thank you!";
    } else {
      text = "Not paid: " + status.value().statusDescription().value_or("");
    }
    g_idle_add_once(
        [](gpointer data) {
          std::unique_ptr<Verdict> verdict(static_cast<Verdict*>(data));
          say(*verdict->till, verdict->text);
          gtk_widget_set_sensitive(verdict->till->pay, TRUE);  // ready for the next customer
        },
        new Verdict{&till, std::move(text)});
  });
}

void onPay(GtkButton*, gpointer data) {
  Till& till = *static_cast<Till*>(data);
  till.order = "TILL" + std::to_string(std::time(nullptr));
  const qipg::Result<qipg::URLRequest> page = till.client->standardPayment(
      {.orderID = till.order, .amount = kTotal, .currency = "INR", .description = "Groceries"});
  if (!page) return say(till, "Cannot start the payment: " + page.error().message);

  qipg::PaymentWindowOptions options;
  options.cppClient = till.client;
  options.trustedCAFile = till.client->config().caFile;  // the sandbox's CA, for its host only
  options.largeText = true;
  options.idleCancelSeconds = 120;
  till.delegate = qipg::makePaymentControllerDelegate(
      [&till](const qipg::PaymentResponse&) { confirm(till); }, [&till] { confirm(till); });
  std::string error;
  if (!till.view->start(page.value(), till.delegate, options, &error)) {
    return say(till, "Cannot start the payment: " + error);
  }
  gtk_widget_set_sensitive(till.pay, FALSE);
  say(till, "Waiting for the customer...");
}

}  // namespace

int main(int argc, char** argv) {
  const char* mid = std::getenv("QIPG_MID");
  const char* key = std::getenv("QIPG_KEY");
  if (key == nullptr || *key == '\0') {
    std::fprintf(stderr, "set QIPG_KEY to the merchant key\n");
    return 2;
  }
  qipg::ClientOptions options;  // gateway: QIPG_TEST_BASE_URL and QIPG_CA_FILE when set
  options.merchantID = mid != nullptr ? mid : "QIPGTEST0001";
  options.encryptionKey = key;
  qipg::Result<std::shared_ptr<qipg::Client>> client = qipg::Client::create(options);
  if (!client) {
    std::fprintf(stderr, "cannot create the client: %s\n", client.error().message.c_str());
    return 1;
  }

  GtkApplication* app = gtk_application_new("com.example.Till", G_APPLICATION_DEFAULT_FLAGS);
  Till till;
  till.client = client.value();
  g_signal_connect(app, "activate", G_CALLBACK(+[](GtkApplication* app, gpointer data) {
                     Till& till = *static_cast<Till*>(data);
                     std::string error;
                     till.view = qipg::PaymentView::create(&error);
                     if (!till.view) {
                       std::fprintf(stderr, "no payment view: %s\n", error.c_str());
                       return;
                     }
                     GtkWidget* window = gtk_application_window_new(app);
                     gtk_window_set_title(GTK_WINDOW(window), "Till");
                     gtk_window_set_default_size(GTK_WINDOW(window), 1000, 720);
                     GtkWidget* cart = gtk_box_new(GTK_ORIENTATION_VERTICAL, 12);
                     gtk_widget_set_size_request(cart, 320, -1);
                     for (const char* line : {"Rice 5 kg        12.00", "Lentils 1 kg      6.50",
                                              "Tea 500 g         9.00", "", "Total INR        27.50"}) {
                       gtk_box_append(GTK_BOX(cart), gtk_label_new(line));
                     }
                     till.pay = gtk_button_new_with_label("Pay");
                     g_signal_connect(till.pay, "clicked", G_CALLBACK(&onPay), &till);
                     gtk_box_append(GTK_BOX(cart), till.pay);
                     till.verdict = GTK_LABEL(gtk_label_new(""));
                     gtk_label_set_wrap(till.verdict, TRUE);
                     gtk_box_append(GTK_BOX(cart), GTK_WIDGET(till.verdict));
                     GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
                     gtk_box_append(GTK_BOX(row), cart);
                     gtk_box_append(GTK_BOX(row), GTK_WIDGET(till.view->widget()));
                     gtk_window_set_child(GTK_WINDOW(window), row);
                     gtk_window_present(GTK_WINDOW(window));
                   }),
                   &till);
  const int status = g_application_run(G_APPLICATION(app), argc, argv);
  g_object_unref(app);
  till.client->shutdown();
  return status;
}
