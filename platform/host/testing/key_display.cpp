// Apart from the rest of the test kit, so that a test without a display loads no X libraries.
#include <lumio-host/testing.h>

#include <Ecore.h>
#include <Ecore_Input.h>
#include <Ecore_X.h>

#include <cstdlib>

#include "display.h"

namespace lumio::testing {
namespace {

constexpr int kWindowSize = 64; // pixels

} // namespace

struct KeyDisplay::State {
  State();
  ~State();
  State(const State &) = delete;
  State &operator=(const State &) = delete;

  void AwaitKey(int ecore_type, const std::function<void()> &send);
  static Eina_Bool NoteEvent(void *data, void *loop_data, int type, void *event);

  PrivateDisplay server;
  Ecore_Event_Filter *filter = nullptr; // sees the events that handlers keep from others
  Ecore_X_Window window = 0;
  int awaited = 0; // an event type; 0 when it has come
};

KeyDisplay::State::State() {
  for (const auto &[name, value] : server.Environment()) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  ecore_x_init(nullptr);
  filter = ecore_event_filter_add(nullptr, NoteEvent, nullptr, this);
  window = ecore_x_window_new(0, 0, 0, kWindowSize, kWindowSize);
  ecore_x_window_show(window);
  ecore_x_window_focus(window);
  ecore_x_sync();
}

KeyDisplay::State::~State() {
  ecore_event_filter_del(filter);
  ecore_x_window_free(window);
  ecore_x_shutdown();
}

Eina_Bool KeyDisplay::State::NoteEvent(void *data, void *, int type, void *) {
  auto *self = static_cast<State *>(data);
  if (type == self->awaited) {
    self->awaited = 0;
  }
  return EINA_TRUE; // handle it
}

void KeyDisplay::State::AwaitKey(int ecore_type, const std::function<void()> &send) {
  awaited = ecore_type;
  send();
  TurnLoopUntil([this] { return awaited == 0; });
  TurnLoop(); // be idle, so that the next key is no part of a burst
}

KeyDisplay::KeyDisplay() : state_(std::make_unique<State>()) {}

KeyDisplay::~KeyDisplay() = default;

void KeyDisplay::Press(const std::string &key, const std::string &device) {
  state_->AwaitKey(ECORE_EVENT_KEY_DOWN, [&] { state_->server.Press(device, key); });
}

void KeyDisplay::Release(const std::string &key, const std::string &device) {
  state_->AwaitKey(ECORE_EVENT_KEY_UP, [&] { state_->server.Release(device, key); });
}

} // namespace lumio::testing
