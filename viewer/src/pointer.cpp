#include "pointer.h"

#include <Ecore_Input.h>
#include <kevent.h>

namespace {

constexpr double kRest = 3; // seconds

} // namespace

// A television's window manager obeys the property that the library sets. A desktop's does not know it, so this class
// obeys it instead.
Pointer::Pointer(Ecore_X_Window window)
    : window_(window), property_(ecore_x_atom_get("E_SHOW_CURSOR_AFTER_MOVEMENT")),
      moved_(ecore_event_handler_add(ECORE_EVENT_MOUSE_MOVE, Moved, this)),
      property_changed_(ecore_event_handler_add(ECORE_X_EVENT_WINDOW_PROPERTY, PropertyChanged, this)),
      rest_(ecore_timer_add(kRest, Rests, this)) {}

Pointer::~Pointer() {
  ecore_event_handler_del(moved_);
  ecore_event_handler_del(property_changed_);
  if (rest_) {
    ecore_timer_del(rest_);
  }
}

Eina_Bool Pointer::Moved(void *data, int, void *event) {
  auto *self = static_cast<Pointer *>(data);
  if (static_cast<Ecore_Event_Mouse_Move *>(event)->window == self->window_) {
    self->SetShown(true);
    if (self->rest_) {
      ecore_timer_reset(self->rest_);
    } else {
      self->rest_ = ecore_timer_add(kRest, Rests, self);
    }
  }
  return ECORE_CALLBACK_PASS_ON;
}

Eina_Bool Pointer::PropertyChanged(void *data, int, void *event) {
  auto *self = static_cast<Pointer *>(data);
  const auto *change = static_cast<Ecore_X_Event_Window_Property *>(event);
  unsigned hide = 0;
  if (change->win == self->window_ && change->atom == self->property_ &&
      ecore_x_window_prop_card32_get(self->window_, self->property_, &hide, 1) == 1 && hide == 1) {
    self->SetShown(false);
  }
  return ECORE_CALLBACK_PASS_ON;
}

Eina_Bool Pointer::Rests(void *data) {
  static_cast<Pointer *>(data)->rest_ = nullptr;
  lumio_cursor_show_after_movement();
  return ECORE_CALLBACK_CANCEL;
}

void Pointer::SetShown(bool shown) {
  if (shown == shown_) {
    return;
  }
  shown_ = shown;
  ecore_x_window_cursor_show(window_, shown ? EINA_TRUE : EINA_FALSE);
  if (shown) {
    unsigned no = 0;
    ecore_x_window_prop_card32_set(window_, property_, &no, 1);
  }
}
