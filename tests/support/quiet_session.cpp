// Tests a module in a program of its own, which succeeds if the key and the signal arrive.
#include <TVServiceSubscriber.h>
#include <kevent.h>
#include <lumio-host/testing.h>
#include <lumio-host/tv-control.h>

#include <cstdlib>

namespace {

int g_keys;
int g_signals;

int OnPress(lumio_kevent *, lumio_kevent_type, void *, void *) { return g_keys++; }
int OnSignal(ESignalType, TSSignalData, void *) { return g_signals++; }

} // namespace

int main() {
  const lumio::testing::Session session;
  const lumio::testing::EmptyStore store;
  lumio_kevent *domain = lumio_kevent_init("module");
  lumio_kevent_handler_add(domain, LUMIO_KEVENT_PRESS, 3, OnPress, nullptr);
  lumio::testing::Press("Return");
  lumio_kevent_fini(domain);

  CTVServiceSubscriber module("module");
  module.SetSignalCallback(OnSignal);
  module.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0);
  lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, {1, 0});
  lumio::testing::WaitForServices();
  CTVServiceSubscriber::ReleaseAll();
  return g_keys == 1 && g_signals == 1 ? EXIT_SUCCESS : EXIT_FAILURE;
}
