#include "fake_clock.h"

#include <Ecore.h>
#include <dlfcn.h>

FakeClock fake_clock;

extern "C" double ecore_time_get(void) {
  static const auto real = reinterpret_cast<decltype(&ecore_time_get)>(dlsym(RTLD_NEXT, "ecore_time_get"));
  if (fake_clock.on_read) {
    fake_clock.on_read();
  }
  return fake_clock.now ? *fake_clock.now : real();
}
