// Finds which function of which object an address belongs to.
#pragma once

#include <string>

namespace lumio::trace {

struct Symbol {
  std::string name;           // "Guide::OnPress", or "libguide.so+0x12a0" if the object has no name for it
  std::string object;         // the file's name, "libguide.so"
  const void *base = nullptr; // where the object is loaded; null if the address is in none
};

Symbol SymbolOf(const void *address);

template <class Result, class... Arguments> Symbol SymbolOf(Result (*function)(Arguments...)) {
  return SymbolOf(reinterpret_cast<const void *>(function));
}

// "Guide::OnPress (libguide.so)"
std::string Describe(const Symbol &symbol);

// Returns whether the address belongs to liblumio-kevent.
bool IsInLibrary(const void *address);

} // namespace lumio::trace
