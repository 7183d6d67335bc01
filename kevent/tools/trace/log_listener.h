// Receives the library's log messages as they are written. They contain what the results of its calls do not report.
#pragma once

namespace lumio::trace {

// While it exists, it receives the messages that the library logs on this thread. A thread's newest listener gets them.
class LogListener {
public:
  LogListener();
  virtual ~LogListener();
  LogListener(const LogListener &) = delete;
  LogListener &operator=(const LogListener &) = delete;

  // `format` is the message's own format, without the beginning that all messages share; `message` is its text.
  virtual void Heard(const char *format, const char *message) = 0;

private:
  LogListener *outer_;
};

} // namespace lumio::trace
