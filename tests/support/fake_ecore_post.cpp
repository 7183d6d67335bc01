#include "fake_ecore_post.h"

#include <dlfcn.h>

#include <atomic>
#include <utility>

#include "uncounted.h"

namespace {

// Used on the main-loop thread only, except for the wake-ups.
std::vector<EcorePost> g_posts;
std::vector<EcoreHandler> g_handlers;
bool g_refuse_next;
std::function<void()> g_during_next;
std::atomic<int> g_wake_ups{0};

// Returns Ecore's own function of that name.
template <class Function> Function *Next(const char *name) {
  Uncounted uncounted;
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

std::vector<EcorePost> EcorePosts() { return g_posts; }
std::vector<EcoreHandler> EcoreHandlers() { return g_handlers; }
int WakeUps() { return g_wake_ups; }

void RefuseNextPost() { g_refuse_next = true; }

void DuringNextPost(std::function<void()> call) { g_during_next = std::move(call); }

void ClearEcorePosts() {
  g_posts.clear();
  g_handlers.clear();
  g_wake_ups = 0;
}

extern "C" {

Ecore_Event *ecore_event_add(int type, void *event, Ecore_End_Cb free_function, void *free_data) {
  Uncounted uncounted;
  if (std::exchange(g_refuse_next, false)) {
    return nullptr;
  }
  g_posts.push_back({type, event, free_function, free_data});
  Ecore_Event *posted = Next<decltype(ecore_event_add)>("ecore_event_add")(type, event, free_function, free_data);
  if (const std::function<void()> during = std::exchange(g_during_next, nullptr)) {
    during();
  }
  return posted;
}

Ecore_Event_Handler *ecore_event_handler_add(int type, Ecore_Event_Handler_Cb function, const void *data) {
  {
    Uncounted uncounted;
    g_handlers.push_back({type, function, data});
  }
  return Next<decltype(ecore_event_handler_add)>("ecore_event_handler_add")(type, function, data);
}

void ecore_main_loop_thread_safe_call_async(Ecore_Cb callback, void *data) {
  ++g_wake_ups;
  Next<decltype(ecore_main_loop_thread_safe_call_async)>("ecore_main_loop_thread_safe_call_async")(callback, data);
}

} // extern "C"
