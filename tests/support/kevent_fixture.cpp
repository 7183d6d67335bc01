#include "kevent_fixture.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

int Ask(lumio_kevent *kevent, lumio_kevent_type type, void *event_info, void *data) {
  auto *probe = static_cast<Probe *>(data);
  Note(probe->name);
  probe->kevent = kevent;
  probe->type = type;
  probe->event_info = event_info;
  if (const std::function<void()> action = probe->action) { // a copy: it may replace itself
    action();
  }
  return probe->result;
}

Eina_Bool CountKey(void *data, int, void *) {
  ++*static_cast<int *>(data);
  return ECORE_CALLBACK_PASS_ON;
}

void FreeKey(void *, void *event) {
  auto *key = static_cast<Ecore_Event_Key *>(event);
  free(const_cast<char *>(key->keyname));
  free(key);
}

} // namespace

void KeventTest::SetUp() {
  fake_clock.now = kStart;
  fake_vconf.values["db/FactoryApp/Aging"] = 0;
  ECORE_X_EVENT_GENERIC = ecore_event_type_new(); // Ecore_X gives it one when it connects to a display
  fake_ecore.handlers.clear();
  journal.clear();
}

void KeventTest::TearDown() {
  lumio_kevent_cache_list_set(nullptr);
  EXPECT_EQ(fake_x.device_lists, 0);
}

lumio_kevent *KeventTest::Open(const char *name) {
  lumio_kevent *kevent = lumio_kevent_init(name);
  if (!std::exchange(observing, true)) {
    ecore_event_handler_add(ECORE_EVENT_KEY_DOWN, CountKey, &passed_on);
    ecore_event_handler_add(ECORE_EVENT_KEY_UP, CountKey, &passed_on);
    journal.clear();
    ClearLog();
  }
  return kevent;
}

Probe &KeventTest::Add(lumio_kevent *kevent, const char *name, int priority, lumio_kevent_type type) {
  Probe &probe = probes.emplace_back();
  probe.name = name;
  probe.handle = lumio_kevent_handler_add(kevent, type, priority, Ask, &probe);
  return probe;
}

void KeventTest::Post(int ecore_type, const char *keyname, unsigned milliseconds) {
  auto *key = static_cast<Ecore_Event_Key *>(calloc(1, sizeof(Ecore_Event_Key)));
  key->keyname = keyname ? strdup(keyname) : nullptr;
  key->timestamp = milliseconds;
  ecore_event_add(ecore_type, key, FreeKey, nullptr);
}

void KeventTest::Press(const char *keyname, unsigned milliseconds) {
  Post(ECORE_EVENT_KEY_DOWN, keyname, milliseconds);
  TurnLoop();
}

void KeventTest::Release(const char *keyname, unsigned milliseconds) {
  Post(ECORE_EVENT_KEY_UP, keyname, milliseconds);
  TurnLoop();
}

void KeventTest::IgnoreAPress() {
  Press("Return", kPowerOn);
  fake_clock.now = *fake_clock.now + 10;
  Press("Return", kPowerOn + 1000);
}

Eina_Bool KeventTest::CallBack(int installed_for, int type, void *event) {
  for (const FakeEcore::Handler &handler : fake_ecore.handlers) {
    if (handler.type == installed_for) {
      return handler.callback(const_cast<void *>(handler.data), type, event);
    }
  }
  ADD_FAILURE() << "nothing is installed for event type " << installed_for;
  return ECORE_CALLBACK_PASS_ON;
}

Eina_Bool KeventTest::SendGeneric(int extension, int evtype, void *data) {
  Ecore_X_Event_Generic event = {extension, evtype, 0, data};
  return CallBack(ECORE_X_EVENT_GENERIC, ECORE_X_EVENT_GENERIC, &event);
}

void KeventTest::HushEfl(const std::vector<const char *> &domains) {
  for (const char *domain : domains) {
    eina_log_domain_level_set(domain, EINA_LOG_LEVEL_CRITICAL);
  }
}

std::vector<std::string> KeventTest::TakeJournal() { return std::exchange(journal, {}); }

std::vector<std::string> KeventTest::TakeLog() {
  std::vector<std::string> messages = LogMessages();
  ClearLog();
  return messages;
}

void *KeventTest::ForbiddenPage() {
  void *page = mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  EXPECT_NE(page, MAP_FAILED);
  return page;
}
