#include "main_loop_calls.h"

#include <Ecore.h>

namespace {

struct Call {
  std::weak_ptr<const bool> alive; // expires on the main loop, where the call runs
  std::function<void()> function;
};

void Run(void *data) {
  const std::unique_ptr<Call> call(static_cast<Call *>(data));
  if (!call->alive.expired()) {
    call->function();
  }
}

} // namespace

void MainLoopCalls::Post(std::function<void()> call) const {
  ecore_main_loop_thread_safe_call_async(Run, new Call{alive_, std::move(call)});
}
