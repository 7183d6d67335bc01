// Turning the Ecore main loop from a test.
#pragma once

#include <functional>

// Handles what is pending, idle enterers included, without waiting.
void TurnLoop();

// Turns the loop until `done` holds; fails the test when that takes longer than the test may run.
void TurnLoopUntil(const std::function<bool()> &done);

// Turns the loop until everything that threads which have ended, and this one, have sent to it so far was handled.
void HandleAll();
