// Runs each test of a suite in a process of its own, because the library keeps process-wide state.
#pragma once

#include <optional>

// Forks a process for each test that the command line selects, one after the other. Prints the name of each test, and
// the output of those that fail or are skipped. A fork takes a tenth of the time of a new program, which would load its
// libraries first.
//
// Returns no value in the forked processes, where the caller runs the test. Also returns no value if the command line
// names one test or only lists tests. Otherwise returns the exit status for the whole suite. Call it after
// testing::InitGoogleMock, and before you create anything that a fork does not inherit, such as threads.
std::optional<int> ForkEachTest();
