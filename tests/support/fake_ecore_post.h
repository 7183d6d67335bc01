// Watches what is posted to the Ecore main loop, and lets it through. Ecore crashes when it has no memory for an event,
// so what ecore_event_add allocates never fails (see fake_memory.h).
#pragma once

#include <Ecore.h>

#include <functional>
#include <vector>

struct EcorePost {
  int type;
  const void *event; // released by the loop after its handler ran
  Ecore_End_Cb free_function;
  const void *free_data;
};

// The calls of ecore_event_add so far.
std::vector<EcorePost> EcorePosts();

struct EcoreHandler {
  int type;
  Ecore_Event_Handler_Cb function;
  const void *data;
};

// The calls of ecore_event_handler_add since `ClearEcorePosts`.
std::vector<EcoreHandler> EcoreHandlers();

// The calls of ecore_main_loop_thread_safe_call_async so far.
int WakeUps();

// Lets the next call of ecore_event_add fail.
void RefuseNextPost();

// Runs `call` once, in the next call of ecore_event_add, after the event was posted.
void DuringNextPost(std::function<void()> call);

// Forgets all calls so far.
void ClearEcorePosts();
