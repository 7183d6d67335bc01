// The remote control on the screen. Its buttons press keys at the X server, where they begin the same way as all
// others.
#pragma once

#include <Evas.h>

#include <deque>
#include <string>
#include <vector>

#include "../x_keys.h"
#include "canvas.h"

class RemoteControl {
public:
  explicit RemoteControl(const Canvas &canvas);
  ~RemoteControl();
  RemoteControl(const RemoteControl &) = delete;
  RemoteControl &operator=(const RemoteControl &) = delete;

  struct Plan;

private:
  struct Button {
    const Plan &plan;
    XKey key = {};
    bool is_down = false;
  };

  void Add(const Canvas &canvas, const Plan &plan);
  static void Pressed(void *data, Evas_Object *object, const char *signal, const char *source);
  static void Released(void *data, Evas_Object *object, const char *signal, const char *source);

  std::deque<Button> buttons_; // a deque: the theme's objects keep their addresses
};
