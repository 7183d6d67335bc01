// The viewer's window on the X display, and the keyboard.
#pragma once

#include <Ecore.h>
#include <Ecore_X.h>

#include <functional>

#include "presentation.h"

class Window {
public:
  // Opens the window and takes the keyboard as soon as it is on the screen. Calls `closed` when the user closes it.
  Window(Presentation &screen, std::function<void()> closed);
  ~Window();
  Window(const Window &) = delete;
  Window &operator=(const Window &) = delete;

private:
  void Shown();
  bool TakeKeyboard();

  template <class Event, void (Window::*Member)()> static Eina_Bool OnEvent(void *data, int type, void *event);
  static Eina_Bool Retry(void *data);
  void Closed() { closed_(); }

  Presentation &screen_;
  std::function<void()> closed_;
  Ecore_X_Window window_;
  Ecore_Event_Handler *shown_handler_;
  Ecore_Event_Handler *closed_handler_;
  Ecore_Timer *retry_ = nullptr;
};
