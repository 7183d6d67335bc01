// What the modules have subscribed to at the TV service.
#pragma once

#include <string>

#include "rooms.h"
#include "text.h"

namespace lumio::trace {

enum class TvKind { kSignal, kProgram, kSection, kPes, kCaption, kDsm };
constexpr int kTvKinds = 6;

// "signal"
const char *NameOf(TvKind kind);

void NoteSubscription(TvKind kind, const std::string &module, const std::string &what, int handle);
// One subscription of the module to this; false when there is none.
bool EndSubscription(TvKind kind, const std::string &module, const std::string &what);
// The subscription with this handle, when `ended`. Returns `ended`.
bool EndIf(bool ended, TvKind kind, int handle);
void EndAllSubscriptions();

// The module that holds a handle; empty when nobody does.
std::string OwnerOf(TvKind kind, int handle);

// The service refused a stream that all modules share; for as long as nobody has unsubscribed.
void NoteRefusal(TvKind kind);
bool WasRefused(TvKind kind);

// The callback that the library has filed under this name by way of another object, or before this one was set; empty
// when it is this one. Files it when there is none.
std::string OtherCallback(const std::string &module, const char *stream, const void *object, const void *callback);

// Whether the library has filed a callback under this name.
bool HasCallback(const std::string &module, const char *stream);

// To be called when Ecore goes: notifications that come later crash.
void CheckSubscriptionsEnded(const void *caller);

// With the lock held, or in a signal handler while nobody holds it.
void PrintSubscriptions(Text &text);

} // namespace lumio::trace
