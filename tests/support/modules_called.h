// Tells which modules were called, from the calls that a suite records.
#pragma once

#include <string>
#include <vector>

// Returns the letters of the modules that were called, in order. A `Call` records one call and has a member `module`.
template <class Call> std::string ModulesCalled(const std::vector<Call> &calls) {
  std::string modules;
  for (const Call &call : calls) {
    modules += call.module;
  }
  return modules;
}
