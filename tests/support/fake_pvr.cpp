#include "fake_pvr.h"

#include "uncounted.h"

FakePvr fake_pvr;

namespace {

int Answer(const char *call, int answer) {
  Uncounted uncounted;
  fake_pvr.calls.push_back(call);
  if (fake_pvr.on_call) {
    fake_pvr.on_call();
  }
  return answer;
}

template <class Callback> int Register(const char *call, Callback *slot, Callback cb, void *user_data) {
  *slot = cb;
  fake_pvr.user_data = user_data;
  return Answer(call, fake_pvr.register_answer);
}

template <class Callback> int Unregister(const char *call, Callback registered, Callback cb) {
  return Answer(cb == registered ? call : "unregister unknown", fake_pvr.unregister_answer);
}

} // namespace

extern "C" {

int svc_pvr_service_init(void) { return Answer("init", fake_pvr.init_answer); }

int svc_pvr_register_to_other_apps_cb(svc_pvr_result_cb cb, void *user_data) {
  return Register("register result", &fake_pvr.result_cb, cb, user_data);
}

int svc_pvr_unregister_to_other_apps_cb(svc_pvr_result_cb cb) {
  return Unregister("unregister result", fake_pvr.result_cb, cb);
}

int svc_pvr_register_get_pvr_state_cb(svc_pvr_state_cb cb, void *user_data) {
  return Register("register state", &fake_pvr.state_cb, cb, user_data);
}

int svc_pvr_unregister_get_pvr_state_cb(svc_pvr_state_cb cb) {
  return Unregister("unregister state", fake_pvr.state_cb, cb);
}

} // extern "C"
