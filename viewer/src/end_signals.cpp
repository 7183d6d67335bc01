#include "end_signals.h"

#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace {

constexpr std::array<int, 2> kSignals = {SIGINT, SIGTERM};
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) // which look for leaks and races at the end
constexpr itimerval kLimit = {{0, 0}, {5, 0}};
#else
constexpr itimerval kLimit = {{0, 0}, {0, 900'000}}; // from the signal until the process has ended
#endif
constexpr char kHangs[] = "lumio-viewer: something hangs: ended before everything was closed\n";

struct sigaction g_ecores[kSignals.size()]; // what Ecore does with them
volatile sig_atomic_t g_is_asked = 0;

// Runs as a signal handler: passes the signal to Ecore. The first signal sets the alarm; more must not delay it.
void Asked(int number, siginfo_t *info, void *context) {
  const int error = errno; // the interrupted code may be about to read it
  if (!g_is_asked) {
    g_is_asked = 1;
    setitimer(ITIMER_REAL, &kLimit, nullptr);
  }
  const struct sigaction &ecores = g_ecores[number == SIGINT ? 0 : 1];
  if (ecores.sa_flags & SA_SIGINFO) {
    ecores.sa_sigaction(number, info, context);
  }
  errno = error;
}

// Runs as a signal handler. Writing to a full pipe would hang, too.
void Rang(int) {
  pollfd error = {STDERR_FILENO, POLLOUT, 0};
  if (poll(&error, 1, 0) == 1) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kHangs, sizeof kHangs - 1);
  }
  _exit(EXIT_FAILURE);
}

Eina_Bool Quit(void *, int, void *) {
  ecore_main_loop_quit();
  return ECORE_CALLBACK_PASS_ON;
}

} // namespace

EndSignals::EndSignals() : handler_(ecore_event_handler_add(ECORE_EVENT_SIGNAL_EXIT, Quit, nullptr)) {
  std::signal(SIGALRM, Rang);
  struct sigaction ours = {};
  ours.sa_sigaction = Asked;
  ours.sa_flags = SA_SIGINFO | SA_RESTART;
  for (size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], &ours, &g_ecores[i]);
  }
}

// The alarm stays set: what comes after may hang, too.
EndSignals::~EndSignals() { ecore_event_handler_del(handler_); }
