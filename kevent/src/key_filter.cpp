#define LUMIO_LOG_FILE "kevent.cpp"
#include "key_filter.h"

#include <cmath>

#include "log.h"

namespace lumio {
namespace {

constexpr int kBurstLimit = 2;            // keys between two idle moments of the main loop
constexpr double kZero = 1e-05;           // seconds; a time closer to 0 counts as not set
constexpr double kThresholdMargin = 0.25; // seconds
constexpr char kKeyCallback[] = "_key_cb";

bool _is_zero(double seconds) { return std::fabs(seconds) < kZero; }

// Decides about a press below the threshold: drops it if the last dispatched key was a press. After a release, drops it
// only if its age is below the time since the last press.
bool _accept_suspect(const KeyFilterState &state, double key_ts, double age, double cur) {
  if (state.last_handled_is_down == 1) {
    LUMIO_LOG_FOR(kKeyCallback, kError, "key ignored. dblKeyTimeStamp[%lf], timestamp_init[%lf], ignore_threshold[%lf]",
                  key_ts, state.timestamp_init, state.ignore_threshold);
    LUMIO_LOG_FOR(kKeyCallback, kError,
                  "timestamp_last_handled_key_down[%lf], timestamp_last_handled_key_up[%lf], current time[%lf]",
                  state.timestamp_last_handled_key_down, state.timestamp_last_handled_key_up, cur);
    return false;
  }
  if (age < cur - state.timestamp_last_handled_key_down) {
    LUMIO_LOG_FOR(kKeyCallback, kError, "key ignored..");
    return false;
  }
  LUMIO_LOG_FOR(kKeyCallback, kError, "do not ignore key..");
  return true;
}

// Drops presses that were queued while the application was not ready. The two clocks have no common zero, so the filter
// compares durations: how much later than the first press this one was made, on the server's clock, and how much later
// it arrives, on Ecore's.
bool _is_fresh(KeyFilterState *state, double key_ts, double cur) {
  LUMIO_LOG_FOR(kKeyCallback, kTrace, "key timestamp = %lf", key_ts);
  LUMIO_LOG_FOR(kKeyCallback, kTrace, "timestamp_init = %lf, app_cb_time_init = %lf", state->timestamp_init,
                state->app_cb_time_init);
  LUMIO_LOG_FOR(kKeyCallback, kTrace, "cur = %lf", cur);
  if (_is_zero(state->timestamp_init) && _is_zero(state->app_cb_time_init)) {
    LUMIO_LOG_FOR(kKeyCallback, kError, "init timestamp");
    state->timestamp_init = key_ts;
    state->app_cb_time_init = cur;
  } else if (_is_zero(state->ignore_threshold)) {
    LUMIO_LOG_FOR(kKeyCallback, kError, "reset threshold");
    state->ignore_threshold = (cur - state->app_cb_time_init) - kThresholdMargin;
  }
  const double age = key_ts - state->timestamp_init;
  return !(age < state->ignore_threshold) || _accept_suspect(*state, key_ts, age, cur);
}

} // namespace

bool _is_burst(bool busy, int key_cb_count, bool is_press) {
  // Deliberate: the limit swallows presses only, but releases and rejected keys count towards it. A caller that blocks
  // the main loop loses presses, never releases (docs/surprises.md).
  if (!busy || key_cb_count < kBurstLimit || !is_press) {
    return false;
  }
  LUMIO_LOG_FOR(kKeyCallback, kError, "skip _key_cb ..");
  return true;
}

bool _is_aging(int read_result, int value) {
  if (read_result != 0) {
    LUMIO_LOG_FOR(kKeyCallback, kError, "vconf_get_int fail..");
    return false;
  }
  if (value != 1) {
    return false;
  }
  LUMIO_LOG_FOR(kKeyCallback, kError, "do not process the key in aging mode..");
  return true;
}

bool _accept_press(KeyFilterState *state, bool announced, double key_ts, double cur) {
  state->press_ignored = !announced && !_is_fresh(state, key_ts, cur);
  return !state->press_ignored;
}

bool _accept_release(const KeyFilterState &state, const char *key_name) {
  // Deliberate: every name that begins with 'X' passes, not only "XF86RaiseChannel". A caller sees the release of any
  // XF86 key without its dropped press (docs/surprises.md).
  if (!state.press_ignored || key_name[0] == 'X') {
    return true;
  }
  LUMIO_LOG_FOR(kKeyCallback, kTrace, "key released ignored");
  return false;
}

void _note_handled(KeyFilterState *state, lumio_kevent_type type, double now) {
  if (type == LUMIO_KEVENT_PRESS) {
    state->ignore_threshold = 0.0;
    state->timestamp_last_handled_key_down = now;
    state->last_handled_is_down = 1;
  } else {
    state->timestamp_last_handled_key_up = now;
    state->last_handled_is_down = 0;
  }
}

void _reset_key_timing(KeyFilterState *state) {
  state->last_handled_is_down = 0;
  state->timestamp_init = 0.0;
  state->app_cb_time_init = 0.0;
  state->ignore_threshold = 0.0;
  state->timestamp_last_handled_key_down = 0.0;
  state->timestamp_last_handled_key_up = 0.0;
}

} // namespace lumio
