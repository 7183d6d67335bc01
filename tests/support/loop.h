// Turns the Ecore main loop from a test.
#pragma once

#include <functional>

// Handles pending events and idle enterers, without waiting.
void TurnLoop();

// Turns the loop until `done` holds. The time limit of the suite ends a test in which it never does.
void TurnLoopUntil(const std::function<bool()> &done);

// Turns the loop until it has handled everything that this thread, and threads that have ended, have sent to it.
void HandleAll();
