#include "window.h"

namespace {

constexpr double kRetryInterval = 0.1; // seconds

} // namespace

// Calls `Member` for events of this window.
template <class Event, Eina_Bool (Window::*Member)()> Eina_Bool Window::OnEvent(void *data, int, void *event) {
  auto *self = static_cast<Window *>(data);
  return static_cast<Event *>(event)->win == self->window_ ? (self->*Member)() : ECORE_CALLBACK_PASS_ON;
}

// Hides the destruction of the window from the canvas, which would release what others still use.
Window::Window(Ecore_X_Window window, Presentation &screen, bool grab, Ends ends)
    : window_(window), screen_(screen), grab_(grab), ends_(std::move(ends)),
      handlers_{
          ecore_event_handler_add(ECORE_X_EVENT_WINDOW_SHOW, OnEvent<Ecore_X_Event_Window_Show, &Window::Shown>, this),
          ecore_event_handler_add(ECORE_X_EVENT_WINDOW_FOCUS_IN,
                                  OnEvent<Ecore_X_Event_Window_Focus_In, &Window::FocusCame>, this),
          ecore_event_handler_add(ECORE_X_EVENT_WINDOW_FOCUS_OUT,
                                  OnEvent<Ecore_X_Event_Window_Focus_Out, &Window::FocusWent>, this),
          ecore_event_handler_add(ECORE_X_EVENT_WINDOW_DELETE_REQUEST,
                                  OnEvent<Ecore_X_Event_Window_Delete_Request, &Window::Closed>, this),
          ecore_event_handler_prepend(ECORE_X_EVENT_WINDOW_DESTROY,
                                      OnEvent<Ecore_X_Event_Window_Destroy, &Window::Destroyed>, this)} {}

Window::~Window() {
  if (retry_) {
    ecore_timer_del(retry_);
  }
  for (Ecore_Event_Handler *handler : handlers_) {
    ecore_event_handler_del(handler);
  }
  if (grab_) {
    ecore_x_keyboard_ungrab();
  }
}

// A window can have the focus and the keyboard only while it is on the screen. Another client may hold the keyboard, a
// menu of the window manager for example; it will let go, and until then keys come here with the focus.
Eina_Bool Window::Shown() {
  if (was_shown_) {
    return ECORE_CALLBACK_PASS_ON;
  }
  was_shown_ = true;
  ecore_x_window_focus(window_);
  if (grab_ && TakeKeyboard()) {
    return ECORE_CALLBACK_PASS_ON;
  }
  screen_.Show("viewer", "ready, keys come here while the window has the focus");
  if (grab_) {
    retry_ = ecore_timer_add(kRetryInterval, Retry, this);
  }
  return ECORE_CALLBACK_PASS_ON;
}

Eina_Bool Window::FocusCame() {
  SetFocus(true);
  return ECORE_CALLBACK_PASS_ON;
}

Eina_Bool Window::FocusWent() {
  SetFocus(false);
  return ECORE_CALLBACK_PASS_ON;
}

// The X server reports a change of the focus also when another program grabs the keyboard or releases it.
void Window::SetFocus(bool has_focus) {
  if (has_focus != has_focus_ && !has_keyboard_) {
    screen_.Show("focus", has_focus ? "here: keys come" : "elsewhere: no keys come");
  }
  has_focus_ = has_focus;
}

Eina_Bool Window::Closed() {
  ends_.closed();
  return ECORE_CALLBACK_PASS_ON;
}

Eina_Bool Window::Destroyed() {
  ends_.destroyed();
  return ECORE_CALLBACK_DONE;
}

bool Window::TakeKeyboard() {
  has_keyboard_ = ecore_x_keyboard_grab(window_) == EINA_TRUE;
  if (has_keyboard_) {
    screen_.Show("viewer", "ready, all keys of this display come here");
  }
  return has_keyboard_;
}

Eina_Bool Window::Retry(void *data) {
  auto *self = static_cast<Window *>(data);
  if (!self->TakeKeyboard()) {
    return ECORE_CALLBACK_RENEW;
  }
  self->retry_ = nullptr;
  return ECORE_CALLBACK_CANCEL;
}
