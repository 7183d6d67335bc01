// Mistakes in the use of the library: each is told when it is made, with what to do about it.
#pragma once

#include <string>

namespace lumio::trace {

struct Mistake {
  const char *function; // that was called
  std::string argument; // its name; empty when the call as a whole is the mistake
  std::string value;    // of the argument
  std::string module;   // domain or module; empty when not known
  std::string advice;   // what is wrong and what to do
};

// Prints the mistake with the function at `caller`; ends the process after it when that was asked for. A mistake that
// is made again at the same place is only counted.
void Report(const Mistake &mistake, const void *caller);

// The rules that most functions share. Each returns whether it was kept.
bool CheckEina(const char *function, const void *caller);
bool CheckEcore(const char *function, const void *caller);
bool CheckMainLoop(const char *function, const std::string &module, const void *caller);

// How many mistakes were reported so far.
int Mistakes();

std::string Pointer(const void *pointer);
std::string Quoted(const char *text);

} // namespace lumio::trace
