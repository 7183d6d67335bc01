// Wraps the functions of kevent.h: registers handlers that call the modules' handlers, and checks every argument. The
// library identifies a handler by its handle, so modules see no difference.
#include <kevent.h>

#include <Ecore_Input.h>

#include <algorithm>
#include <map>
#include <memory>
#include <tuple>
#include <utility>

#include "checks.h"
#include "devices.h"
#include "efl.h"
#include "key_event.h"
#include "next.h"
#include "rooms.h"
#include "session.h"
#include "symbols.h"
#include "work.h"

using namespace lumio::trace;

namespace {

constexpr int kPriorities = 7;

// The totals of handlers that look alike, in the order in which the library asks them. Kept until the end.
using Place = std::tuple<int, lumio_kevent_type, std::string, std::string>; // priority, type, domain, symbol
struct Totals {
  int registered = 0; // now
  unsigned calls = 0;
  Nanoseconds longest = 0;
};

struct Handler {
  lumio_kevent *kevent = nullptr;
  std::string domain;
  int priority = 0;
  lumio_kevent_cb cb = nullptr;
  void *data = nullptr;
  Symbol symbol;
  Totals *totals = nullptr;
  bool deleted = false; // by its owner; the library may still hold it
};

struct Keys {
  std::map<const lumio_kevent *, std::string> domains; // the open ones
  // The library reuses a handle only after it has released it. Until then its record may still be in use.
  std::map<const lumio_kevent_handler *, std::unique_ptr<Handler>> handlers;
  std::map<Place, Totals> totals;
  int count[kOutcomes] = {};
};

Keys &g_keys = *new Keys;     // never destroyed: modules close their domains as late as at exit
thread_local KeyEvent *g_key; // the innermost one that this thread dispatches
Ecore_Event_Handler_Cb g_key_callback;
Ecore_Event_Handler_Cb g_generic_callback;

Next<lumio_kevent *(const char *)> g_init("lumio_kevent_init");
Next<void(lumio_kevent *)> g_fini("lumio_kevent_fini");
Next<lumio_kevent_handler *(lumio_kevent *, lumio_kevent_type, int, lumio_kevent_cb, void *)>
    g_handler_add("lumio_kevent_handler_add");
Next<void(lumio_kevent_handler *)> g_handler_del("lumio_kevent_handler_del");
Next<int()> g_source_type_get("lumio_event_source_type_get");
Next<void()> g_cursor("lumio_cursor_show_after_movement");
Next<void(std::vector<bool *> *)> g_cache_list_set("lumio_kevent_cache_list_set");
Next<Ecore_Event_Handler *(int, Ecore_Event_Handler_Cb, const void *)> g_event_handler_add("ecore_event_handler_add");

Variable<const int> g_key_down("ECORE_EVENT_KEY_DOWN");
Variable<const int> g_key_up("ECORE_EVENT_KEY_UP");
Variable<const int> g_generic("ECORE_X_EVENT_GENERIC");

bool IsOf(Variable<const int> &type, int value) { return type.Get() && *type.Get() == value; }

const char *TypeName(lumio_kevent_type type) { return type == LUMIO_KEVENT_PRESS ? "press" : "release"; }

// --- Handlers --------------------------------------------------------------------------------------------------------

// Records the answer even if the handler throws.
class Question {
public:
  explicit Question(Handler &handler)
      : handler_(handler), key_(g_key), work_(handler.domain.c_str(), handler.symbol.name.c_str()) {}
  ~Question() {
    const Nanoseconds took = work_.End();
    {
      const Lock lock;
      ++handler_.totals->calls;
      handler_.totals->longest = std::max(handler_.totals->longest, took);
    }
    if (key_) {
      key_->Answered({handler_.domain, handler_.priority, handler_.symbol.name, took, answer_ == 0});
    }
  }
  Question(const Question &) = delete;
  Question &operator=(const Question &) = delete;

  int Answer(int answer) { return answer_ = answer; }

private:
  Handler &handler_;
  KeyEvent *key_;
  Work work_;
  int answer_ = 1;
};

int Ask(lumio_kevent *kevent, lumio_kevent_type type, void *event_info, void *data) {
  Handler &handler = *static_cast<Handler *>(data);
  Question question(handler);
  return question.Answer(handler.cb(kevent, type, event_info, handler.data));
}

// --- Keys ------------------------------------------------------------------------------------------------------------

Eina_Bool OnKey(void *data, int type, void *event) {
  auto *ecore_key = static_cast<Ecore_Event_Key *>(event);
  BeginKey(ecore_key);
  KeyEvent key(ecore_key && ecore_key->keyname ? ecore_key->keyname : "", IsOf(g_key_down, type),
               ecore_key ? ecore_key->timestamp : 0);
  KeyEvent *const outer = std::exchange(g_key, &key);
  const Eina_Bool result = g_key_callback(data, type, event);
  g_key = outer;
  key.End();
  const Lock lock;
  ++g_keys.count[static_cast<int>(key.Result())];
  return result;
}

Eina_Bool OnGeneric(void *data, int type, void *event) {
  NoteGenericEvent(event);
  return g_generic_callback(data, type, event);
}

// --- Checks ----------------------------------------------------------------------------------------------------------

constexpr char kInit[] = "lumio_kevent_init";
constexpr char kFini[] = "lumio_kevent_fini";
constexpr char kAdd[] = "lumio_kevent_handler_add";
constexpr char kDel[] = "lumio_kevent_handler_del";

// Returns null if the domain is not open.
const std::string *OpenDomain(const lumio_kevent *kevent) {
  const auto found = g_keys.domains.find(kevent);
  return found == g_keys.domains.end() ? nullptr : &found->second;
}

std::string DomainName(const lumio_kevent *kevent) {
  const Lock lock;
  const std::string *name = OpenDomain(kevent);
  return name ? *name : "";
}

bool IsOpen(const lumio_kevent *kevent) {
  const Lock lock;
  return OpenDomain(kevent);
}

void CheckInit(const char *domain, const void *caller) {
  if (!domain) {
    Report({kInit, "domain", "null", "", "a domain needs a name: pass the name of the module"}, caller);
  }
  const std::string module = domain ? domain : "";
  if (!CheckEcore(kInit, caller) || !CheckMainLoop(kInit, module, caller)) {
    return;
  }
  if (!IsEcoreEventUp()) {
    Report(
        {kInit, "", "", module, "Ecore's events are not initialised: call ecore_event_init() first, or no key arrives"},
        caller);
  }
  if (IsXMissing()) {
    Report({kInit, "", "", module,
            "DISPLAY is set and X is not initialised: call ecore_x_init(NULL) first, or the library sees no "
            "input device"},
           caller);
  }
}

void CheckDomain(const char *function, const lumio_kevent *kevent, const void *caller) {
  if (!kevent) {
    Report({function, "kevent", "null", "", "the domain is null: check the result of lumio_kevent_init()"}, caller);
  } else if (!IsOpen(kevent)) {
    Report({function, "kevent", Pointer(kevent), "",
            "this is not an open domain: it was closed, or did not come from lumio_kevent_init()"},
           caller);
  }
}

void CheckAdd(lumio_kevent *kevent, lumio_kevent_type type, int priority, lumio_kevent_cb cb, const void *caller) {
  const std::string module = DomainName(kevent);
  CheckDomain(kAdd, kevent, caller);
  CheckMainLoop(kAdd, module, caller);
  if (!cb) {
    Report({kAdd, "cb", "null", module, "no handler was added, because a handler needs a callback"}, caller);
  }
  if (type != LUMIO_KEVENT_PRESS && type != LUMIO_KEVENT_RELEASE) {
    Report({kAdd, "type", std::to_string(type), module,
            "no handler was added, because there is no such type: use LUMIO_KEVENT_PRESS or LUMIO_KEVENT_RELEASE"},
           caller);
  }
  if (priority < 0 || priority >= kPriorities) {
    Report({kAdd, "priority", std::to_string(priority), module,
            "no handler was added, because there is no such priority: use 0 (asked first) to 6"},
           caller);
  }
}

void CheckDel(const lumio_kevent_handler *handler, const void *caller) {
  std::string module;
  bool known = false;
  bool deleted = false;
  {
    const Lock lock;
    const auto found = g_keys.handlers.find(handler);
    if (found != g_keys.handlers.end()) {
      known = true;
      deleted = found->second->deleted;
      module = found->second->domain;
    }
  }
  CheckMainLoop(kDel, module, caller);
  if (!handler) {
    Report({kDel, "handler", "null", "", "the handler is null: check the result of lumio_kevent_handler_add()"},
           caller);
  } else if (!known) {
    Report({kDel, "handler", Pointer(handler), "",
            "this is not a handler: it did not come from lumio_kevent_handler_add()"},
           caller);
  } else if (deleted) {
    Report({kDel, "handler", Pointer(handler), module,
            "this handler was deleted before, or its domain was closed: do not use the handle after that"},
           caller);
  }
}

// --- State -----------------------------------------------------------------------------------------------------------

void AppendTotals(Text &text, const Place &place, const Totals &totals) {
  const auto &[priority, type, domain, symbol] = place;
  if (TheOptions().json) {
    text.Append("{\"event\":\"state\",\"handler\":");
    text.AppendQuoted(symbol.c_str());
    text.Append(",\"domain\":");
    text.AppendQuoted(domain.c_str());
    text.Append(",\"priority\":%d,\"kind\":\"%s\",\"registered\":%d,\"calls\":%u,\"longest_ms\":", priority,
                TypeName(type), totals.registered, totals.calls);
    text.AppendMilliseconds(totals.longest);
    text.Append("}\n");
    return;
  }
  text.Append("%s%d %-8s ", kMore, priority, TypeName(type));
  text.AppendColumn(domain.c_str(), 18);
  text.Append(" %6u calls, longest ", totals.calls);
  text.AppendDuration(totals.longest);
  text.Append("%s  ", totals.registered ? "" : ", deleted");
  text.AppendClean(symbol.c_str());
  text.Append("\n");
}

void Delete(Handler &handler) {
  if (!handler.deleted) {
    handler.deleted = true;
    --handler.totals->registered;
  }
}

} // namespace

namespace lumio::trace {

Ecore_Event_Handler *AddEventHandler(int type, Ecore_Event_Handler_Cb callback, const void *data, const void *caller) {
  if (type == 0 || !IsInLibrary(caller)) { // type 0 belongs to a part of Ecore that is not initialised
    if (type == ECORE_EVENT_SIGNAL_USER) {
      LeaveSignalToProgram();
    }
    return g_event_handler_add(type, callback, data);
  }
  if (IsOf(g_key_down, type) || IsOf(g_key_up, type)) {
    g_key_callback = callback;
    return g_event_handler_add(type, OnKey, data);
  }
  if (IsOf(g_generic, type)) {
    g_generic_callback = callback;
    return g_event_handler_add(type, OnGeneric, data);
  }
  return g_event_handler_add(type, callback, data);
}

void NoteWalkEnded() {
  if (g_key) {
    g_key->WalkEnded();
  }
}

void VisitKeyCallbacks(const CallbackVisitor &visit) {
  for (const auto &[handle, handler] : g_keys.handlers) {
    if (!handler->deleted) {
      visit("handler", handler->domain, handler->symbol, reinterpret_cast<const void *>(handler->cb));
    }
  }
}

} // namespace lumio::trace

extern "C" {

lumio_kevent *lumio_kevent_init(const char *domain) {
  CheckInit(domain, __builtin_return_address(0));
  lumio_kevent *kevent = g_init(domain);
  if (kevent) {
    const Lock lock;
    g_keys.domains[kevent] = domain;
  }
  return kevent;
}

void lumio_kevent_fini(lumio_kevent *kevent) {
  const void *caller = __builtin_return_address(0);
  if (!IsInLibrary(caller)) {
    CheckDomain(kFini, kevent, caller);
    CheckMainLoop(kFini, DomainName(kevent), caller);
  }
  {
    const Lock lock;
    for (const auto &[handle, handler] : g_keys.handlers) {
      if (handler->kevent == kevent) {
        Delete(*handler);
      }
    }
    g_keys.domains.erase(kevent);
  }
  g_fini(kevent);
}

lumio_kevent_handler *lumio_kevent_handler_add(lumio_kevent *kevent, lumio_kevent_type type, int priority,
                                               lumio_kevent_cb cb, void *data) {
  CheckAdd(kevent, type, priority, cb, __builtin_return_address(0));
  auto record = std::make_unique<Handler>();
  record->kevent = kevent;
  record->domain = DomainName(kevent);
  record->priority = priority;
  record->cb = cb;
  record->data = data;
  record->symbol = SymbolOf(cb);
  lumio_kevent_handler *handler = g_handler_add(kevent, type, priority, cb ? Ask : nullptr, record.get());
  if (handler) {
    const Lock lock;
    record->totals = &g_keys.totals[{priority, type, record->domain, record->symbol.name}];
    ++record->totals->registered;
    std::unique_ptr<Handler> &place = g_keys.handlers[handler];
    if (place) {
      Delete(*place);
    }
    place = std::move(record);
  }
  return handler;
}

void lumio_kevent_handler_del(lumio_kevent_handler *handler) {
  const void *caller = __builtin_return_address(0);
  if (!IsInLibrary(caller)) {
    CheckDel(handler, caller);
    const Lock lock;
    const auto found = g_keys.handlers.find(handler);
    if (found != g_keys.handlers.end()) {
      Delete(*found->second);
    }
  }
  g_handler_del(handler);
}

int lumio_event_source_type_get(void) {
  CheckMainLoop("lumio_event_source_type_get", "", __builtin_return_address(0));
  return g_source_type_get();
}

void lumio_cursor_show_after_movement(void) {
  constexpr char kFunction[] = "lumio_cursor_show_after_movement";
  const void *caller = __builtin_return_address(0);
  if (CheckMainLoop(kFunction, "", caller) && !IsXUp()) {
    Report({kFunction, "", "", "", "X is not initialised: call ecore_x_init(NULL) first; nothing was set"}, caller);
  }
  g_cursor();
}

void lumio_kevent_cache_list_set(std::vector<bool *> *list) {
  CheckMainLoop("lumio_kevent_cache_list_set", "", __builtin_return_address(0));
  g_cache_list_set(list);
}

} // extern "C"

namespace lumio::trace {

void PrintKeyState(Text &text) {
  const bool json = TheOptions().json;
  for (const auto &[kevent, name] : g_keys.domains) {
    if (json) {
      text.Append("{\"event\":\"state\",\"domain\":");
      text.AppendQuoted(name.c_str());
      text.Append("}\n");
    } else {
      text.Append("%sdomain ", kMore);
      text.AppendClean(name.c_str());
      text.Append("\n");
    }
    Put(text);
  }
  for (const auto &[place, totals] : g_keys.totals) {
    AppendTotals(text, place, totals);
    Put(text);
  }
  for (int outcome = 0; outcome < kOutcomes; ++outcome) {
    if (g_keys.count[outcome] != 0) {
      const char *name = NameOf(static_cast<Outcome>(outcome));
      if (json) {
        text.Append("{\"event\":\"state\",\"keys\":\"%s\",\"count\":%d}\n", name, g_keys.count[outcome]);
      } else {
        text.Append("%skeys      %6d %s\n", kMore, g_keys.count[outcome], name);
      }
      Put(text);
    }
  }
}

} // namespace lumio::trace
