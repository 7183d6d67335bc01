// Reports mistakes in the use of the library when they are made, with advice on what to do.
#pragma once

#include <string>

namespace lumio::trace {

struct Mistake {
  const char *function; // the called function
  std::string argument; // the argument's name; empty if the call as a whole is the mistake
  std::string value;    // the argument's value
  std::string module;   // domain or module; empty if not known
  std::string advice;   // what is wrong and what to do
};

// Prints the mistake with the function at `caller`, then ends the process if the user asked for that. A mistake that is
// repeated at the same place is only counted.
void Report(const Mistake &mistake, const void *caller);

// Check the rules that most functions share. Each returns whether the call keeps the rule.
bool CheckEina(const char *function, const void *caller);
bool CheckEcore(const char *function, const void *caller);
bool CheckMainLoop(const char *function, const std::string &module, const void *caller);

std::string Pointer(const void *pointer);
std::string Quoted(const char *text);

} // namespace lumio::trace
