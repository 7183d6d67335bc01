// Presses keys of the viewer until the library has not dropped them.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "device_names.h"
#include "display.h"

// Whether the viewer's line tells of a press of the key.
inline bool IsPressOf(const std::string &key, const std::string &line) {
  return line.find("  key     " + key + "  ") != std::string::npos && line.find("  press  ") != std::string::npos;
}

// Calls `tap`, which presses and releases the key, and again for as long as the library drops the press: on a busy
// machine it may be one of a burst, or late. Returns the viewer's line about the press that was not dropped. `read`
// returns the viewer's next line; nothing when there is none, which ends this.
inline std::string TapUntilNotDropped(const std::string &key, const std::function<void()> &tap,
                                      const std::function<std::optional<std::string>()> &read) {
  std::optional<std::string> line;
  do {
    tap();
    do {
      line = read();
    } while (line && !IsPressOf(key, *line));
  } while (line && line->find("  dropped: ") != std::string::npos);
  return line.value_or("");
}

// Taps a key of the display's hardware keys.
inline std::string TapUntilNotDropped(lumio::PrivateDisplay &display, const std::string &key,
                                      const std::function<std::optional<std::string>()> &read) {
  const auto tap = [&] {
    display.Press(lumio::device::kHardwareKeys, key);
    display.Release(lumio::device::kHardwareKeys, key);
  };
  return TapUntilNotDropped(key, tap, read);
}
