#include "end_signals.h"

#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace {

constexpr std::array<int, 2> kSignals = {SIGINT, SIGTERM};
constexpr itimerval kBusyLimit = {{0, 0}, {0, 700'000}}; // from the signal until the main loop handles it
constexpr itimerval kEndLimit = {{0, 0}, {10, 0}};       // from there to the end, which a loaded machine may delay
constexpr char kBusy[] = "lumio-viewer: ended while a module was busy\n";

struct sigaction g_ecores[kSignals.size()]; // what Ecore does with them

// Runs as a signal handler: passes the signal to Ecore, and sets an alarm in case the main loop is busy.
void Asked(int number, siginfo_t *info, void *context) {
  const int error = errno; // the interrupted code may be about to read it
  setitimer(ITIMER_REAL, &kBusyLimit, nullptr);
  const struct sigaction &ecores = g_ecores[number == SIGINT ? 0 : 1];
  if (ecores.sa_flags & SA_SIGINFO) {
    ecores.sa_sigaction(number, info, context);
  }
  errno = error;
}

void Rang(int) {
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kBusy, sizeof kBusy - 1);
  _exit(EXIT_FAILURE);
}

Eina_Bool Quit(void *, int, void *) {
  setitimer(ITIMER_REAL, &kEndLimit, nullptr);
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

// The alarm stays set: the rest of the viewer may hang, too.
EndSignals::~EndSignals() { ecore_event_handler_del(handler_); }
