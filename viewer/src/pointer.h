// The mouse pointer over the window: shown when it moves, and hidden again through the library.
#pragma once

#include <Ecore.h>
#include <Ecore_X.h>

class Pointer {
public:
  explicit Pointer(Ecore_X_Window window);
  ~Pointer();
  Pointer(const Pointer &) = delete;
  Pointer &operator=(const Pointer &) = delete;

private:
  static Eina_Bool Moved(void *data, int type, void *event);
  static Eina_Bool PropertyChanged(void *data, int type, void *event);
  static Eina_Bool Rests(void *data);
  void SetShown(bool shown);

  Ecore_X_Window window_;
  Ecore_X_Atom property_;
  bool shown_ = true;
  Ecore_Event_Handler *moved_;
  Ecore_Event_Handler *property_changed_;
  Ecore_Timer *rest_ = nullptr;
};
