#include "Till.h"

#ifdef QIPG_HAVE_GTK
#include <gtk/gtk.h>

namespace ipg {

void showGtkTill(void* viewWidget, const std::string& total) {
  GtkWidget* window = gtk_window_new();
  gtk_window_set_title(GTK_WINDOW(window), "Demo till");
  gtk_window_set_default_size(GTK_WINDOW(window), 860, 760);
  GtkWidget* cart = gtk_box_new(GTK_ORIENTATION_VERTICAL, 10);
  gtk_widget_set_size_request(cart, 300, -1);
  gtk_widget_set_margin_start(cart, 16);
  gtk_widget_set_margin_end(cart, 16);
  gtk_widget_set_margin_top(cart, 16);
  GtkWidget* heading = gtk_label_new("Cart");
  gtk_widget_add_css_class(heading, "title-2");
  gtk_box_append(GTK_BOX(cart), heading);
  gtk_box_append(GTK_BOX(cart), gtk_label_new("Demo order"));
  gtk_box_append(GTK_BOX(cart), gtk_label_new(("Total INR " + total).c_str()));
  GtkWidget* pay = gtk_button_new_with_label("Pay");
  gtk_widget_set_sensitive(pay, FALSE);  // the tour pays for the cashier
  gtk_box_append(GTK_BOX(cart), pay);
  GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
  gtk_box_append(GTK_BOX(row), cart);
  gtk_box_append(GTK_BOX(row), GTK_WIDGET(viewWidget));
  gtk_window_set_child(GTK_WINDOW(window), row);
  gtk_window_present(GTK_WINDOW(window));
}

}  // namespace ipg
#endif
