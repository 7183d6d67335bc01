#include <PvrServiceSubscriber.h>

#include "../banner.h"
#include "../main_loop_calls.h"
#include "modules.h"

namespace {

const char *Name(int result) {
  switch (result) {
  case PVR_RESULT_OK:
    return "done";
  case PVR_RESULT_CONFLICT:
    return "refused, another recording is running";
  case PVR_RESULT_DISK_FULL:
    return "disk full";
  case PVR_RESULT_IDLE:
    return "nothing to stop";
  default:
    return "unknown result";
  }
}

class Recorder : public Module {
public:
  explicit Recorder(ModuleContext context)
      : screen_(context.screen), indicator_(kRecordBanner, "record indicator", context.screen) {
    pvr_.RegisterPvrCb(ResultCame, this);
    pvr_.RegisterPvrStateCb(StateCame, this);
  }
  ~Recorder() override {
    pvr_.UnRegisterPvrCb(ResultCame);
    pvr_.UnRegisterPvrStateCb(StateCame);
  }

private:
  // The service calls on its own thread, while the screen belongs to the main loop.
  static void ResultCame(ps_result_thirdpart result, void *data) {
    auto *self = static_cast<Recorder *>(data);
    self->calls_.Post([self, result] { self->ShowResult(result); });
  }
  static bool StateCame(pvr_state_e state, void *data) {
    auto *self = static_cast<Recorder *>(data);
    self->calls_.Post([self, state] { self->ShowState(state); });
    return true;
  }

  void ShowResult(const ps_result_thirdpart &result) {
    screen_.Show("recorder", std::string(result.operation == PVR_OPERATION_START ? "start" : "stop") +
                                 " of programme " + std::to_string(result.program) + ": " + Name(result.result));
  }

  void ShowState(pvr_state_e state) {
    if (state == PVR_STATE_RECORDING) {
      indicator_.Show("recording");
    } else if (state != PVR_STATE_CONFLICT) { // after a conflict the first recording continues
      indicator_.Hide();
    }
  }

  Presentation &screen_;
  Banner indicator_;
  CPvrServiceSubscriber pvr_{"recorder"};
  MainLoopCalls calls_;
};

} // namespace

std::unique_ptr<Module> MakeRecorder(ModuleContext context) { return std::make_unique<Recorder>(context); }
