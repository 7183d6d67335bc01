#include <lumio-host/pvr-control.h>

#include <algorithm>
#include <cstdlib>

#include "call_plan.h"
#include "delivery_thread.h"

namespace {

using lumio::pvr::Call;

// The process's registered callback of one kind.
template <class Callback> struct Registration {
  Callback callback = nullptr;
  void *user_data = nullptr;
};

class PvrService {
public:
  // Lives to the very end: threads that still run at exit may call it. Its own thread ends earlier, while everything
  // that was there when the service was first used is still there.
  static PvrService &Get() {
    static PvrService *service = [] {
      std::atexit([] { Get().m_thread.Stop(); });
      return new PvrService;
    }();
    return *service;
  }

  int Connect() {
    return m_plan.Carry(Call::Init, [&] {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_connected = true;
      return 1;
    });
  }

  template <class Callback>
  int Register(Call call, Registration<Callback> &registration, Callback callback, void *user_data) {
    return m_plan.Carry(call, [&] {
      const std::lock_guard<std::mutex> lock(m_mutex);
      if (!m_connected || callback == nullptr) {
        return -1;
      }
      registration = {callback, user_data};
      return 0;
    });
  }

  template <class Callback> int Unregister(Call call, Registration<Callback> &registration, Callback callback) {
    return m_plan.Carry(call, [&] {
      const std::lock_guard<std::mutex> lock(m_mutex);
      if (callback == nullptr || registration.callback != callback) {
        return -1;
      }
      registration = {};
      return 0;
    });
  }

  void Tell(const ps_result_thirdpart &result) { Post(results, result); }
  void Tell(pvr_state_e state) { Post(states, state); }

  int Start(int program) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const int request = ++m_requests;
    if (m_state == PVR_STATE_RECORDING) {
      TellResult(PVR_OPERATION_START, request, PVR_RESULT_CONFLICT, {0, program, 0});
      Tell(PVR_STATE_CONFLICT);
      Tell(PVR_STATE_RECORDING);
    } else if (m_free_space == 0) {
      TellResult(PVR_OPERATION_START, request, PVR_RESULT_DISK_FULL, {0, program, 0});
      Enter(PVR_STATE_DISK_FULL);
    } else {
      m_recording = {request, program, 0};
      TellResult(PVR_OPERATION_START, request, PVR_RESULT_OK, m_recording);
      Enter(PVR_STATE_RECORDING);
    }
    return request;
  }

  int Stop() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const int request = ++m_requests;
    if (m_state != PVR_STATE_RECORDING) {
      TellResult(PVR_OPERATION_STOP, request, PVR_RESULT_IDLE, {});
    } else {
      TellResult(PVR_OPERATION_STOP, request, PVR_RESULT_OK, m_recording);
      Enter(PVR_STATE_IDLE);
    }
    return request;
  }

  void Advance(int seconds) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state != PVR_STATE_RECORDING) {
      return;
    }
    const int recorded = std::clamp(seconds, 0, m_free_space);
    m_recording.duration += recorded;
    LeaveFree(m_free_space - recorded);
  }

  void SetFreeSpace(int mebibytes) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    LeaveFree(std::max(mebibytes, 0));
  }

  pvr_state_e State() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_state;
  }

  void RefuseNext(Call call, int result) { m_plan.RefuseNext(call, result); }
  void DuringNext(Call call, std::function<void()> action) { m_plan.DuringNext(call, std::move(action)); }
  void Flush() { m_thread.Flush(); }

  void Shutdown() {
    m_thread.Flush();
    m_thread.Stop();
  }

  Registration<svc_pvr_result_cb> results;
  Registration<svc_pvr_state_cb> states;

private:
  struct Recording {
    int request = 0; // that started it
    int program = 0;
    int duration = 0; // seconds
  };

  // The callback is looked up when its turn comes and called without the lock: whoever unregisters it may hold a lock
  // of his own that the callback is waiting for.
  template <class Callback, class Value> void Post(const Registration<Callback> &registration, const Value &value) {
    m_thread.Post([this, &registration, value] {
      std::unique_lock<std::mutex> lock(m_mutex);
      const Registration<Callback> target = registration;
      lock.unlock();
      if (target.callback != nullptr) {
        target.callback(value, target.user_data);
      }
    });
  }

  // The following are called with the lock held, so that what is told is told in the order it happened.

  void TellResult(pvr_operation_e operation, int request, pvr_result_e result, const Recording &recording) {
    Tell({operation, request, result, recording.program, recording.duration, m_free_space, 0});
  }

  void Enter(pvr_state_e state) {
    m_state = state;
    Tell(state);
  }

  void LeaveFree(int mebibytes) {
    m_free_space = mebibytes;
    if (m_state == PVR_STATE_RECORDING && m_free_space == 0) {
      TellResult(PVR_OPERATION_STOP, m_recording.request, PVR_RESULT_DISK_FULL, m_recording);
      Enter(PVR_STATE_DISK_FULL);
    } else if (m_state == PVR_STATE_DISK_FULL && m_free_space > 0) {
      Enter(PVR_STATE_IDLE);
    }
  }

  lumio::CallPlan<Call> m_plan;
  std::mutex m_mutex; // guards everything below, and the registrations
  bool m_connected = false;
  pvr_state_e m_state = PVR_STATE_IDLE;
  int m_free_space = lumio::pvr::kInitialFreeSpace;
  int m_requests = 0;
  Recording m_recording;
  lumio::DeliveryThread m_thread;
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
