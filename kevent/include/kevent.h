/**
 * @file kevent.h
 * Delivers remote-control and front-panel keys to the modules of an application, in priority order.
 *
 * A module opens a *domain* and adds *handlers* to it. Each handler receives one kind of event, press or release, at
 * one of seven priorities. The library calls the handlers of priority 0 first, and stops at the first handler that
 * returns 0: that handler has consumed the key.
 *
 * Call every function on the thread of the Ecore main loop; every handler runs on that thread. Initialise EFL
 * (`ecore_init`, `ecore_event_init` and, if there is a display, `ecore_x_init`) before the first `lumio_kevent_init`,
 * and keep it initialised. The library never receives the events of a part of EFL that you initialise later.
 *
 * Some keys do not reach the handlers:
 * - The library processes at most two key events between two idle moments of the main loop, and swallows further
 *   presses.
 * - It drops presses that were queued while the application was not ready. It also drops their releases, unless the
 *   key's name begins with 'X'.
 * - It passes every key on unprocessed while the vconf key "db/FactoryApp/Aging" is 1.
 *
 * A key that the library dispatches or swallows goes no further: Ecore handlers that were added after the library's own
 * do not receive it, whether or not a handler consumed it. They do receive all other keys.
 *
 * A handler may do anything inside its callback: delete any handler, itself included; close any domain, its own
 * included; add handlers; run a nested main loop. A handler that is deleted during a dispatch is not called again. The
 * library releases it when the outermost dispatch ends.
 */
#ifndef LUMIO_KEVENT_H
#define LUMIO_KEVENT_H

#ifdef __cplusplus
#include <vector>
extern "C" {
#endif

#pragma GCC visibility push(default)

/** An open domain. Owned by the library. */
typedef struct lumio_kevent lumio_kevent;
/** A registered handler. Owned by the library. */
typedef struct lumio_kevent_handler lumio_kevent_handler;

/** Kind of a key event: `LUMIO_KEVENT_PRESS` or `LUMIO_KEVENT_RELEASE`. */
typedef int lumio_kevent_type;
/** The key went down. */
#define LUMIO_KEVENT_PRESS 0
/** The key went up. */
#define LUMIO_KEVENT_RELEASE 1

/**
 * Receives a key event. Runs on the main-loop thread.
 *
 * @param kevent      the handler's domain
 * @param type        the kind of event
 * @param event_info  the `Ecore_Event_Key`, valid only during the call; its `keyname` may be null
 * @param data        the pointer that was given to `lumio_kevent_handler_add`
 * @return 0 to consume the key, any other value to pass it on to the next handler
 */
typedef int (*lumio_kevent_cb)(lumio_kevent *kevent, lumio_kevent_type type, void *event_info, void *data);

/**
 * Opens a domain. Call on the main-loop thread.
 *
 * The first call also installs the library in the Ecore main loop, where it stays until the process ends. If Ecore
 * refuses one of the library's handlers, the domain opens without it.
 *
 * Every successful call resets the filter of old presses, for all domains: the next press counts as the first one.
 * Several domains may have the same name.
 *
 * @param domain  the name for log messages. The library copies it, and logs "(null)" if there is no memory for the copy
 * @return the domain, which you close with `lumio_kevent_fini`. Null, with a log message, if `domain` is null or there
 * is no memory for the domain
 */
lumio_kevent *lumio_kevent_init(const char *domain);

/**
 * Closes a domain and deletes its handlers. Call on the main-loop thread.
 *
 * During a dispatch the call only marks the domain: its handlers receive keys until the outermost dispatch ends. The
 * library refuses a handle that is null, foreign or already closed, unless a new domain has the same address. It logs a
 * message, except for a foreign or closed handle during a dispatch.
 *
 * After the library has dropped a press for its age, every deletion only marks, until the process ends. A marked
 * handler is not called again, but the handlers of a marked domain are. To silence a module for certain, delete its
 * handlers before you close its domain.
 *
 * @param kevent  the domain
 */
void lumio_kevent_fini(lumio_kevent *kevent);

/**
 * Registers a handler. Call on the main-loop thread.
 *
 * The library calls the handlers of one priority in the order of their registration. A handler that is added during a
 * dispatch receives the current key too, unless the dispatch has finished its priority.
 *
 * @param kevent    an open domain
 * @param type      `LUMIO_KEVENT_PRESS` or `LUMIO_KEVENT_RELEASE`
 * @param priority  0 (called first) to 6
 * @param cb        the callback, not null
 * @param data      a pointer that the library passes to `cb` and never reads or frees
 * @return the handler, which you delete with `lumio_kevent_handler_del` or with its domain. Null, with a log message,
 * if an argument is out of range, no domain was ever opened, `kevent` is not open, or there is no memory
 */
lumio_kevent_handler *lumio_kevent_handler_add(lumio_kevent *kevent, lumio_kevent_type type, int priority,
                                               lumio_kevent_cb cb, void *data);

/**
 * Deletes a handler. Call on the main-loop thread.
 *
 * The handler is not called again. During a dispatch the call only marks the handler; the library releases it when the
 * outermost dispatch ends. The library refuses a handle that is null, foreign or already deleted, with a log message,
 * unless a new handler has the same address.
 *
 * @param handler  the handler
 */
void lumio_kevent_handler_del(lumio_kevent_handler *handler);

/** Values of `lumio_event_source_type_get`. */
enum {
  LUMIO_EVENT_SOURCE_REMOTE = 0,       /**< remote control, or no source known yet */
  LUMIO_EVENT_SOURCE_PANEL = 1,        /**< keys of the front panel */
  LUMIO_EVENT_SOURCE_TOUCH = 2,        /**< touch remote */
  LUMIO_EVENT_SOURCE_FUNCTION_OSD = 3, /**< on-screen function keys */
  LUMIO_EVENT_SOURCE_OTHER = 4         /**< any other device */
};

/**
 * Returns which kind of input device sent the last key. Call on the main-loop thread.
 *
 * @return one of `LUMIO_EVENT_SOURCE_...`; always 0 without an X display that supports XInput 2
 */
int lumio_event_source_type_get(void);

/**
 * Asks the window manager to hide the mouse cursor over the focused window until the pointer moves. Call on the
 * main-loop thread.
 *
 * The call sets the window's property "E_SHOW_CURSOR_AFTER_MOVEMENT" to 1. Without a display or a focused window it
 * logs "failed to get display" and changes nothing.
 */
void lumio_cursor_show_after_movement(void);

#ifdef __cplusplus
/**
 * Sets the list of the application's cache flags. Every key that the library dispatches sets all of them to false. Call
 * on the main-loop thread.
 *
 * @param list  pointers to the flags; null pointers in it are skipped. Keep the list and the flags alive until you set
 * another list. Null switches the invalidation off
 */
void lumio_kevent_cache_list_set(std::vector<bool *> *list);
#endif

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
