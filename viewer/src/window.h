// Brings keys to the viewer's window, and reports when the window is closed.
#pragma once

#include <Ecore.h>
#include <Ecore_X.h>

#include <functional>

#include "presentation.h"

class Window {
public:
  // What the user or another program does to the window.
  struct Ends {
    std::function<void()> closed;    // in order, by the window manager
    std::function<void()> destroyed; // by another program
  };

  // Takes the focus as soon as the window is on the screen; with `grab`, all keys of the display as well. Reports from
  // then on whether keys come.
  Window(Ecore_X_Window window, Presentation &screen, bool grab, Ends ends);
  ~Window();
  Window(const Window &) = delete;
  Window &operator=(const Window &) = delete;

private:
  Eina_Bool Shown();
  Eina_Bool FocusCame();
  Eina_Bool FocusWent();
  void SetFocus(bool has_focus);
  Eina_Bool Closed();
  Eina_Bool Destroyed();
  bool TakeKeyboard();

  template <class Event, Eina_Bool (Window::*Member)()> static Eina_Bool OnEvent(void *data, int type, void *event);
  static Eina_Bool Retry(void *data);

  Ecore_X_Window window_;
  Presentation &screen_;
  bool grab_;
  Ends ends_;
  bool was_shown_ = false;
  bool has_focus_ = false;
  bool has_keyboard_ = false; // keys come whether or not the window has the focus
  Ecore_Event_Handler *handlers_[5];
  Ecore_Timer *retry_ = nullptr; // while another program has the keyboard
};
