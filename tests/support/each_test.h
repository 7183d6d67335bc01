// Runs each test of a suite in a process of its own, because the library keeps process-wide state.
#pragma once

#include <optional>

// Starts a process for each test that the command line selects, one after the other, and prints its name, and what it
// writes if it fails or is skipped. A fork starts ten times as fast as a program, which loads its libraries first.
//
// Returns nothing in those processes, where the caller runs the test, and nothing if the command line names one test or
// only lists tests. Otherwise returns the exit status for the whole suite. Call it after testing::InitGoogleMock and
// before anything that a fork does not inherit, such as threads.
std::optional<int> ForkEachTest();
