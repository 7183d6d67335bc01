// The filters in front of the handlers: they decide which keys no module sees.
//
// The filters are arithmetic. Times and flags come in as values; the decision comes out as the result, and its reason
// as log lines in the name of the key callback. Nothing here asks Ecore, X or the store.
#pragma once

#include "kevent.h"

namespace lumio {

// The filters' part of the manager record. Only key_filter.cpp writes it.
struct KeyFilterState {
  double timestamp_init;   // seconds on the X server's clock; all other times are on the Ecore clock
  double app_cb_time_init; // seconds
  double ignore_threshold; // seconds
  double timestamp_last_handled_key_down;
  double timestamp_last_handled_key_up;
  bool press_ignored; // the last press was dropped for its age
  int last_handled_is_down;
};

// Returns whether a key is swallowed. `busy` tells whether a key came since the main loop was last idle, and
// `key_cb_count` how many did.
bool _is_burst(bool busy, int key_cb_count, bool is_press);

// Returns whether the set is in factory aging mode, given what the store answered: its result, 0 on success, and the
// value.
bool _is_aging(int read_result, int value);

// Returns whether a press is dispatched. `announced` exempts it from the test of its age: an event of its device came
// just before. `key_ts` is the press's time on the X server's clock and `cur` the time now on the Ecore clock, both in
// seconds.
bool _accept_press(KeyFilterState *state, bool announced, double key_ts, double cur);

// Returns whether a release is dispatched.
bool _accept_release(const KeyFilterState &state, const char *key_name);

// Records that a key was dispatched. `now` is the time after its handlers ran, in seconds on the Ecore clock.
void _note_handled(KeyFilterState *state, lumio_kevent_type type, double now);

// Forgets all times, so that the next press counts as the first one.
void _reset_key_timing(KeyFilterState *state);

} // namespace lumio
