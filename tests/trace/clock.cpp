// Modules in a program whose clock stands still unless they move it, so that a test can expect exact times.
#include <Ecore.h>
#include <Ecore_Input.h>
#include <LumioStateSubscriber.h>
#include <TVServiceSubscriber.h>
#include <kevent.h>
#include <lumio-host/tv-control.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <string>

namespace {

constexpr long long kMicrosecond = 1000; // nanoseconds
constexpr long long kMillisecond = 1000 * kMicrosecond;
constexpr long long kSecond = 1000 * kMillisecond;

std::atomic<long long> g_now{0};

void Pass(long long time) { g_now += time; }

// --- Callbacks -------------------------------------------------------------------------------------------------------

int OnKey(lumio_kevent *, lumio_kevent_type, void *, void *) {
  Pass(12 * kMillisecond + 345 * kMicrosecond);
  return 1;
}

int OnLongKey(lumio_kevent *, lumio_kevent_type, void *, void *) {
  Pass(150 * kMillisecond);
  return 0;
}

int OnSignal(ESignalType, TSSignalData, void *) {
  Pass(4 * kMicrosecond);
  return 0;
}

// --- What happens ----------------------------------------------------------------------------------------------------

void Press(const char *name) {
  auto *key = static_cast<Ecore_Event_Key *>(calloc(1, sizeof(Ecore_Event_Key)));
  key->keyname = name;
  ecore_event_add(ECORE_EVENT_KEY_DOWN, key, nullptr, nullptr);
  ecore_main_loop_iterate();
}

void AskTwo() {
  const auto take = [](lumio_kevent *, lumio_kevent_type, void *, void *) {
    Pass(3 * kMillisecond);
    return 0;
  };
  lumio_kevent_handler_add(lumio_kevent_init("menu"), LUMIO_KEVENT_PRESS, 0, OnKey, nullptr);
  lumio_kevent_handler_add(lumio_kevent_init("guide"), LUMIO_KEVENT_PRESS, 1, take, nullptr);
  Press("Up");
  Pass(200 * kMillisecond);
  Press("Down");
}

void Stall() {
  lumio_kevent_handler_add(lumio_kevent_init("menu"), LUMIO_KEVENT_PRESS, 0, OnLongKey, nullptr);
  Press("Up");
}

// The service's thread tells of a signal.
void SendSignal() {
  lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, {1, 2});
  lumio::tv::Flush();
}

// Keeps the main loop twice between the service's call and the delivery.
void Tell() {
  CTVServiceSubscriber tuner("tuner");
  tuner.SetSignalCallback(OnSignal);
  tuner.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0);
  for (int time = 0; time < 2; ++time) {
    SendSignal();
    Pass(200 * kMillisecond);
    ecore_main_loop_iterate();
  }
  CTVServiceSubscriber::ReleaseAll();
  lumio::tv::Shutdown();
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
  if (clock != CLOCK_MONOTONIC) {
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  }
  if (g_now == 0) { // begins with the computer's time
    syscall(SYS_clock_gettime, clock, time);
    g_now = time->tv_sec * kSecond + time->tv_nsec;
  }
  const long long now = g_now;
  *time = {now / kSecond, now % kSecond};
  return 0;
}

int main(int argc, char **argv) {
  const std::string scenario = argc > 1 ? argv[1] : "";
  ecore_app_no_system_modules();
  ecore_init();
  ecore_event_init();
  if (scenario == "ask") {
    AskTwo();
  } else if (scenario == "stall") {
    Stall();
  } else if (scenario == "silence") {
    Tell();
  }
  ecore_event_shutdown();
  ecore_shutdown();
  return 0;
}
