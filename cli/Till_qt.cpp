#include "Till.h"

#ifdef QIPG_HAVE_QT
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWidget>

namespace ipg {

void showQtTill(void* viewWidget, const std::string& total) {
  auto* window = new QWidget();  // lives until the process ends
  window->setWindowTitle("Demo till");
  window->resize(860, 760);
  auto* cart = new QVBoxLayout();
  auto* heading = new QLabel("<h2>Cart</h2>");
  cart->addWidget(heading);
  cart->addWidget(new QLabel("Demo order"));
  cart->addWidget(new QLabel(QString::fromStdString("Total INR " + total)));
  auto* pay = new QPushButton("Pay");
  pay->setEnabled(false);  // the tour pays for the cashier
  cart->addWidget(pay);
  cart->addStretch();
  auto* row = new QHBoxLayout(window);
  row->addLayout(cart);
  row->addWidget(static_cast<QWidget*>(viewWidget), 1);
  window->show();
}

}  // namespace ipg
#endif
