// What the files that wrap one subsystem each offer to the others.
#pragma once

#include <Ecore.h>

#include <functional>
#include <string>

#include "symbols.h"
#include "text.h"

namespace lumio::trace {

// Receives a registered callback: its kind, its module, its name at the registration, and its address.
using CallbackVisitor =
    std::function<void(const char *what, const std::string &module, const Symbol &symbol, const void *address)>;

// Call these with the lock held.
void VisitKeyCallbacks(const CallbackVisitor &visit);
void VisitBannerCallbacks(const CallbackVisitor &visit);
void VisitPvrCallbacks(const CallbackVisitor &visit);
void VisitStateCallbacks(const CallbackVisitor &visit);
void VisitTvCallbacks(const CallbackVisitor &visit);

// Call these with the lock held, or in a signal handler while nobody holds it. They allocate nothing.
void PrintKeyState(Text &text);
void PrintBannerState(Text &text);
void PrintPvrState(Text &text);
void PrintStateState(Text &text);
void PrintTvState(Text &text);

// The library calls this to install its Ecore handlers.
Ecore_Event_Handler *AddEventHandler(int type, Ecore_Event_Handler_Cb callback, const void *data, const void *caller);
// Tells the library that the main loop is idle.
void TellLibraryIdle();
// Call it when the library has asked the last handler about the current key.
void NoteWalkEnded();

} // namespace lumio::trace
