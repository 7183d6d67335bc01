/**
 * @file vconf.h
 * The platform's key-value store, shared by every process of the user.
 *
 * Both functions may be called on any thread.
 */
#ifndef VCONF_H
#define VCONF_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Reads an integer key.
 *
 * @param key    name of the key, for example "memory/lumio/lumio_banner_state_1"
 * @param value  receives the value; unchanged on failure
 * @return 0 on success, negative if the key is absent or the store cannot be read
 */
int vconf_get_int(const char *key, int *value);

/**
 * Writes an integer key. Creates the key if it is absent.
 *
 * @param key    name of the key
 * @param value  new value
 * @return 0 once the value is stored, negative on failure
 */
int vconf_set_int(const char *key, int value);

#ifdef __cplusplus
}
#endif

#endif
