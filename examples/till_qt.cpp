// A till in one Qt window: the cart and its total on the left, the payment view on the right.
// Pay starts a standard payment in the view; when it ends, the gateway's status of the order
// decides what the till shows (never the window's word alone), and the till is ready for the
// next customer. Kiosk settings: large text, and a payment left untouched for two minutes is
// cancelled and reconciled.
//
//   . ./sandbox.env                      # QIPG_TEST_BASE_URL, QIPG_CA_FILE, QIPG_MID, QIPG_KEY
//   ./till_qt
//
// Needs a display (or Xvfb).
#include <qipg/Client.h>
#include <qipg/QtPaymentView.h>

#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMetaObject>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWidget>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

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
  qipg::Result<std::shared_ptr<qipg::Client>> made = qipg::Client::create(options);
  if (!made) {
    std::fprintf(stderr, "cannot create the client: %s\n", made.error().message.c_str());
    return 1;
  }
  const std::shared_ptr<qipg::Client> client = made.value();

  QApplication app(argc, argv);
  std::string error;
  const std::shared_ptr<qipg::QtPaymentView> view = qipg::QtPaymentView::create(&error);
  if (!view) {
    std::fprintf(stderr, "no payment view: %s\n", error.c_str());
    return 1;
  }
  QWidget window;
  window.setWindowTitle("Till");
  window.resize(1000, 720);
  auto* cart = new QVBoxLayout();
  for (const char* line : {"Rice 5 kg        12.00", "Lentils 1 kg      6.50", "Tea 500 g         9.00",
                           "", "Total INR        27.50"}) {
    cart->addWidget(new QLabel(line));
  }
  auto* pay = new QPushButton("Pay");
  auto* verdict = new QLabel();
  verdict->setWordWrap(true);
  cart->addWidget(pay);
  cart->addWidget(verdict);
  cart->addStretch();
  auto* row = new QHBoxLayout(&window);
  row->addLayout(cart);
  row->addWidget(static_cast<QWidget*>(view->widget()), 1);

  std::string order;
  std::shared_ptr<qipg::IPGPaymentControllerDelegate> delegate;  // views hold it weakly
  // The gateway's word on the order, asked after every payment, shown on the GUI thread.
  const auto confirm = [&] {
    client->status({.orderID = order}, [&](qipg::Result<qipg::PaymentResponse> status) {
      std::string text;
      if (!status) {
        text = "Could not ask the gateway: " + status.error().message;
      } else if (const qipg::PaymentResponse& record = status.value();
                 record.statusCode() == qipg::Text("S")) {
        text = "Paid. Thank you!";
      } else {
        text = "Not paid: " + record.statusDescription().value_or("");
      }
      QMetaObject::invokeMethod(&app, [&, text = QString::fromStdString(text)] {
        verdict->setText(text);
        pay->setEnabled(true);  // ready for the next customer
      });
    });
  };
  QObject::connect(pay, &QPushButton::clicked, [&] {
    order = "TILL" + std::to_string(std::time(nullptr));
    const qipg::Result<qipg::URLRequest> page = client->standardPayment(
        {.orderID = order, .amount = "27.50", .currency = "INR", .description = "Groceries"});
    if (!page) {
      verdict->setText("Cannot start the payment: " + QString::fromStdString(page.error().message));
      return;
    }
    qipg::PaymentWindowOptions payment;
    payment.cppClient = client;
    payment.trustedCAFile = client->config().caFile;  // the sandbox's CA, for its host only
    payment.largeText = true;
    payment.idleCancelSeconds = 120;
    delegate = qipg::makePaymentControllerDelegate([&](const qipg::PaymentResponse&) { confirm(); },
                                                   [&] { confirm(); });
    std::string why;
    if (!view->start(page.value(), delegate, payment, &why)) {
      verdict->setText("Cannot start the payment: " + QString::fromStdString(why));
      return;
    }
    pay->setEnabled(false);
    verdict->setText("Waiting for the customer...");
  });
  window.show();
  const int status = app.exec();
  client->shutdown();
  return status;
}
