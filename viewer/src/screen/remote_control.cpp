#include "remote_control.h"

#include <Edje.h>

// A button: its label, the keys that do the same (the best one first), and its place in a table of twelve columns.
struct RemoteControl::Plan {
  const char *label;
  std::vector<const char *> symbols;
  unsigned short row;
  unsigned short column;
  unsigned short width;
};

namespace {

const std::vector<RemoteControl::Plan> &Plans() {
  static const std::vector<RemoteControl::Plan> plans = {
      {"Standby", {"XF86Standby", "s"}, 0, 0, 6},
      {"Keys", {"F1"}, 0, 6, 6},
      {"1", {"1", "KP_1"}, 1, 0, 4},
      {"2", {"2", "KP_2"}, 1, 4, 4},
      {"3", {"3", "KP_3"}, 1, 8, 4},
      {"4", {"4", "KP_4"}, 2, 0, 4},
      {"5", {"5", "KP_5"}, 2, 4, 4},
      {"6", {"6", "KP_6"}, 2, 8, 4},
      {"7", {"7", "KP_7"}, 3, 0, 4},
      {"8", {"8", "KP_8"}, 3, 4, 4},
      {"9", {"9", "KP_9"}, 3, 8, 4},
      {"Vol +", {"XF86AudioRaiseVolume", "plus", "KP_Add"}, 4, 0, 6},
      {"Ch +", {"XF86RaiseChannel", "Prior"}, 4, 6, 6},
      {"Vol \xe2\x88\x92", {"XF86AudioLowerVolume", "minus", "KP_Subtract"}, 5, 0, 6},
      {"Ch \xe2\x88\x92", {"XF86LowerChannel", "Next"}, 5, 6, 6},
      {"Menu", {"Menu", "m"}, 6, 0, 4},
      {"\xe2\x96\xb2", {"Up"}, 6, 4, 4},
      {"Guide", {"XF86Option", "g"}, 6, 8, 4},
      {"Back", {"Escape"}, 7, 0, 4},
      {"OK", {"Return"}, 7, 4, 4},
      {"Info", {"XF86Info", "i"}, 7, 8, 4},
      {"CC", {"c"}, 8, 0, 4},
      {"\xe2\x96\xbc", {"Down"}, 8, 4, 4},
      {"Text", {"t"}, 8, 8, 4},
      {"Red", {"XF86Red", "r"}, 9, 0, 6},
      {"Record", {"XF86AudioRecord", "o"}, 9, 6, 6},
  };
  return plans;
}

} // namespace

RemoteControl::RemoteControl(const Canvas &canvas) {
  for (const Plan &plan : Plans()) {
    Add(canvas, plan);
  }
}

// Releases the key, which would otherwise stay down when its button goes.
RemoteControl::~RemoteControl() {
  for (Button &button : buttons_) {
    Released(&button, nullptr, nullptr, nullptr);
  }
}

void RemoteControl::Add(const Canvas &canvas, const Plan &plan) {
  Button &button = buttons_.emplace_back(Button{plan});
  Evas_Object *object = canvas.Add("button");
  edje_object_part_text_unescaped_set(object, "text", plan.label);
  evas_object_size_hint_weight_set(object, EVAS_HINT_EXPAND, EVAS_HINT_EXPAND);
  evas_object_size_hint_align_set(object, EVAS_HINT_FILL, EVAS_HINT_FILL);
  edje_object_part_table_pack(canvas.Theme(), "remote:buttons", object, plan.column, plan.row, plan.width, 1);
  if (FindKey(plan.symbols).code == 0) {
    edje_object_signal_emit(object, "absent", "keymap");
    return;
  }
  edje_object_signal_callback_add(object, "press", "button", Pressed, &button);
  edje_object_signal_callback_add(object, "release", "button", Released, &button);
}

void RemoteControl::Pressed(void *data, Evas_Object *, const char *, const char *) {
  auto *button = static_cast<Button *>(data);
  button->is_down = true;
  button->key = FindKey(button->plan.symbols); // the user may have changed the keymap
  PressKey(button->key);
}

void RemoteControl::Released(void *data, Evas_Object *, const char *, const char *) {
  auto *button = static_cast<Button *>(data);
  if (button->is_down) {
    button->is_down = false;
    ReleaseKey(button->key);
  }
}
