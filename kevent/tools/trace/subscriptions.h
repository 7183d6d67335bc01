// Records what the modules have subscribed to at the TV service.
#pragma once

#include <string>

#include "rooms.h"
#include "text.h"

namespace lumio::trace {

enum class TvKind { kSignal, kProgram, kSection, kPes, kCaption, kDsm };
constexpr int kTvKinds = 6;

// "signal"
const char *NameOf(TvKind kind);

// Stands for a call in which the service gives a handle. Until its end, other threads wait in the functions that name a
// handle: the service may send the first notification before the subscription is noted.
class Subscribing {
public:
  Subscribing();
  ~Subscribing();
  Subscribing(const Subscribing &) = delete;
  Subscribing &operator=(const Subscribing &) = delete;
};

void NoteSubscription(TvKind kind, const std::string &module, const std::string &what, int handle, int stream = -1);
// Removes one subscription of the module to this; returns false if there is none.
bool EndSubscription(TvKind kind, const std::string &module, const std::string &what);
// Removes the subscription with this handle if `ended`. Returns `ended`.
bool EndIf(bool ended, TvKind kind, int handle);
void EndAllSubscriptions();

// Returns the module that holds a handle; empty if none does.
std::string OwnerOf(TvKind kind, int handle);

// A subscription as a recording names it: the module and the number of its subscription of this kind, counted from 0.
// For sections, which the service identifies by their stream, the number is the stream.
struct SubscriptionName {
  std::string module;
  int number = -1;
};
SubscriptionName NameOfHandle(TvKind kind, int handle);
SubscriptionName NameOfSection(int key);
// Returns the handle that has this name now; negative if there is none.
int HandleOf(TvKind kind, const SubscriptionName &name);

// Returns whether the service refused a stream that all modules share. True until all have unsubscribed.
void NoteRefusal(TvKind kind);
bool WasRefused(TvKind kind);

// Returns the callback that the library already has under this name, from another object or from before this one was
// set; empty if it is this one. Records this one if there is none.
std::string OtherCallback(const std::string &module, const char *stream, const void *object, const void *callback);

// Returns whether the library has a callback under this name.
bool HasCallback(const std::string &module, const char *stream);

// Call it when Ecore shuts down: notifications that arrive later crash.
void CheckSubscriptionsEnded(const void *caller);

// Call it with the lock held, or in a signal handler while nobody holds it.
void PrintSubscriptions(Text &text);

} // namespace lumio::trace
