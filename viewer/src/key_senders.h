// Finds the name of the input device that sent the last key. The library only gives its kind.
#pragma once

#include <Ecore.h>

#include <string>

class KeySenders {
public:
  // Construct it while the library listens to the X server's devices, that is, after the first domain was opened.
  KeySenders();
  ~KeySenders();
  KeySenders(const KeySenders &) = delete;
  KeySenders &operator=(const KeySenders &) = delete;

  // Empty until a device has begun to send.
  const std::string &Last() const { return last_; }

private:
  static Eina_Bool EventCame(void *data, int type, void *event);

  int opcode_ = -1; // of the X Input extension
  std::string last_;
  Ecore_Event_Handler *handler_;
};
