// What the files that stand before one subsystem each tell the others.
#pragma once

#include <Ecore.h>

#include <functional>
#include <string>

#include "symbols.h"
#include "text.h"

namespace lumio::trace {

// A callback that is registered: what it is, of which module, its name when it was registered, and where it is.
using CallbackVisitor =
    std::function<void(const char *what, const std::string &module, const Symbol &symbol, const void *address)>;

// All with the lock held.
void VisitKeyCallbacks(const CallbackVisitor &visit);
void VisitBannerCallbacks(const CallbackVisitor &visit);
void VisitPvrCallbacks(const CallbackVisitor &visit);
void VisitStateCallbacks(const CallbackVisitor &visit);
void VisitTvCallbacks(const CallbackVisitor &visit);

// With the lock held, or in a signal handler while nobody holds it. Without allocation.
void PrintKeyState(Text &text);
void PrintBannerState(Text &text);
void PrintPvrState(Text &text);
void PrintStateState(Text &text);
void PrintTvState(Text &text);

// The library installs its Ecore handlers through this.
Ecore_Event_Handler *AddEventHandler(int type, Ecore_Event_Handler_Cb callback, const void *data, const void *caller);
// The library has asked all handlers that it asks of the current key.
void NoteWalkEnded();

} // namespace lumio::trace
