// Records what is posted to the Ecore main loop and passes it on. Ecore crashes without memory for an event, so the
// allocations of ecore_event_add never fail (see fake_memory.h).
#pragma once

#include <Ecore.h>

#include <functional>
#include <vector>

struct EcorePost {
  int type;
  const void *event; // the loop frees it after its handler has run
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

// Makes the next call of ecore_event_add fail.
void RefuseNextPost();

// Runs `call` once, in the next call of ecore_event_add, after the event is posted.
void DuringNextPost(std::function<void()> call);

// Clears all records.
void ClearEcorePosts();
