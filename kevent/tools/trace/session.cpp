#include "session.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "record.h"
#include "state.h"

namespace lumio::trace {

namespace {

std::mutex &g_mutex = *new std::mutex; // never destroyed: threads of the services outlive the end of main
std::atomic<bool> g_state_wanted{false};

void RestorePreload(const std::string &preload) {
  if (preload.empty()) {
    unsetenv("LD_PRELOAD");
  } else {
    setenv("LD_PRELOAD", preload.c_str(), 1);
  }
}

// The program and its children see the environment and the descriptors of an untraced program.
const Options *TakeOptions() {
  const char *text = getenv(kVariable);
  auto *options = new Options(text ? ReadOptions(text) : Options());
  if (text) {
    unsetenv(kVariable);
    RestorePreload(options->preload);
  }
  for (const int descriptor : {options->output, options->record, options->replay_keys}) {
    if (descriptor > STDERR_FILENO) {
      fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
  }
  return options;
}

struct sigaction g_ecore_action; // what Ecore does with the signal; zero while it does nothing
std::atomic<bool> g_signal_is_taken{false};

void PrintOrPutOff() {
  if (g_mutex.try_lock()) {
    PrintState();
    g_mutex.unlock();
  } else {
    g_state_wanted = true;
  }
}

void OnSignal(int number, siginfo_t *information, void *context) {
  const int error = errno;
  if (!g_signal_is_taken) {
    PrintOrPutOff();
  }
  if (g_ecore_action.sa_flags & SA_SIGINFO) {
    g_ecore_action.sa_sigaction(number, information, context);
  }
  errno = error;
}

__attribute__((constructor)) void Begin() {
  TheOptions();
  BeginRecord();
  ListenForSignal(nullptr);
}

__attribute__((destructor)) void End() {
  RecordEnd();
  if (TheOptions().summary) {
    const Lock lock;
    PrintState();
  }
}

} // namespace

const Options &TheOptions() {
  static const Options &options = *TakeOptions(); // never destroyed: the trace goes on until the last thread ends
  return options;
}

// A handler of the program's own replaces this one. Ecore always installs a handler that turns the signal into an
// event, so that one is called after ours.
void ListenForSignal(const void *ecore) {
  struct sigaction action = {};
  Dl_info installer;
  Dl_info ecore_object;
  sigaction(SIGUSR1, nullptr, &action);
  const auto *handler = reinterpret_cast<const void *>(action.sa_sigaction);
  if (action.sa_handler == SIG_DFL) {
    g_ecore_action = {};
    action.sa_flags = SA_RESTART | SA_SIGINFO;
  } else if (ecore && dladdr(handler, &installer) && dladdr(ecore, &ecore_object) &&
             installer.dli_fbase == ecore_object.dli_fbase) {
    g_ecore_action = action;
    action.sa_flags |= SA_SIGINFO;
  } else {
    return;
  }
  action.sa_sigaction = OnSignal;
  sigaction(SIGUSR1, &action, nullptr);
}

void LeaveSignalToProgram() { g_signal_is_taken = true; }

Lock::Lock() { g_mutex.lock(); }

Lock::~Lock() {
  if (g_state_wanted.exchange(false)) {
    PrintState();
  }
  g_mutex.unlock();
}

void AppendClock(Text &text, Nanoseconds wall) {
  const time_t seconds = static_cast<time_t>(wall / kSecond);
  static thread_local time_t known_minute = -1;
  static thread_local tm known = {};
  if (seconds / 60 != known_minute) {
    localtime_r(&seconds, &known);
    known_minute = seconds / 60;
  }
  text.AppendNumber(known.tm_hour, 2);
  text.AppendBytes(":");
  text.AppendNumber(known.tm_min, 2);
  text.AppendBytes(":");
  text.AppendNumber(seconds % 60, 2);
  text.AppendBytes(".");
  text.AppendNumber(wall % kSecond / kMillisecond, 3);
}

void AppendUnixTime(Text &text, Nanoseconds wall) {
  text.Append("%lld.%06lld", static_cast<long long>(wall / kSecond), static_cast<long long>(wall % kSecond / 1000));
}

void AppendHead(Text &text, Nanoseconds wall, const char *kind) {
  if (TheOptions().json) {
    text.Append("{\"event\":\"%s\",\"time\":", kind);
    AppendUnixTime(text, wall);
  } else {
    AppendClock(text, wall);
    text.AppendBytes(" ");
    text.AppendColumn(kind, 9);
  }
}

void Put(Text &text) {
  const int error = errno;
  const char *rest = text.Data();
  size_t left = text.Size();
  while (left > 0) {
    const ssize_t written = write(TheOptions().output, rest, left);
    if (written >= 0) {
      rest += written;
      left -= static_cast<size_t>(written);
    } else if (errno == EAGAIN) {
      pollfd room = {TheOptions().output, POLLOUT, 0};
      poll(&room, 1, -1);
    } else if (errno != EINTR) {
      break; // the reader has gone
    }
  }
  text.Clear();
  errno = error;
}

} // namespace lumio::trace
