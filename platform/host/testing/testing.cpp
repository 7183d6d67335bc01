#include <lumio-host/testing.h>

#include <lumio-host/pvr-control.h>
#include <lumio-host/tv-control.h>

#include <Ecore.h>
#include <Ecore_Input.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <thread>

#include "../src/store.h"
#include "temporary_directory.h"

namespace lumio::testing {
namespace {

constexpr char kStoreVariable[] = "LUMIO_VCONF_DIR";

void FreeKey(void *, void *event) {
  auto *key = static_cast<Ecore_Event_Key *>(event);
  free(const_cast<char *>(key->keyname));
  free(key);
}

// The time counts: the library drops presses that are older than they should be.
void Send(int ecore_type, const std::string &name) {
  auto *key = static_cast<Ecore_Event_Key *>(calloc(1, sizeof(Ecore_Event_Key)));
  key->keyname = key->key = strdup(name.c_str());
  key->timestamp = static_cast<unsigned>(ecore_time_get() * 1000);
  ecore_event_add(ecore_type, key, FreeKey, nullptr);
  TurnLoop();
}

} // namespace

// --- Session ---------------------------------------------------------------------------------------------------------

Session::Session() {
  // EFL ends a program that has neither a home nor a directory of the session. No program can create this one.
  setenv("XDG_RUNTIME_DIR", "/dev/null/run", 0);
  ecore_app_no_system_modules(); // no search for a system bus
  ecore_init();
  ecore_event_init();
  eina_log_domain_level_set("eina_safety", EINA_LOG_LEVEL_CRITICAL); // without a display EFL warns about X events
}

Session::~Session() {
  tv::Shutdown(); // before EFL: the services' threads wake the main loop
  pvr::Shutdown();
  ecore_event_shutdown();
  ecore_shutdown();
  store::Close();
}

// --- Store -----------------------------------------------------------------------------------------------------------

struct EmptyStore::State {
  TemporaryDirectory directory;
  std::optional<std::string> before; // the variable's value
};

EmptyStore::EmptyStore() : state_(std::make_unique<State>()) {
  if (const char *before = getenv(kStoreVariable)) {
    state_->before = before;
  }
  store::Close();
  setenv(kStoreVariable, (state_->directory / "store").c_str(), 1);
}

EmptyStore::~EmptyStore() {
  store::Close();
  if (state_->before) {
    setenv(kStoreVariable, state_->before->c_str(), 1);
  } else {
    unsetenv(kStoreVariable);
  }
}

const std::string &EmptyStore::Directory() const { return state_->directory.Path(); }

// --- Keys ------------------------------------------------------------------------------------------------------------

void Press(const std::string &key) { Send(ECORE_EVENT_KEY_DOWN, key); }

void Release(const std::string &key) { Send(ECORE_EVENT_KEY_UP, key); }

// --- The main loop ---------------------------------------------------------------------------------------------------

void TurnLoop() { ecore_main_loop_iterate(); }

void TurnLoopUntil(const std::function<bool()> &done) {
  // Wakes the loop now and then, for conditions that no event announces.
  Ecore_Timer *tick = ecore_timer_add(
      0.001, [](void *) -> Eina_Bool { return ECORE_CALLBACK_RENEW; }, nullptr);
  while (!done()) {
    ecore_main_loop_iterate_may_block(1);
  }
  ecore_timer_del(tick);
}

namespace {

// Turns the loop until everything that was sent to it so far has been handled: until an event that comes after it.
void HandleAll() {
  static bool handled;
  static const int last = [] {
    const int type = ecore_event_type_new();
    const auto handle = [](void *, int, void *) -> Eina_Bool {
      handled = true;
      return ECORE_CALLBACK_DONE;
    };
    ecore_event_handler_add(type, handle, nullptr);
    return type;
  }();
  const auto post_last = [](void *) { ecore_event_add(last, nullptr, nullptr, nullptr); };
  handled = false;
  std::thread([&] { ecore_main_loop_thread_safe_call_async(post_last, nullptr); }).join();
  TurnLoopUntil([] { return handled; });
}

} // namespace

void WaitForServices() {
  tv::Flush();
  pvr::Flush();
  HandleAll();
}

} // namespace lumio::testing
