/**
 * @file lumio-banner-state.h
 * Records which on-screen banners the viewer shows, where every process can read it.
 *
 * One vconf integer, "memory/lumio/lumio_banner_state_1", holds the states of 32 banners. Bit n is 1 if banner n is
 * marked as shown, so the integer is negative if banner 31 is. The library never creates or resets the key. While the
 * key is missing, you can neither set nor read a state. The key outlives the application.
 *
 * A module registers a callback per banner. The callback runs when this process changes the banner's bit, not when
 * another process does. If two processes set banners at the same time, the later write wins.
 *
 * Register callbacks and set states on one thread, the application's main thread. Initialise EFL (`eina_init`, which
 * `ecore_init` calls) before the first registration. A callback may call every function of this header: it may add and
 * delete callbacks of any banner, itself included, and set states.
 */
#ifndef LUMIO_BANNER_STATE_H
#define LUMIO_BANNER_STATE_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Runs after the state of a banner has changed, inside `lumio_set_banner_state` and on its thread.
 *
 * @param banner_id  0 to 31; call `lumio_get_banner_state` for the new state
 * @param data       the pointer that was given to `lumio_banner_state_cb_add`
 */
typedef void (*lumio_banner_state_cb)(int banner_id, void *data);

/** Logs that the application is about to use banners, and does nothing else. The call is optional. Main thread. */
void lumio_banner_init(void);

/**
 * Registers a callback for the changes of one banner. Call on the main thread; the callback runs on that thread too.
 *
 * Callbacks run in the order of their registration. You may register the same callback several times; it then runs once
 * for each registration. A callback that is added while callbacks of the same banner run still runs for that change.
 *
 * The function returns nothing. If `cb` or `data` is null, `banner_id` is out of range or there is no memory, it logs a
 * message and registers nothing; `data` then remains yours.
 *
 * @param banner_id  0 to 31
 * @param cb         the callback, not null
 * @param data       a pointer that the library passes to `cb`; not null, and allocated with `malloc` or `calloc`. The
 * library owns it from now on, and frees it when the callback is deleted. If several registrations share it, the
 * library frees it with the last of them
 */
void lumio_banner_state_cb_add(int banner_id, lumio_banner_state_cb cb, void *data);

/**
 * Deletes every registration of a callback for one banner and frees their data. Call on the main thread.
 *
 * If a callback deletes itself, its data is freed when this call returns. If the callback is not registered, nothing
 * happens. The library refuses a null callback and a banner out of range, with a log message. It keeps a few bytes for
 * each registration until the process ends.
 *
 * @param banner_id  0 to 31
 * @param cb         the callback, not null
 */
void lumio_banner_state_cb_del(int banner_id, lumio_banner_state_cb cb);

/**
 * Marks a banner as shown, and runs its callbacks if it was not shown before. Call on the main thread; the callbacks
 * run on it before the call returns.
 *
 * Hiding a banner succeeds but does not change its stored state: once shown, a banner stays marked as shown until
 * something else resets the key. Every call writes the key.
 *
 * @param banner_id  0 to 31
 * @param state      1 shown, 0 hidden
 * @return 0 if the key was written. -1, with a log message, if an argument is out of range or the key cannot be read or
 * written; no callback runs then
 */
int lumio_set_banner_state(int banner_id, int state);

/**
 * Reads the state of a banner, whichever process set it. Call on any thread.
 *
 * @param banner_id  0 to 31
 * @param state      receives 1 (shown) or 0 (hidden); unchanged on failure. Must not be null: the library does not test
 * it
 * @return 0 on success. -1, with a log message, if `banner_id` is out of range or the key cannot be read
 */
int lumio_get_banner_state(int banner_id, int *state);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
