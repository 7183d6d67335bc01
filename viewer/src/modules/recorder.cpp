#include <Ecore.h>
#include <PvrServiceSubscriber.h>
#include <lumio-host/pvr-control.h>

#include "../banner.h"
#include "../channels.h"
#include "../key_domain.h"
#include "../main_loop_calls.h"
#include "modules.h"

namespace {

constexpr int kPriority = 5;
constexpr double kNotice = 4; // seconds

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

// Tells a viewer what happened.
std::string Notice(const ps_result_thirdpart &result) {
  if (result.result == PVR_RESULT_OK) {
    return result.operation == PVR_OPERATION_START ? "Recording has started" : "Recording has ended";
  }
  return std::string(result.operation == PVR_OPERATION_START ? "Cannot record: " : "Recording has ended: ") +
         Name(result.result);
}

class Recorder : public Module {
public:
  explicit Recorder(ModuleContext context)
      : screen_(context.screen), channels_(context.channels),
        indicator_(kRecordBanner, "record indicator", context.screen), keys_("recorder", context.journal) {
    pvr_.RegisterPvrCb(ResultCame, this);
    pvr_.RegisterPvrStateCb(StateCame, this);
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
  }
  ~Recorder() override {
    StopNotice();
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

  // The service decides; its results and states tell.
  bool Press(const std::string &key) {
    if (key != "XF86AudioRecord" && key != "o") {
      return false;
    }
    if (lumio::pvr::State() == PVR_STATE_RECORDING) {
      lumio::pvr::StopRecording();
    } else {
      lumio::pvr::StartRecording(channels_.Programme());
    }
    return true;
  }

  void ShowNotice(const std::string &text) {
    StopNotice();
    screen_.Show("notice", text);
    notice_ = ecore_timer_add(
        kNotice,
        [](void *data) -> Eina_Bool {
          auto *self = static_cast<Recorder *>(data);
          self->notice_ = nullptr;
          self->screen_.Hide("notice");
          return ECORE_CALLBACK_CANCEL;
        },
        this);
  }

  void StopNotice() {
    if (notice_) {
      ecore_timer_del(notice_);
      notice_ = nullptr;
    }
  }

  void ShowResult(const ps_result_thirdpart &result) {
    ShowNotice(Notice(result));
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
  Channels &channels_;
  Banner indicator_;
  Ecore_Timer *notice_ = nullptr;
  CPvrServiceSubscriber pvr_{"recorder"};
  MainLoopCalls calls_;
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakeRecorder(ModuleContext context) { return std::make_unique<Recorder>(context); }
