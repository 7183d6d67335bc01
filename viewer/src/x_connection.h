// The connection to the X server, and the parts of EFL that draw through it.
#pragma once

class XConnection {
public:
  // To the server that DISPLAY names. EFL is up without X.
  XConnection();
  ~XConnection();
  XConnection(const XConnection &) = delete;
  XConnection &operator=(const XConnection &) = delete;

  bool IsOpen() const { return open_; }

private:
  bool open_;
};
