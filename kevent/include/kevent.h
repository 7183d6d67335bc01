/**
 * @file kevent.h
 * Remote-control and front-panel keys, handed to the modules of an application in priority order.
 *
 * A module opens a *domain* and adds *handlers* to it. A handler is asked for one kind of event (press or release) at
 * one of seven priorities; 0 is asked first. The first handler that returns 0 consumes the key.
 *
 * Everything here belongs to the thread of the Ecore main loop: every function is called there and every handler runs
 * there. The application initialises EFL (`ecore_init`, `ecore_event_init` and, where there is a display,
 * `ecore_x_init`) before the first `lumio_kevent_init` and keeps it initialised.
 *
 * Not every key reaches the handlers. Presses beyond two key events between two idle moments of the main loop are
 * swallowed. Presses that were queued while the application was not ready are dropped, and with them the releases whose
 * key names do not begin with 'X'. While the vconf key "db/FactoryApp/Aging" is 1, no key is looked at. A key that is
 * dispatched, or swallowed, is not handed to Ecore handlers that were added after the library's own, whether or not a
 * handler consumes it; all others are.
 *
 * A handler may do anything from inside its callback: delete itself or any other handler, close any domain, its own
 * included, add handlers anywhere, run a nested main loop. What is deleted during a dispatch is not called any more,
 * and is released when the outermost dispatch ends.
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
 * Asked for each key event of its type, on the main-loop thread.
 *
 * @param kevent      the domain that the handler belongs to
 * @param type        the kind of event
 * @param event_info  the `Ecore_Event_Key`, valid during the call only; its `keyname` may be null
 * @param data        what was given to `lumio_kevent_handler_add`
 * @return 0 to consume the key, any other value to pass it on to the next handler
 */
typedef int (*lumio_kevent_cb)(lumio_kevent *kevent, lumio_kevent_type type, void *event_info, void *data);

/**
 * Opens a domain. The first one also installs the library in the Ecore main loop, where it stays until the process
 * ends.
 *
 * Every call that succeeds forgets when keys were last seen, also for the other domains: the next press counts as the
 * first one. Several domains may have the same name.
 *
 * @param domain  name for log messages; copied
 * @return the domain, to be closed with `lumio_kevent_fini`; null, with a log message, when `domain` is null or memory
 * is short
 */
lumio_kevent *lumio_kevent_init(const char *domain);

/**
 * Closes a domain and deletes its handlers.
 *
 * During a dispatch the domain is only marked, and its handlers keep receiving keys until the dispatch has ended. A
 * handle that is null, foreign or already closed is refused with a log message, unless a new domain has got its
 * address.
 *
 * Once a press has been ignored for its age, deletions are marked only, for the rest of the process: marked handlers
 * are not called, the handlers of a marked domain are.
 *
 * @param kevent  the domain
 */
void lumio_kevent_fini(lumio_kevent *kevent);

/**
 * Registers a handler. Handlers of one priority are asked in the order of their registration.
 *
 * Added during a dispatch, the handler is asked for the current key too if the walk has not passed its place.
 *
 * @param kevent    an open domain
 * @param type      `LUMIO_KEVENT_PRESS` or `LUMIO_KEVENT_RELEASE`
 * @param priority  0 (asked first) to 6
 * @param cb        the handler, not null
 * @param data      given back to `cb`; not owned
 * @return the handler, to be deleted with `lumio_kevent_handler_del` or with its domain; null, with a log message, when
 * an argument is out of range, no domain was ever opened, `kevent` is not open, or memory is short
 */
lumio_kevent_handler *lumio_kevent_handler_add(lumio_kevent *kevent, lumio_kevent_type type, int priority,
                                               lumio_kevent_cb cb, void *data);

/**
 * Deletes a handler.
 *
 * During a dispatch it is marked, which is enough that it is not called any more. A handle that is null, foreign or
 * already deleted is refused with a log message, unless a new handler has got its address.
 *
 * @param handler  the handler
 */
void lumio_kevent_handler_del(lumio_kevent_handler *handler);

/** Values of `lumio_event_source_type_get`. */
enum {
  LUMIO_EVENT_SOURCE_REMOTE = 0,       /**< remote control, or nothing known yet */
  LUMIO_EVENT_SOURCE_PANEL = 1,        /**< keys of the front panel */
  LUMIO_EVENT_SOURCE_TOUCH = 2,        /**< touch remote */
  LUMIO_EVENT_SOURCE_FUNCTION_OSD = 3, /**< on-screen function keys */
  LUMIO_EVENT_SOURCE_OTHER = 4         /**< any other device */
};

/**
 * Tells which kind of input device sent the last key. Needs an X display with XInput 2; without one it stays 0.
 *
 * @return one of `LUMIO_EVENT_SOURCE_...`
 */
int lumio_event_source_type_get(void);

/**
 * Asks the window manager to hide the mouse cursor of the focused window until the pointer moves.
 *
 * Sets the property "E_SHOW_CURSOR_AFTER_MOVEMENT" of that window to 1. Without a display or a focused window it logs
 * "failed to get display" and changes nothing.
 */
void lumio_cursor_show_after_movement(void);

#ifdef __cplusplus
/**
 * Names the application's cache flags. Every key that is dispatched sets all of them to false.
 *
 * @param list  pointers to the flags, null ones are passed over; the application keeps it, and what it points to, alive
 * while it is set. Null switches this off.
 */
void lumio_kevent_cache_list_set(std::vector<bool *> *list);
#endif

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
