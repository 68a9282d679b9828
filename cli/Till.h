// The small till of `ipg demo --embedded`: one window with a cart, its total and a Pay button
// beside the payment view, as a shop's own application places the view. The tour itself
// starts the payments, so Pay only shows where a cashier would press.
#pragma once

#include <string>

namespace ipg {

// Shows a till around `viewWidget` (a GtkWidget*, resp. a QWidget*) listing one line per
// purchase and `total`; it lives until the process ends.
void showGtkTill(void* viewWidget, const std::string& total);
void showQtTill(void* viewWidget, const std::string& total);

}  // namespace ipg
