/**
 * @file lumio-banner-state.h
 * Which on-screen banners of the viewer are shown, visible to every process.
 *
 * The states of 32 banners are the bits of one vconf integer, "memory/lumio/lumio_banner_state_1": bit n is 1 while
 * banner n is shown, so the integer is negative while banner 31 is. The library neither creates nor resets the key:
 * while it is missing, states can be neither set nor read. It outlives the application.
 *
 * A module registers a callback per banner, which runs when this process changes the banner's bit. Changes that other
 * processes make are not announced here; between two processes that set banners at the same time the later write wins.
 *
 * Everything that registers or sets belongs to one thread, the application's main thread. EFL is initialised before the
 * first registration (`eina_init`, which `ecore_init` runs). Every function may be called from inside a callback: add
 * and delete callbacks of any banner, the running one included, and set banners.
 */
#ifndef LUMIO_BANNER_STATE_H
#define LUMIO_BANNER_STATE_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Told that the state of a banner has changed, on the thread that set it, before `lumio_set_banner_state` returns.
 *
 * @param banner_id  0 to 31; `lumio_get_banner_state` tells the new state
 * @param data       what was given to `lumio_banner_state_cb_add`
 */
typedef void (*lumio_banner_state_cb)(int banner_id, void *data);

/** Announces in the log that the application is about to use banners. Needs not be called. Main thread. */
void lumio_banner_init(void);

/**
 * Registers a callback for the changes of one banner. Main thread; the callback runs there too.
 *
 * Callbacks run in the order of registration. The same callback may be registered any number of times and runs once for
 * each. Added while callbacks of the same banner run, it still runs for that change.
 *
 * Without a result: when `cb` or `data` is null, `banner_id` is out of range or memory is short, a message is logged
 * and nothing is registered; `data` then stays the caller's.
 *
 * @param banner_id  0 to 31
 * @param cb         the callback, not null
 * @param data       given back to `cb`; not null, allocated with `malloc` or `calloc`. The library owns it from now on
 * and releases it with `free` when the callback is deleted; data of several registrations is released with the last one
 */
void lumio_banner_state_cb_add(int banner_id, lumio_banner_state_cb cb, void *data);

/**
 * Deletes every registration of a callback for one banner and releases their data. Main thread.
 *
 * A callback that deletes itself has lost its data when this returns. Nothing happens when the callback is not
 * registered; a null callback or a banner out of range is refused with a log message. A few bytes for each registration
 * ever made remain until the process ends.
 *
 * @param banner_id  0 to 31
 * @param cb         the callback, not null
 */
void lumio_banner_state_cb_del(int banner_id, lumio_banner_state_cb cb);

/**
 * Marks a banner as shown, and runs its callbacks if it was not. Main thread; the callbacks run before it returns.
 *
 * Hiding is accepted but has no effect on the stored state: a banner once shown stays marked as shown until something
 * else resets the key. The key is written in any case.
 *
 * @param banner_id  0 to 31
 * @param state      1 shown, 0 hidden
 * @return 0 when the key was written; -1, with a log message, when an argument is out of range or the key could not be
 * read or written, in which case no callback runs
 */
int lumio_set_banner_state(int banner_id, int state);

/**
 * Reads the state of a banner, whichever process set it. Any thread.
 *
 * @param banner_id  0 to 31
 * @param state      receives 1 (shown) or 0 (hidden), and is untouched on failure. Not tested: must not be null
 * @return 0 on success; -1, with a log message, when `banner_id` is out of range or the key could not be read
 */
int lumio_get_banner_state(int banner_id, int *state);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
