// Key events: domains of handlers, the filters in front of them, and the device that sent a key.
//
// Everything runs on the main-loop thread. What has to be guarded against is re-entrance: a handler may delete
// anything, itself included, while the lists are being walked. So nothing is released while a key is being dispatched;
// it is marked, and collected when the outermost dispatch ends.
#include "kevent.h"

#include <Ecore.h>
#include <Ecore_Input.h>
#include <Ecore_X.h>
#include <Eina.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <sys/prctl.h>
#include <vconf.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <unordered_set>

#include "list.h"
#include "log.h"

using lumio::Append;
using lumio::kError;
using lumio::kTrace;

struct lumio_kevent {
  char *name;
  Eina_List *handlers;
  bool deleted;
};

struct lumio_kevent_handler {
  lumio_kevent *kevent;
  lumio_kevent_type type;
  int priority;
  lumio_kevent_cb cb;
  void *data;
  bool deleted;
  Eina_List *domain_node;   // its link in kevent->handlers
  Eina_List *priority_node; // its link in g_kmgr.handler_lists[priority]
};

namespace {

constexpr int kPriorities = 7;
constexpr int kBurstLimit = 2;            // keys per busy stretch of the main loop; presses beyond are dropped
constexpr double kZero = 1e-05;           // seconds; a time below this counts as not set
constexpr double kThresholdMargin = 0.25; // seconds
constexpr int kTraceMark = 666;           // the platform's prctl option for user-space trace marks
constexpr int kVirtualCoreKeyboard = 3;   // fixed by the X server
constexpr int kEventMaskLength = 3;       // bytes, enough for XI_HierarchyChanged

// What helpers log, they log in the name of the callback or step that they are part of: log filters know these names.
constexpr char kKeyCallback[] = "_key_cb";
constexpr char kDeviceCallback[] = "_cb_event_generic";
constexpr char kDeviceSearch[] = "get_id_for_known_devices";
constexpr char kDeviceSetup[] = "init_x_input_extension";

struct KeventManager {
  int ref_count;
  Ecore_Event_Handler *generic_handler;
  Ecore_Event_Handler *key_down_handler;
  Ecore_Event_Handler *key_up_handler;
  Ecore_Idle_Enterer *idle_enterer;
  Eina_List *handler_lists[kPriorities];
  Eina_List *domains;
  int dispatch_depth;
  double timestamp_init; // X server's clock; all other times are on the Ecore clock
  double app_cb_time_init;
  double ignore_threshold;
  double timestamp_last_handled_key_down;
  double timestamp_last_handled_key_up;
  bool press_ignored;
  int last_handled_is_down;
  int source_type;
  int generic_event_seen;
};

struct InputDeviceInfo {
  int xi_opcode;
  Display *display;
  Window root;
  XIEventMask event_mask;
  int virtual_core_keyboard_id;
  int hwkeys_dev_id;
  int advanced_touch_dev_id;
  int floating_touch_dev_id;
  int rc_dev_id;
  int panel_key_dev_id;
  int function_osd_dev_id;
};

// An input device that is told apart by its name.
struct KnownDevice {
  const char *name;
  int InputDeviceInfo::*id;
  const char *found; // how the log announces it
};

constexpr char kHwKeys[] = "HWKeys";
constexpr char kTouch[] = "Advanced Touch REMOTE";
constexpr char kTouchKeyboardFound[] = "Advanced : HWKeys slave device found";

constexpr KnownDevice kSlaveKeyboards[] = {
    {kHwKeys, &InputDeviceInfo::hwkeys_dev_id, "XISlaveKeyboard : HWKeys slave device found"},
    {kTouch, &InputDeviceInfo::advanced_touch_dev_id, kTouchKeyboardFound},
};
constexpr KnownDevice kPluggedSlaveKeyboards[] = {
    {kHwKeys, &InputDeviceInfo::hwkeys_dev_id, "HWKeys found"},
    {kTouch, &InputDeviceInfo::advanced_touch_dev_id, kTouchKeyboardFound},
    {"function-osd", &InputDeviceInfo::function_osd_dev_id, "function-osd device found"},
};
constexpr KnownDevice kOtherDevices[] = {
    {kTouch, &InputDeviceInfo::floating_touch_dev_id, "Advanced Touch REMOTE found"},
    {"qm27x410 rc device", &InputDeviceInfo::rc_dev_id, "XIFloatingSlave : Remocon device found"},
    {"qm27x410 panel key device", &InputDeviceInfo::panel_key_dev_id, "XIFloatingSlave : PANEL_KEY device found"},
};

KeventManager g_kmgr;
bool g_busy_flag;
int g_key_cb_count;
bool g_has_marked; // something was marked as deleted since the last collection
std::vector<bool *> *g_cache_list;
InputDeviceInfo input_device_info;

// Every handler that exists, so that a stale or foreign handle is recognised without reading it. Never destroyed:
// modules may delete their handlers as late as in a destructor that runs at exit.
union LiveHandlers {
  LiveHandlers() : handlers() {}
  ~LiveHandlers() {}
  std::unordered_set<const lumio_kevent_handler *> handlers;
} g_live;

// --- Lists -----------------------------------------------------------------------------------------------------------

bool _is_open(const lumio_kevent *kevent) { return eina_list_data_find(g_kmgr.domains, kevent) != nullptr; }

bool _is_valid_kevent(const lumio_kevent *kevent) {
  if (_is_open(kevent)) {
    return true;
  }
  LUMIO_LOG(kError, "Invalid kevent");
  return false;
}

bool _is_type(lumio_kevent_type type) { return static_cast<unsigned>(type) <= LUMIO_KEVENT_RELEASE; }

bool _is_priority(int priority) { return static_cast<unsigned>(priority) < kPriorities; }

bool _is_live(const lumio_kevent_handler *handler) { return g_live.handlers.count(handler) != 0; }

bool _has_valid_fields(const lumio_kevent_handler *handler) {
  return handler->kevent && handler->cb && _is_priority(handler->priority) && _is_type(handler->type);
}

void _unlink(lumio_kevent_handler *handler) {
  Eina_List **list = &g_kmgr.handler_lists[handler->priority];
  handler->kevent->handlers = eina_list_remove_list(handler->kevent->handlers, handler->domain_node);
  *list = eina_list_remove_list(*list, handler->priority_node);
}

// Puts the handler on its two lists; undoes everything and returns false when memory is short.
bool _link(lumio_kevent_handler *handler) {
  handler->domain_node = Append(&handler->kevent->handlers, handler);
  handler->priority_node = Append(&g_kmgr.handler_lists[handler->priority], handler);
  if (handler->domain_node && handler->priority_node) {
    try {
      g_live.handlers.insert(handler);
      return true;
    } catch (...) {
      // Short memory, which the caller reports like that of the other allocations.
    }
  }
  _unlink(handler);
  return false;
}

// --- The device that sent a key --------------------------------------------------------------------------------------

// Returns at least one device, to be freed by the caller, or null.
XIDeviceInfo *_query_device(int device_id, int *count) {
  *count = 0;
  XIDeviceInfo *devices =
      input_device_info.display ? XIQueryDevice(input_device_info.display, device_id, count) : nullptr;
  if (devices && *count < 1) {
    XIFreeDeviceInfo(devices);
    return nullptr;
  }
  return devices;
}

template <size_t N>
void _learn(const char *function, const XIDeviceInfo &device, const KnownDevice (&known_devices)[N]) {
  for (const KnownDevice &known : known_devices) {
    if (strcasestr(device.name, known.name)) {
      input_device_info.*known.id = device.deviceid;
      LUMIO_LOG_FOR(function, kTrace, "%s.. saving device id : %d..", known.found, device.deviceid);
      return;
    }
  }
}

void get_id_for_known_devices() {
  int count = 0;
  XIDeviceInfo *devices = _query_device(XIAllDevices, &count);
  if (!devices) {
    LUMIO_LOG(kError, "There is no queried XI device.");
    return;
  }
  for (int i = 0; i < count; ++i) {
    if (devices[i].use == XISlaveKeyboard) {
      _learn(kDeviceSearch, devices[i], kSlaveKeyboards);
    } else {
      _learn(kDeviceSearch, devices[i], kOtherDevices);
    }
  }
  XIFreeDeviceInfo(devices);
}

// Looks at the first device of the server only, not at the one that was plugged in. That is meant: on the television
// the first one is the one that matters. On a stock server, which lists a pointer first, a caller sees nothing learnt
// here.
void _learn_first_device() {
  int count = 0;
  XIDeviceInfo *devices = _query_device(XIAllDevices, &count);
  if (!devices) {
    return;
  }
  if (devices[0].use == XISlaveKeyboard) {
    _learn(kDeviceCallback, devices[0], kPluggedSlaveKeyboards);
  } else {
    _learn(kDeviceCallback, devices[0], kOtherDevices);
  }
  XIFreeDeviceInfo(devices);
}

void _hierarchy_changed(const XIHierarchyEvent *event) {
  for (int i = 0; i < event->num_info; ++i) {
    if (event->info[i].flags & XIDeviceEnabled) {
      _learn_first_device();
    }
  }
}

// The source of the last key class of the "HWKeys" device, 0 if it has none.
int _hwkeys_source_id() {
  int count = 0;
  int source_id = 0;
  XIDeviceInfo *device = _query_device(input_device_info.hwkeys_dev_id, &count);
  if (!device) {
    return source_id;
  }
  for (int i = 0; i < device->num_classes; ++i) {
    if (device->classes[i]->type == XIKeyClass) {
      source_id = device->classes[i]->sourceid;
    }
  }
  XIFreeDeviceInfo(device);
  return source_id;
}

int _source_type_behind_hwkeys() {
  const int source_id = _hwkeys_source_id();
  if (source_id == input_device_info.rc_dev_id) {
    return LUMIO_EVENT_SOURCE_REMOTE;
  }
  return source_id == input_device_info.panel_key_dev_id ? LUMIO_EVENT_SOURCE_PANEL : LUMIO_EVENT_SOURCE_OTHER;
}

int _source_type(int source_id) {
  if (source_id == input_device_info.advanced_touch_dev_id || source_id == input_device_info.floating_touch_dev_id) {
    return LUMIO_EVENT_SOURCE_TOUCH;
  }
  if (source_id == input_device_info.function_osd_dev_id) {
    return LUMIO_EVENT_SOURCE_FUNCTION_OSD;
  }
  if (source_id == input_device_info.hwkeys_dev_id) {
    return _source_type_behind_hwkeys();
  }
  return LUMIO_EVENT_SOURCE_OTHER;
}

void _device_changed(const XIDeviceChangedEvent *event) {
  if (input_device_info.advanced_touch_dev_id == 0) {
    get_id_for_known_devices();
  }
  if (event->deviceid != input_device_info.virtual_core_keyboard_id) {
    return;
  }
  LUMIO_LOG_FOR(kDeviceCallback, kTrace, "sourceid:%d,advanceed_touch_dev_id:%d,hwkeys_dev_id:%d,", event->sourceid,
                input_device_info.advanced_touch_dev_id, input_device_info.hwkeys_dev_id);
  g_kmgr.source_type = _source_type(event->sourceid);
}

Eina_Bool _cb_event_generic(void *, int, void *event) {
  const auto *generic = static_cast<const Ecore_X_Event_Generic *>(event);
  if (generic && generic->extension != input_device_info.xi_opcode) {
    LUMIO_LOG(kTrace, "Invalid event !(extension:%d, evtype:%d)", generic->extension, generic->evtype);
    return ECORE_CALLBACK_PASS_ON;
  }
  if (!generic || !generic->data || static_cast<const XIEvent *>(generic->data)->send_event) {
    LUMIO_LOG(kTrace,
              "Generic event data is not available or the event was sent via XSendEvent (and will be ignored) !");
    return ECORE_CALLBACK_PASS_ON;
  }
  if (generic->evtype == XI_DeviceChanged) {
    _device_changed(static_cast<const XIDeviceChangedEvent *>(generic->data));
  } else if (generic->evtype == XI_HierarchyChanged) {
    _hierarchy_changed(static_cast<const XIHierarchyEvent *>(generic->data));
  }
  g_kmgr.generic_event_seen = 1;
  return ECORE_CALLBACK_PASS_ON;
}

int _x_input_unavailable() {
  input_device_info.xi_opcode = -1;
  return 0;
}

// Asks for device-changed and hierarchy-changed events of all devices. The mask is allocated once and kept.
bool _select_device_events() {
  XIEventMask &mask = input_device_info.event_mask;
  if (!mask.mask) {
    mask.mask = static_cast<unsigned char *>(calloc(kEventMaskLength, 1));
  }
  if (!mask.mask) {
    LUMIO_LOG_FOR(kDeviceSetup, kError, "calloc failed");
    return false;
  }
  mask.deviceid = XIAllDevices;
  mask.mask_len = kEventMaskLength;
  XISetMask(mask.mask, XI_DeviceChanged);
  XISetMask(mask.mask, XI_HierarchyChanged);
  XISelectEvents(input_device_info.display, input_device_info.root, &mask, 1);
  return true;
}

int init_x_input_extension() {
  int first_event = 0;
  int first_error = 0;
  int major = 2;
  int minor = 0;
  auto *display = static_cast<Display *>(ecore_x_display_get());
  input_device_info.virtual_core_keyboard_id = kVirtualCoreKeyboard;
  input_device_info.display = display;
  input_device_info.root = display ? DefaultRootWindow(display) : 0;

  if (!display ||
      !XQueryExtension(display, "XInputExtension", &input_device_info.xi_opcode, &first_event, &first_error)) {
    LUMIO_LOG(kTrace, "XInput Extension isn't supported.");
    return _x_input_unavailable();
  }
  // Ecore has agreed on a version before, so that a healthy server answers an error here too: only BadRequest counts.
  if (XIQueryVersion(display, &major, &minor) == BadRequest) {
    LUMIO_LOG(kTrace, "Failed to query XI version.");
    return _x_input_unavailable();
  }
  get_id_for_known_devices();
  return _select_device_events() ? 1 : 0;
}

// --- Dispatch --------------------------------------------------------------------------------------------------------

void _gc() {
  Eina_List *domain_node, *next_domain, *node, *next;
  void *data;
  if (g_kmgr.ref_count == 0) {
    LUMIO_LOG(kError, "manager is not initialized");
    return;
  }
  if (!g_has_marked) {
    return; // as after most keys; a walk over all handlers would cost more than the dispatch
  }
  g_has_marked = false;
  EINA_LIST_FOREACH_SAFE(g_kmgr.domains, domain_node, next_domain, data) {
    auto *kevent = static_cast<lumio_kevent *>(data);
    if (kevent->deleted) {
      lumio_kevent_fini(kevent);
      continue;
    }
    EINA_LIST_FOREACH_SAFE(kevent->handlers, node, next, data) {
      auto *handler = static_cast<lumio_kevent_handler *>(data);
      if (handler->deleted) {
        lumio_kevent_handler_del(handler);
      }
    }
  }
}

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

bool _is_zero(double seconds) { return std::fabs(seconds) < kZero; }

bool _is_aging() {
  int value = 0;
  if (vconf_get_int("db/FactoryApp/Aging", &value) != 0) {
    LUMIO_LOG_FOR(kKeyCallback, kError, "vconf_get_int fail..");
    value = 0;
  }
  return value == 1;
}

// A press that is older than the application's readiness is dropped, unless a release was handled since the last one.
bool _is_suspect_accepted(double key_ts, double age, double cur) {
  if (g_kmgr.last_handled_is_down == 1) {
    LUMIO_LOG_FOR(kKeyCallback, kError, "key ignored. dblKeyTimeStamp[%lf], timestamp_init[%lf], ignore_threshold[%lf]",
                  key_ts, g_kmgr.timestamp_init, g_kmgr.ignore_threshold);
    LUMIO_LOG_FOR(kKeyCallback, kError,
                  "timestamp_last_handled_key_down[%lf], timestamp_last_handled_key_up[%lf], current time[%lf]",
                  g_kmgr.timestamp_last_handled_key_down, g_kmgr.timestamp_last_handled_key_up, cur);
    return false;
  }
  if (age < cur - g_kmgr.timestamp_last_handled_key_down) {
    LUMIO_LOG_FOR(kKeyCallback, kError, "key ignored..");
    return false;
  }
  LUMIO_LOG_FOR(kKeyCallback, kError, "do not ignore key..");
  return true;
}

// Drops presses that were queued while the application was not ready: those whose age on the X server's clock is below
// the time that has passed here since the first press.
bool _is_fresh(double key_ts, double cur) {
  LUMIO_LOG_FOR(kKeyCallback, kTrace, "key timestamp = %lf", key_ts);
  LUMIO_LOG_FOR(kKeyCallback, kTrace, "timestamp_init = %lf, app_cb_time_init = %lf", g_kmgr.timestamp_init,
                g_kmgr.app_cb_time_init);
  LUMIO_LOG_FOR(kKeyCallback, kTrace, "cur = %lf", cur);
  if (_is_zero(g_kmgr.timestamp_init) && _is_zero(g_kmgr.app_cb_time_init)) {
    LUMIO_LOG_FOR(kKeyCallback, kError, "init timestamp");
    g_kmgr.timestamp_init = key_ts;
    g_kmgr.app_cb_time_init = cur;
  } else if (_is_zero(g_kmgr.ignore_threshold)) {
    LUMIO_LOG_FOR(kKeyCallback, kError, "reset threshold");
    g_kmgr.ignore_threshold = (cur - g_kmgr.app_cb_time_init) - kThresholdMargin;
  }
  const double age = key_ts - g_kmgr.timestamp_init;
  return !(age < g_kmgr.ignore_threshold) || _is_suspect_accepted(key_ts, age, cur);
}

bool _accept_press(const Ecore_Event_Key *key, double cur) {
  _trace_mark("[lumio] begin _key_cb");
  g_kmgr.press_ignored = false;
  if (g_kmgr.generic_event_seen) {
    g_kmgr.generic_event_seen = 0;
    return true;
  }
  g_kmgr.press_ignored = !_is_fresh(key->timestamp / 1000.0, cur);
  return !g_kmgr.press_ignored;
}

// The release of an ignored press is dropped with it. A name that begins with 'X' is exempt, whatever follows: meant
// for "XF86RaiseChannel", and a caller sees the release of every XF86 key without its press.
bool _accept_release(const char *key_name) {
  g_kmgr.generic_event_seen = 0;
  if (g_kmgr.press_ignored && key_name[0] != 'X') {
    LUMIO_LOG_FOR(kKeyCallback, kTrace, "key released ignored");
    return false;
  }
  return true;
}

bool _wants(const lumio_kevent_handler *handler, lumio_kevent_type type) {
  return handler && handler->kevent && handler->cb && handler->type == type && !handler->deleted;
}

// Asks the handlers of one priority; returns whether one of them consumed the key. The successor is read after the
// call, so that handlers which the callback adds are reached. No link goes away meanwhile: deletions wait for the end
// of the dispatch. A domain's own mark is not looked at: that is meant, and its handlers see this key to the end.
bool _dispatch_to_list(int priority, lumio_kevent_type type, const char *kind, void *event, const char *key_name) {
  for (const Eina_List *node = g_kmgr.handler_lists[priority]; node; node = eina_list_next(node)) {
    auto *handler = static_cast<lumio_kevent_handler *>(eina_list_data_get(node));
    if (!_wants(handler, type)) {
      continue;
    }
    LUMIO_LOG_FOR(kKeyCallback, kTrace, "[%s] %s key %s handling....", handler->kevent->name, key_name, kind);
    if (handler->cb(handler->kevent, handler->type, event, handler->data) == 0) {
      LUMIO_LOG_FOR(kKeyCallback, kError, "%s key [type: %d]  %s was handled by [%s], priority[%d].", key_name,
                    g_kmgr.source_type, kind, handler->kevent->name, priority);
      return true;
    }
  }
  return false;
}

void _dispatch(lumio_kevent_type type, const char *kind, void *event, const char *key_name) {
  for (int priority = 0; priority < kPriorities; ++priority) {
    if (_dispatch_to_list(priority, type, kind, event, key_name)) {
      break;
    }
  }
  _trace_mark("[lumio] end _key_cb");
  if (--g_kmgr.dispatch_depth == 0) {
    _gc();
  }
}

void _note_handled(lumio_kevent_type type) {
  if (type == LUMIO_KEVENT_PRESS) {
    g_kmgr.ignore_threshold = 0.0;
    g_kmgr.timestamp_last_handled_key_down = ecore_time_get();
    g_kmgr.last_handled_is_down = 1;
  } else {
    g_kmgr.timestamp_last_handled_key_up = ecore_time_get();
    g_kmgr.last_handled_is_down = 0;
  }
}

void _invalidate_cache_list() {
  if (!g_cache_list) {
    return;
  }
  LUMIO_LOG_FOR(kKeyCallback, kError, "invalidate cachelist...");
  for (bool *flag : *g_cache_list) {
    if (flag) {
      *flag = false;
    }
  }
}

// Only presses are swallowed by the burst limit, but releases and rejected keys count in it too.
bool _is_burst(int ecore_type) {
  return g_busy_flag && g_key_cb_count >= kBurstLimit && ecore_type == ECORE_EVENT_KEY_DOWN;
}

Eina_Bool _key_cb(void *, int ecore_type, void *event) {
  lumio_kevent_type type = LUMIO_KEVENT_PRESS;
  const char *kind = nullptr;
  if (_is_burst(ecore_type)) {
    LUMIO_LOG(kError, "skip _key_cb ..");
    return ECORE_CALLBACK_DONE;
  }
  ++g_key_cb_count;
  g_busy_flag = true;
  if (_is_aging()) {
    LUMIO_LOG(kError, "do not process the key in aging mode..");
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
  const auto *key = static_cast<const Ecore_Event_Key *>(event);
  const char *key_name = key->keyname ? key->keyname : "";

  ++g_kmgr.dispatch_depth;
  if (!(type == LUMIO_KEVENT_PRESS ? _accept_press(key, cur) : _accept_release(key_name))) {
    // The depth stays raised. That is meant: from the first ignored key on, deletions are marked and never collected.
    return ECORE_CALLBACK_PASS_ON;
  }
  _dispatch(type, kind, event, key_name);
  _note_handled(type);
  _invalidate_cache_list();
  return ECORE_CALLBACK_DONE;
}

// --- The manager -----------------------------------------------------------------------------------------------------

Eina_Bool _enterer_cb(void *) {
  g_busy_flag = false;
  g_key_cb_count = 0;
  return ECORE_CALLBACK_RENEW;
}

// An event type that Ecore does not know, because the application has not brought up the part of Ecore that it belongs
// to, cannot be handled and need not be.
bool _is_handled(const Ecore_Event_Handler *handler, int ecore_type) {
  return handler || ecore_type == ECORE_EVENT_NONE;
}

// Whether memory sufficed for all that makes keys arrive. Without the idle enterer the burst limit would never end.
bool _is_installed() {
  return _is_handled(g_kmgr.generic_handler, ECORE_X_EVENT_GENERIC) &&
         _is_handled(g_kmgr.key_down_handler, ECORE_EVENT_KEY_DOWN) &&
         _is_handled(g_kmgr.key_up_handler, ECORE_EVENT_KEY_UP) && (g_kmgr.idle_enterer || !g_kmgr.key_down_handler);
}

// Returns whether all that makes keys arrive is there.
bool _kevent_manager_init() {
  if (!g_kmgr.generic_handler) {
    g_kmgr.generic_handler = ecore_event_handler_add(ECORE_X_EVENT_GENERIC, _cb_event_generic, nullptr);
  }
  if (!g_kmgr.key_down_handler) {
    g_kmgr.key_down_handler = ecore_event_handler_add(ECORE_EVENT_KEY_DOWN, _key_cb, nullptr);
    g_kmgr.key_up_handler = ecore_event_handler_add(ECORE_EVENT_KEY_UP, _key_cb, nullptr);
  }
  if (!g_kmgr.idle_enterer) {
    g_kmgr.idle_enterer = ecore_idle_enterer_add(_enterer_cb, nullptr);
  }
  init_x_input_extension();
  return _is_installed();
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

// Undoes one reference. Called when an allocation in lumio_kevent_init failed, so in practice there are no domains left
// whose records this loses.
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
    lumio_kevent_fini(static_cast<lumio_kevent *>(eina_list_data_get(g_kmgr.domains)));
    g_kmgr.domains = eina_list_remove_list(g_kmgr.domains, g_kmgr.domains);
  }
  for (Eina_List *&list : g_kmgr.handler_lists) {
    while (list) {
      free(eina_list_data_get(list));
      list = eina_list_remove_list(list, list);
    }
  }
  g_live.handlers.clear();
  g_kmgr = KeventManager{};
}

// Every domain that opens starts the staleness filter anew, for all of them. That is meant: a caller sees the next
// press accepted whatever its age.
void _reset_key_timing() {
  g_kmgr.last_handled_is_down = 0;
  g_kmgr.timestamp_init = 0.0;
  g_kmgr.app_cb_time_init = 0.0;
  g_kmgr.ignore_threshold = 0.0;
  g_kmgr.timestamp_last_handled_key_down = 0.0;
  g_kmgr.timestamp_last_handled_key_up = 0.0;
}

lumio_kevent *_open_domain(const char *name) {
  auto *kevent = static_cast<lumio_kevent *>(calloc(1, sizeof(lumio_kevent)));
  if (!kevent) {
    return nullptr;
  }
  kevent->name = strdup(name);
  if (kevent->name && Append(&g_kmgr.domains, kevent)) {
    return kevent;
  }
  free(kevent->name);
  free(kevent);
  return nullptr;
}

void _release(lumio_kevent_handler *handler) {
  g_live.handlers.erase(handler);
  _unlink(handler);
  free(handler);
}

} // namespace

extern "C" {

lumio_kevent *lumio_kevent_init(const char *domain) {
  if (!domain) {
    LUMIO_LOG(kError, "Domain is not exist");
    return nullptr;
  }
  // Once installed is enough: a part of Ecore that the application brings up later makes no domain fail.
  const bool installed = g_kmgr.ref_count != 0 || _kevent_manager_init();
  ++g_kmgr.ref_count;
  lumio_kevent *kevent = installed ? _open_domain(domain) : nullptr;
  if (!kevent) {
    LUMIO_LOG(kError, "calloc failed");
    _kevent_manager_fini();
    return nullptr;
  }
  _reset_key_timing();
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
  if (!_is_open(kevent)) {
    LUMIO_LOG(kError, "Cannot find give handle");
    return;
  }
  if (g_kmgr.dispatch_depth != 0) {
    kevent->deleted = true;
    g_has_marked = true;
    return;
  }
  Eina_List *node, *next;
  void *handler;
  EINA_LIST_FOREACH_SAFE(kevent->handlers, node, next, handler) {
    lumio_kevent_handler_del(static_cast<lumio_kevent_handler *>(handler));
  }
  // The manager stays installed, also when this was the last domain: the next one only has to be added.
  g_kmgr.domains = eina_list_remove(g_kmgr.domains, kevent);
  free(kevent->name);
  free(kevent);
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
  LUMIO_LOG(kError, "Calloc failed"); // spelled otherwise than in lumio_kevent_init; log filters know both
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
  // A handler that is gone was released at the latest with its domain, so that its handle is not read to find that out.
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
    LUMIO_LOG(kError, "failed to get display"); // it is the window that is missing; log filters know this text
    return;
  }
  ecore_x_window_prop_card32_set(window, atom, &on, 1);
}

void lumio_kevent_cache_list_set(std::vector<bool *> *list) { g_cache_list = list; }

} // extern "C"
