#include "injector.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <xorg/xf86-input-inputtest-protocol.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "server_process.h"
#include "wait_readable.h"

namespace lumio {

namespace {

[[noreturn]] void Fail(const std::string &what) { throw std::runtime_error("Input device of the X server: " + what); }

[[noreturn]] void FailWithErrno(const std::string &what) { Fail(what + ": " + strerror(errno)); }

// Connects to a socket that is open as a file.
FileDescriptor ConnectTo(const FileDescriptor &socket_file) {
  FileDescriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  ("/proc/self/fd/" + std::to_string(socket_file.Get())).copy(address.sun_path, sizeof address.sun_path);
  if (connect(connection.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    FailWithErrno("cannot connect");
  }
  return connection;
}

} // namespace

Injector::Injector(const std::string &socket_path) : socket_(open(socket_path.c_str(), O_PATH | O_CLOEXEC)) {
  if (socket_.Get() < 0) {
    FailWithErrno(socket_path);
  }
}

void Injector::Connect() {
  if (connection_.Get() >= 0) {
    return;
  }
  connection_ = ConnectTo(socket_);
  xf86ITEventClientVersion version = {};
  version.major = XF86IT_PROTOCOL_VERSION_MAJOR;
  version.minor = XF86IT_PROTOCOL_VERSION_MINOR;
  Send(version, XF86IT_EVENT_CLIENT_VERSION);
  Receive<xf86ITResponseServerVersion>(XF86IT_RESPONSE_SERVER_VERSION);
}

void Injector::Key(int key_code, bool is_press) {
  if (connection_.Get() < 0) {
    return;
  }
  xf86ITEventKey key = {};
  key.key_code = key_code;
  key.is_press = is_press;
  Send(key, XF86IT_EVENT_KEY);
  Send(xf86ITEventWaitForSync{}, XF86IT_EVENT_WAIT_FOR_SYNC);
  Receive<xf86ITResponseSyncFinished>(XF86IT_RESPONSE_SYNC_FINISHED);
}

template <class Event> void Injector::Send(Event event, int type) {
  event.header.length = sizeof event;
  event.header.type = static_cast<xf86ITEventType>(type);
  if (send(connection_.Get(), &event, sizeof event, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof event)) {
    FailWithErrno("cannot send");
  }
}

template <class Response> void Injector::Receive(int type) {
  Response response = {};
  if (!WaitReadable(connection_.Get(), Clock::now() + kPatience)) {
    Fail("no answer");
  }
  const ssize_t received = recv(connection_.Get(), &response, sizeof response, MSG_WAITALL);
  if (received != static_cast<ssize_t>(sizeof response)) {
    Fail(received < 0 ? strerror(errno) : "the server has closed the connection");
  }
  if (response.header.type != static_cast<xf86ITResponseType>(type)) {
    Fail("unexpected answer " + std::to_string(response.header.type));
  }
}

} // namespace lumio
