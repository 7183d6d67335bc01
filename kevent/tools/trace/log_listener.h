// The library's log lines, as they are written: they tell what its calls do not.
#pragma once

namespace lumio::trace {

// While it exists, it hears the lines that this thread has the library log. The youngest of a thread hears them.
class LogListener {
public:
  LogListener();
  virtual ~LogListener();
  LogListener(const LogListener &) = delete;
  LogListener &operator=(const LogListener &) = delete;

  // `format` is the message's own, without what stands before every message; `message` is its text.
  virtual void Heard(const char *format, const char *message) = 0;

private:
  LogListener *outer_;
};

} // namespace lumio::trace
