#include <lumio-host/broadcast.h>
#include <lumio-host/pvr-control.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "call_plan.h"
#include "delivery_thread.h"
#include "recording.h"

namespace {

using lumio::pvr::Call;

// The process's registered callback of one kind.
template <class Callback> struct Registration {
  Callback callback = nullptr;
  void *user_data = nullptr;
};

class PvrService {
public:
  static PvrService &Get() {
    static PvrService &service = *new PvrService; // never destroyed: threads that still run at exit may call it
    return service;
  }

  int Connect() {
    return plan_.Carry(Call::Init, [&] {
      const std::lock_guard<std::mutex> lock(mutex_);
      connected_ = true;
      return 1;
    });
  }

  template <class Callback>
  int Register(Call call, Registration<Callback> &registration, Callback callback, void *user_data) {
    return plan_.Carry(call, [&] {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (!connected_ || !callback) {
        return -1;
      }
      registration = {callback, user_data};
      return 0;
    });
  }

  template <class Callback> int Unregister(Call call, Registration<Callback> &registration, Callback callback) {
    return plan_.Carry(call, [&] {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (!callback || registration.callback != callback) {
        return -1;
      }
      registration = {};
      return 0;
    });
  }

  void Tell(const ps_result_thirdpart &result) { Post(results, result); }
  void Tell(pvr_state_e state) { Post(states, state); }

  int Start(int program) {
    const bool is_real = lumio::broadcast::IsOpen();
    const std::lock_guard<std::mutex> lock(mutex_);
    const int request = ++requests_;
    if (state_ == PVR_STATE_RECORDING) {
      TellResult(PVR_OPERATION_START, request, PVR_RESULT_CONFLICT, {0, program, 0});
      Tell(PVR_STATE_CONFLICT);
      Tell(PVR_STATE_RECORDING);
    } else if (is_real ? !OpenFile(program) : free_space_ == 0) {
      TellResult(PVR_OPERATION_START, request, PVR_RESULT_DISK_FULL, {0, program, 0});
      CloseFile();
      Enter(PVR_STATE_DISK_FULL);
    } else {
      recording_ = {request, program, 0};
      lumio::SetRecording(real_);
      TellResult(PVR_OPERATION_START, request, PVR_RESULT_OK, recording_);
      Enter(PVR_STATE_RECORDING);
    }
    return request;
  }

  int Stop() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const int request = ++requests_;
    if (state_ != PVR_STATE_RECORDING) {
      TellResult(PVR_OPERATION_STOP, request, PVR_RESULT_IDLE, {});
      return request;
    }
    const bool is_complete = !real_ || real_->Finish();
    if (real_) {
      recording_.duration = real_->Seconds();
    }
    if (!is_complete) {
      EndFull(request);
    } else {
      TellResult(PVR_OPERATION_STOP, request, PVR_RESULT_OK, recording_);
      CloseFile();
      Enter(PVR_STATE_IDLE);
    }
    return request;
  }

  void Advance(int seconds) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (state_ != PVR_STATE_RECORDING || real_) {
      return;
    }
    const int recorded = std::clamp(seconds, 0, free_space_);
    recording_.duration += recorded;
    LeaveFree(free_space_ - recorded);
  }

  void SetFreeSpace(int mebibytes) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (real_) {
      free_space_ = std::max(mebibytes, 0); // takes effect once the simulated disk is used again
    } else {
      LeaveFree(std::max(mebibytes, 0));
    }
  }

  pvr_state_e State() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return state_;
  }

  void RefuseNext(Call call, int result) { plan_.RefuseNext(call, result); }
  void DuringNext(Call call, std::function<void()> action) { plan_.DuringNext(call, std::move(action)); }
  void Flush() { thread_.Flush(); }

  void Shutdown() {
    thread_.Flush();
    thread_.Stop();
  }

  Registration<svc_pvr_result_cb> results;
  Registration<svc_pvr_state_cb> states;

  // Completes the file if a recording is running at exit.
  void FinishFile() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (real_) {
      real_->Finish();
    }
  }

private:
  // The service's own thread ends at exit, while everything that existed at the first use of the service still exists.
  PvrService() {
    std::atexit([] {
      Get().FinishFile();
      Get().thread_.Stop();
    });
  }

  struct Recording {
    int request = 0; // the one that started it
    int program = 0;
    int duration = 0; // seconds
  };

  // The callback is looked up at delivery and called without the lock, since a caller that unregisters may hold a lock
  // of its own that the callback waits for.
  template <class Callback, class Value> void Post(const Registration<Callback> &registration, const Value &value) {
    thread_.Post([this, &registration, value] {
      std::unique_lock<std::mutex> lock(mutex_);
      const Registration<Callback> target = registration;
      lock.unlock();
      if (target.callback) {
        target.callback(value, target.user_data);
      }
    });
  }

  // The caller of these holds the lock, so that notifications are posted in the order of the events.

  void TellResult(pvr_operation_e operation, int request, pvr_result_e result, const Recording &recording) {
    const int free_space = real_ ? real_->FreeSpace() : free_space_;
    Tell({operation, request, result, recording.program, recording.duration, free_space, 0});
  }

  // Creates the file of a recording from a played stream.
  bool OpenFile(int program) {
    const bool is_service = program > 0 && program <= UINT16_MAX;
    const int request = requests_;
    real_ = std::make_shared<lumio::Recording>(static_cast<std::uint16_t>(is_service ? program : 0),
                                               [this, request] { OnFull(request); });
    return real_->Open();
  }

  // Call it when the recording to a file has ended or could not begin.
  void CloseFile() {
    lumio::SetRecording(nullptr);
    real_.reset();
  }

  // The player's thread calls it without the lock.
  void OnFull(int request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (real_ && recording_.request == request) {
      recording_.duration = real_->Seconds();
      EndFull(request);
    }
  }

  void EndFull(int request) {
    TellResult(PVR_OPERATION_STOP, request, PVR_RESULT_DISK_FULL, recording_);
    CloseFile();
    Enter(PVR_STATE_DISK_FULL);
  }

  void Enter(pvr_state_e state) {
    state_ = state;
    Tell(state);
  }

  void LeaveFree(int mebibytes) {
    free_space_ = mebibytes;
    if (state_ == PVR_STATE_RECORDING && free_space_ == 0) {
      EndFull(recording_.request);
    } else if (state_ == PVR_STATE_DISK_FULL && free_space_ > 0) {
      Enter(PVR_STATE_IDLE);
    }
  }

  lumio::CallPlan<Call> plan_;
  std::mutex mutex_; // guards everything below, and the registrations
  bool connected_ = false;
  pvr_state_e state_ = PVR_STATE_IDLE;
  int free_space_ = lumio::pvr::kInitialFreeSpace;
  int requests_ = 0;
  Recording recording_;
  std::shared_ptr<lumio::Recording> real_; // writes the file; null while the recorder is simulated
  lumio::DeliveryThread thread_;
};

} // namespace

extern "C" {

int svc_pvr_service_init(void) { return PvrService::Get().Connect(); }

int svc_pvr_register_to_other_apps_cb(svc_pvr_result_cb cb, void *user_data) {
  return PvrService::Get().Register(Call::RegisterResult, PvrService::Get().results, cb, user_data);
}

int svc_pvr_unregister_to_other_apps_cb(svc_pvr_result_cb cb) {
  return PvrService::Get().Unregister(Call::UnregisterResult, PvrService::Get().results, cb);
}

int svc_pvr_register_get_pvr_state_cb(svc_pvr_state_cb cb, void *user_data) {
  return PvrService::Get().Register(Call::RegisterState, PvrService::Get().states, cb, user_data);
}

int svc_pvr_unregister_get_pvr_state_cb(svc_pvr_state_cb cb) {
  return PvrService::Get().Unregister(Call::UnregisterState, PvrService::Get().states, cb);
}

} // extern "C"

namespace lumio {
namespace pvr {

int StartRecording(int program) { return PvrService::Get().Start(program); }
int StopRecording() { return PvrService::Get().Stop(); }
void AdvanceRecording(int seconds) { PvrService::Get().Advance(seconds); }
void SetFreeSpace(int mebibytes) { PvrService::Get().SetFreeSpace(mebibytes); }
pvr_state_e State() { return PvrService::Get().State(); }
void EmitResult(const ps_result_thirdpart &result) { PvrService::Get().Tell(result); }
void EmitState(pvr_state_e state) { PvrService::Get().Tell(state); }
void RefuseNext(Call call, int result) { PvrService::Get().RefuseNext(call, result); }
void DuringNext(Call call, std::function<void()> action) { PvrService::Get().DuringNext(call, std::move(action)); }
void Flush() { PvrService::Get().Flush(); }
void Shutdown() { PvrService::Get().Shutdown(); }

} // namespace pvr
} // namespace lumio
