// The recording service, recorded. Its answers can be chosen; the registered callbacks are called by the test.
#pragma once

#include <pvr-service.h>

#include <functional>
#include <string>
#include <vector>

struct FakePvr {
  std::vector<std::string> calls; // "init", "register result", "unregister state", ...
  std::function<void()> on_call;  // runs inside every call

  int init_answer = 1;
  int register_answer = 0;
  int unregister_answer = 0;

  // What was registered last; an unregistration leaves it.
  svc_pvr_result_cb result_cb = nullptr;
  svc_pvr_state_cb state_cb = nullptr;
  void *user_data = nullptr;
};

extern FakePvr fake_pvr;
