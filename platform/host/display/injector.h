// The client side of an input device of the X server's "inputtest" driver.
#pragma once

#include <string>

#include "file_descriptor.h"

namespace lumio {

class Injector {
public:
  // Opens the driver's socket, whose path is not needed afterwards. Throws std::runtime_error.
  explicit Injector(const std::string &socket_path);

  // The driver accepts a connection while its device is enabled, and drops it when the device is disabled. Connect does
  // nothing if a connection exists, and throws std::runtime_error if none can be made.
  void Connect();
  void Disconnect() { connection_.Close(); }

  // Sends a key and waits until the server has passed it on. Does nothing without a connection. Throws
  // std::runtime_error.
  void Key(int key_code, bool is_press);

private:
  template <class Event> void Send(Event event, int type);
  template <class Response> void Receive(int type);
  FileDescriptor socket_;
  FileDescriptor connection_;
};

} // namespace lumio
