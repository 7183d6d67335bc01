// The recording service. It records its calls; a test chooses its answers and calls the registered callbacks.
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

  // The callbacks that were registered last. An unregistration leaves them.
  svc_pvr_result_cb result_cb = nullptr;
  svc_pvr_state_cb state_cb = nullptr;
  void *user_data = nullptr;
};

extern FakePvr fake_pvr;
