// The front door of the key events: domains and handlers, and the way of a key to them.
//
// Everything runs on the main-loop thread, so there is no lock. The danger is re-entrance: a handler may delete
// anything, itself included, while the lists are being walked. During a dispatch nothing is released: deletions only
// mark, and the collection at the end of the outermost dispatch releases what was marked.
#include "kevent.h"

#include <Ecore.h>
#include <Ecore_Input.h>
#include <Ecore_X.h>
#include <Eina.h>
#include <sys/prctl.h>
#include <vconf.h>

#include <cstdlib>
#include <cstring>
#include <unordered_set>
#include <utility>

#include "key_filter.h"
#include "key_manager.h"
#include "key_source.h"
#include "list.h"
#include "log.h"

using lumio::Append;
using lumio::g_kmgr;
using lumio::kError;
using lumio::KeventManager;
using lumio::kPriorities;
using lumio::kTrace;

namespace {

constexpr int kTraceMark = 666;            // the platform's prctl option for user-space trace marks
constexpr char kKeyCallback[] = "_key_cb"; // helpers of the key callback log in its name: log filters know it

bool g_busy_flag;   // a key came since the main loop was last idle
int g_key_cb_count; // how many did
bool g_has_marked;  // something was marked as deleted since the last collection
std::vector<bool *> *g_cache_list;

// Every handler that exists, so that a stale or foreign handle is recognised without being read.
using LiveHandlers = std::unordered_set<const lumio_kevent_handler *>;
LiveHandlers &g_live = *new LiveHandlers; // never destroyed: modules delete handlers as late as in destructors at exit

// --- Domains and handlers --------------------------------------------------------------------------------------------

bool _is_open(const lumio_kevent *kevent) { return eina_list_data_find(g_kmgr.domains, kevent); }

bool _is_valid_kevent(const lumio_kevent *kevent) {
  if (_is_open(kevent)) {
    return true;
  }
  LUMIO_LOG(kError, "Invalid kevent");
  return false;
}

bool _is_type(lumio_kevent_type type) { return static_cast<unsigned>(type) <= LUMIO_KEVENT_RELEASE; }

bool _is_priority(int priority) { return static_cast<unsigned>(priority) < kPriorities; }

bool _is_live(const lumio_kevent_handler *handler) { return g_live.count(handler) != 0; }

bool _has_valid_fields(const lumio_kevent_handler *handler) {
  return handler->kevent && handler->cb && _is_priority(handler->priority) && _is_type(handler->type);
}

void _unlink(lumio_kevent_handler *handler) {
  Eina_List **list = &g_kmgr.handler_lists[handler->priority];
  handler->kevent->handlers = eina_list_remove_list(handler->kevent->handlers, handler->domain_node);
  *list = eina_list_remove_list(*list, handler->priority_node);
}

// Puts the handler on its two lists. Returns false, with everything undone, if there is no memory.
bool _link(lumio_kevent_handler *handler) {
  handler->domain_node = Append(&handler->kevent->handlers, handler);
  handler->priority_node = Append(&g_kmgr.handler_lists[handler->priority], handler);
  if (handler->domain_node && handler->priority_node) {
    try {
      g_live.insert(handler);
      return true;
    } catch (...) {
      // No memory. The caller reports it like a failure of the other allocations.
    }
  }
  _unlink(handler);
  return false;
}

void _release(lumio_kevent_handler *handler) {
  g_live.erase(handler);
  _unlink(handler);
  free(handler);
}

// Releases a domain and its handlers. The manager stays installed even without a domain.
void _release(lumio_kevent *kevent) {
  while (kevent->handlers) {
    _release(static_cast<lumio_kevent_handler *>(eina_list_data_get(kevent->handlers)));
  }
  g_kmgr.domains = eina_list_remove(g_kmgr.domains, kevent);
  free(kevent->name);
  free(kevent);
}

// Returns null when there is no memory for the record or its place in the list.
lumio_kevent *_open_domain(const char *name) {
  auto *kevent = static_cast<lumio_kevent *>(calloc(1, sizeof(lumio_kevent)));
  if (!kevent) {
    return nullptr;
  }
  if (!Append(&g_kmgr.domains, kevent)) {
    free(kevent);
    return nullptr;
  }
  kevent->name = strdup(name); // a domain without a name works; see _name()
  return kevent;
}

// Returns the domain's name as log lines show it.
const char *_name(const lumio_kevent *kevent) { return kevent->name ? kevent->name : "(null)"; }

// --- Collection ------------------------------------------------------------------------------------------------------

void _release_marked_handlers(lumio_kevent *kevent) {
  Eina_List *node, *next;
  void *data;
  EINA_LIST_FOREACH_SAFE(kevent->handlers, node, next, data) {
    auto *handler = static_cast<lumio_kevent_handler *>(data);
    if (handler->deleted) {
      _release(handler);
    }
  }
}

// Releases what was marked during the dispatch.
void _gc() {
  Eina_List *node, *next;
  void *data;
  if (g_kmgr.ref_count == 0) {
    LUMIO_LOG(kError, "manager is not initialized");
    return;
  }
  if (!std::exchange(g_has_marked, false)) {
    return; // the usual case; a walk over all handlers would cost more than the dispatch
  }
  EINA_LIST_FOREACH_SAFE(g_kmgr.domains, node, next, data) {
    auto *kevent = static_cast<lumio_kevent *>(data);
    if (kevent->deleted) {
      _release(kevent);
    } else {
      _release_marked_handlers(kevent);
    }
  }
}

// --- Dispatch --------------------------------------------------------------------------------------------------------

bool _get_type_info(int ecore_type, lumio_kevent_type *type, const char **name) {
  if (ecore_type == ECORE_EVENT_KEY_DOWN) {
    *type = LUMIO_KEVENT_PRESS;
    *name = "press";
    return true;
  }
  if (ecore_type == ECORE_EVENT_KEY_UP) {
    *type = LUMIO_KEVENT_RELEASE;
    *name = "release";
    return true;
  }
  LUMIO_LOG(kError, "Invalid event type");
  return false;
}

void _trace_mark(const char *text) {
  prctl(kTraceMark, reinterpret_cast<unsigned long>(text), static_cast<unsigned long>(strlen(text)), 0UL, 0UL);
}

bool _wants(const lumio_kevent_handler *handler, lumio_kevent_type type) {
  return handler && handler->kevent && handler->cb && handler->type == type && !handler->deleted;
}

// Calls the handlers of one priority and returns whether one of them consumed the key. The walk reads the successor
// after the call, so it reaches handlers that the callback adds. The current link stays, because deletions wait for the
// end of the dispatch.
//
// Deliberate: the mark of a closed domain is not tested. A caller who closes a domain during a dispatch sees its
// handlers still asked for this key (docs/surprises.md).
bool _ask_priority(int priority, lumio_kevent_type type, const char *kind, void *event, const char *key_name) {
  for (const Eina_List *node = g_kmgr.handler_lists[priority]; node; node = eina_list_next(node)) {
    auto *handler = static_cast<lumio_kevent_handler *>(eina_list_data_get(node));
    if (!_wants(handler, type)) {
      continue;
    }
    LUMIO_LOG_FOR(kKeyCallback, kTrace, "[%s] %s key %s handling....", _name(handler->kevent), key_name, kind);
    if (handler->cb(handler->kevent, handler->type, event, handler->data) == 0) {
      LUMIO_LOG_FOR(kKeyCallback, kError, "%s key [type: %d]  %s was handled by [%s], priority[%d].", key_name,
                    g_kmgr.source_type, kind, _name(handler->kevent), priority);
      return true;
    }
  }
  return false;
}

void _ask_handlers(lumio_kevent_type type, const char *kind, void *event, const char *key_name) {
  for (int priority = 0; priority < kPriorities; ++priority) {
    if (_ask_priority(priority, type, kind, event, key_name)) {
      return;
    }
  }
}

// Deliberate: a release emits no mark here, and a dropped press emits none at its end. A caller sees begin and end
// marks that do not come in pairs (docs/surprises.md).
bool _accept(lumio_kevent_type type, const Ecore_Event_Key *key, const char *key_name, double cur) {
  if (type == LUMIO_KEVENT_RELEASE) {
    g_kmgr.generic_event_seen = 0;
    return lumio::_accept_release(g_kmgr, key_name);
  }
  _trace_mark("[lumio] begin _key_cb");
  const bool announced = std::exchange(g_kmgr.generic_event_seen, 0) != 0;
  return lumio::_accept_press(&g_kmgr, announced, key->timestamp / 1000.0, cur);
}

void _invalidate_cache_list() {
  if (!g_cache_list) {
    return;
  }
  // Deliberate: logged for an empty list, too. A caller sees the text at each dispatched key (docs/surprises.md).
  LUMIO_LOG_FOR(kKeyCallback, kError, "invalidate cachelist...");
  for (bool *flag : *g_cache_list) {
    if (flag) {
      *flag = false;
    }
  }
}

// The dispatch depth rises and falls here and nowhere else.
Eina_Bool _dispatch(lumio_kevent_type type, const char *kind, Ecore_Event_Key *key, double cur) {
  const char *key_name = key->keyname ? key->keyname : "";
  ++g_kmgr.dispatch_depth;
  if (!_accept(type, key, key_name, cur)) {
    // Deliberate: the depth stays raised. From the first dropped key on, a caller sees deleted handlers and closed
    // domains marked and never released (docs/surprises.md).
    return ECORE_CALLBACK_PASS_ON;
  }
  _ask_handlers(type, kind, key, key_name);
  _trace_mark("[lumio] end _key_cb");
  if (--g_kmgr.dispatch_depth == 0) {
    _gc();
  }
  lumio::_note_handled(&g_kmgr, type, ecore_time_get());
  _invalidate_cache_list();
  // Deliberate: the key is finished even if nobody consumed it. A caller's own Ecore handlers, if they were added after
  // the library's, never see a dispatched key (docs/surprises.md).
  return ECORE_CALLBACK_DONE;
}

bool _read_aging_mode() {
  int value = 0;
  const int result = vconf_get_int("db/FactoryApp/Aging", &value);
  return lumio::_is_aging(result, value);
}

Eina_Bool _key_cb(void *, int ecore_type, void *event) {
  lumio_kevent_type type = LUMIO_KEVENT_PRESS;
  const char *kind = nullptr;
  if (lumio::_is_burst(g_busy_flag, g_key_cb_count, ecore_type == ECORE_EVENT_KEY_DOWN)) {
    return ECORE_CALLBACK_DONE;
  }
  ++g_key_cb_count;
  g_busy_flag = true;
  if (_read_aging_mode()) {
    return ECORE_CALLBACK_PASS_ON;
  }
  if (g_kmgr.ref_count == 0) {
    LUMIO_LOG(kError, "manager is not initialized");
    return ECORE_CALLBACK_PASS_ON;
  }
  const double cur = ecore_time_get();
  if (!event) {
    LUMIO_LOG(kError, "Event information is NULL");
    return ECORE_CALLBACK_PASS_ON;
  }
  if (!_get_type_info(ecore_type, &type, &kind)) {
    return ECORE_CALLBACK_PASS_ON;
  }
  return _dispatch(type, kind, static_cast<Ecore_Event_Key *>(event), cur);
}

// --- The manager -----------------------------------------------------------------------------------------------------

Eina_Bool _enterer_cb(void *) {
  g_busy_flag = false;
  g_key_cb_count = 0;
  return ECORE_CALLBACK_RENEW;
}

// Installs the library in the main loop.
//
// Deliberate: a refusal by Ecore is ignored, since an application that did not initialise a part of Ecore does not need
// that part's events. A caller sees the domain open and the events never arrive (docs/surprises.md).
void _kevent_manager_init() {
  if (!g_kmgr.generic_handler) {
    g_kmgr.generic_handler = ecore_event_handler_add(ECORE_X_EVENT_GENERIC, lumio::_cb_event_generic, nullptr);
  }
  if (!g_kmgr.key_down_handler) {
    g_kmgr.key_down_handler = ecore_event_handler_add(ECORE_EVENT_KEY_DOWN, _key_cb, nullptr);
    g_kmgr.key_up_handler = ecore_event_handler_add(ECORE_EVENT_KEY_UP, _key_cb, nullptr);
  }
  if (!g_kmgr.idle_enterer) {
    g_kmgr.idle_enterer = ecore_idle_enterer_add(_enterer_cb, nullptr);
  }
  lumio::init_x_input_extension();
}

void _delete_ecore_handlers() {
  for (Ecore_Event_Handler *handler : {g_kmgr.generic_handler, g_kmgr.key_down_handler, g_kmgr.key_up_handler}) {
    if (handler) {
      ecore_event_handler_del(handler);
    }
  }
  if (g_kmgr.idle_enterer) {
    ecore_idle_enterer_del(g_kmgr.idle_enterer);
  }
}

// Undoes one reference, after lumio_kevent_init found no memory. The last reference goes only when the first domain
// failed to open, so in practice no domain is left whose record would be lost here.
void _kevent_manager_fini() {
  if (g_kmgr.ref_count == 0) {
    LUMIO_LOG(kError, "no reference count, failed to fini");
    return;
  }
  if (--g_kmgr.ref_count != 0) {
    return;
  }
  _delete_ecore_handlers();
  while (g_kmgr.domains) {
    lumio_kevent_fini(static_cast<lumio_kevent *>(eina_list_data_get(g_kmgr.domains))); // only logs by now
    g_kmgr.domains = eina_list_remove_list(g_kmgr.domains, g_kmgr.domains);
  }
  for (Eina_List *&list : g_kmgr.handler_lists) {
    while (list) {
      free(eina_list_data_get(list));
      list = eina_list_remove_list(list, list);
    }
  }
  g_live.clear();
  g_kmgr = KeventManager{};
}

} // namespace

// --- The exported functions ------------------------------------------------------------------------------------------

extern "C" {

lumio_kevent *lumio_kevent_init(const char *domain) {
  if (!domain) {
    // Deliberate: the grammar is wrong, and it is the name that is missing. A caller sees this text for a null name
    // (docs/surprises.md).
    LUMIO_LOG(kError, "Domain is not exist");
    return nullptr;
  }
  if (g_kmgr.ref_count == 0) {
    _kevent_manager_init();
  }
  ++g_kmgr.ref_count;
  lumio_kevent *kevent = _open_domain(domain);
  if (!kevent) {
    LUMIO_LOG(kError, "calloc failed");
    _kevent_manager_fini();
    return nullptr;
  }
  // Deliberate: every domain that opens starts the filter of old presses anew, for all domains. A caller sees the next
  // press accepted, whatever its age (docs/surprises.md).
  lumio::_reset_key_timing(&g_kmgr);
  return kevent;
}

void lumio_kevent_fini(lumio_kevent *kevent) {
  if (g_kmgr.ref_count == 0) {
    LUMIO_LOG(kError, "manager is not initialized");
    return;
  }
  if (!kevent) {
    LUMIO_LOG(kError, "Invalid argument");
    return;
  }
  if (g_kmgr.dispatch_depth != 0) {
    // Deliberate: during a dispatch the call only marks. A caller that passes a domain that is not open sees nothing
    // logged (docs/surprises.md).
    if (_is_open(kevent)) {
      kevent->deleted = true;
      g_has_marked = true;
    }
    return;
  }
  if (!_is_open(kevent)) {
    // Deliberate: "give" stands for "given". A caller sees this text for a domain that is not open (docs/surprises.md).
    LUMIO_LOG(kError, "Cannot find give handle");
    return;
  }
  // Deliberate: closing the last domain uninstalls nothing. A caller sees keys still kept from later Ecore handlers
  // (docs/surprises.md).
  _release(kevent);
}

lumio_kevent_handler *lumio_kevent_handler_add(lumio_kevent *kevent, lumio_kevent_type type, int priority,
                                               lumio_kevent_cb cb, void *data) {
  if (!cb || !kevent || !_is_type(type) || !_is_priority(priority)) {
    LUMIO_LOG(kError, "Invalid argument");
    return nullptr;
  }
  if (g_kmgr.ref_count == 0) {
    LUMIO_LOG(kError, "manager is not initialized");
    return nullptr;
  }
  if (!_is_valid_kevent(kevent)) {
    return nullptr;
  }
  auto *handler = static_cast<lumio_kevent_handler *>(calloc(1, sizeof(lumio_kevent_handler)));
  if (handler) {
    handler->kevent = kevent;
    handler->type = type;
    handler->priority = priority;
    handler->cb = cb;
    handler->data = data;
    if (_link(handler)) {
      return handler;
    }
    free(handler);
  }
  // Deliberate: not the spelling of lumio_kevent_init. A caller tells the two failures apart in the log
  // (docs/surprises.md).
  LUMIO_LOG(kError, "Calloc failed");
  return nullptr;
}

void lumio_kevent_handler_del(lumio_kevent_handler *handler) {
  const bool live = _is_live(handler);
  if (!handler || (live && !_has_valid_fields(handler))) {
    LUMIO_LOG(kError, "Invalid argument");
    return;
  }
  if (g_kmgr.ref_count == 0) {
    LUMIO_LOG(kError, "manager is not initialized");
    return;
  }
  // A handler that is not live may be gone with its domain. Its handle is not read: it counts as one without a domain.
  if (!_is_valid_kevent(live ? handler->kevent : nullptr)) {
    return;
  }
  if (g_kmgr.dispatch_depth != 0) {
    handler->deleted = true;
    g_has_marked = true;
    return;
  }
  _release(handler);
}

int lumio_event_source_type_get(void) { return g_kmgr.source_type; }

void lumio_cursor_show_after_movement(void) {
  unsigned int on = 1;
  if (!ecore_x_display_get()) {
    LUMIO_LOG(kError, "failed to get display");
    return;
  }
  const Ecore_X_Atom atom = ecore_x_atom_get("E_SHOW_CURSOR_AFTER_MOVEMENT");
  const Ecore_X_Window window = ecore_x_window_focus_get();
  if (!window) {
    // Deliberate: says "display" although the focused window is missing. A caller sees one text for both failures
    // (docs/surprises.md).
    LUMIO_LOG(kError, "failed to get display");
    return;
  }
  ecore_x_window_prop_card32_set(window, atom, &on, 1);
}

void lumio_kevent_cache_list_set(std::vector<bool *> *list) { g_cache_list = list; }

} // extern "C"
