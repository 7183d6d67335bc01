// The records of the key-event manager, and which file writes which field. All of it belongs to the main-loop thread.
#pragma once

#include <Ecore.h>
#include <Eina.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

#include "kevent.h"
#include "key_filter.h"

// A domain. Only kevent.cpp writes it.
struct lumio_kevent {
  char *name; // null when there was no memory for the copy
  Eina_List *handlers;
  bool deleted; // closed during a dispatch
};

// A handler, on two lists as long as it lives. Only kevent.cpp writes it.
struct lumio_kevent_handler {
  lumio_kevent *kevent;
  lumio_kevent_type type;
  int priority;
  lumio_kevent_cb cb;
  void *data;
  bool deleted;             // deleted during a dispatch
  Eina_List *domain_node;   // its link in kevent->handlers
  Eina_List *priority_node; // its link in g_kmgr.handler_lists[priority]
};

namespace lumio {

inline constexpr int kPriorities = 7;

// The domains' and handlers' part of the manager record. Only kevent.cpp writes it.
struct KeyRegistry {
  int ref_count; // successful lumio_kevent_init calls
  Ecore_Event_Handler *generic_handler;
  Ecore_Event_Handler *key_down_handler;
  Ecore_Event_Handler *key_up_handler;
  Ecore_Idle_Enterer *idle_enterer;
  Eina_List *handler_lists[kPriorities];
  Eina_List *domains;
  int dispatch_depth; // rises and falls in _dispatch() alone
};

// The input devices' part of the manager record.
struct KeySource {
  int source_type;        // only key_source.cpp writes it
  int generic_event_seen; // key_source.cpp raises it, kevent.cpp lowers it
};

// One record, whose fields follow one another in memory as they do here. It has a part for each file, so that a room
// can be given its own part only.
struct KeventManager : KeyRegistry, KeyFilterState, KeySource {};

// The X server's extension, and the ids of the devices that are known by their names; 0 means not seen yet. Only
// key_source.cpp writes it.
struct InputDeviceInfo {
  int xi_opcode; // -1 without the extension
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

inline KeventManager g_kmgr;
inline InputDeviceInfo input_device_info;

} // namespace lumio
