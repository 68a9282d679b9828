// Borrowed GObject pointers that GObject nulls when the object is finalised.
#pragma once

#include <glib-object.h>

namespace qipg::internal {

// A borrowed widget pointer that GObject nulls when the widget is finalised.
template <typename T>
void watch(T*& field, gpointer object) {
  field = static_cast<T*>(object);
  g_object_add_weak_pointer(G_OBJECT(object), reinterpret_cast<gpointer*>(&field));
}

template <typename T>
void unwatch(T*& field) {
  if (field != nullptr) {
    g_object_remove_weak_pointer(G_OBJECT(field), reinterpret_cast<gpointer*>(&field));
    field = nullptr;
  }
}

}  // namespace qipg::internal
