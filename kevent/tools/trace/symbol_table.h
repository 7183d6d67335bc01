// The names in an object's file that the dynamic linker does not see: those of static functions, and of programs.
#pragma once

#include <cstdint>
#include <string>

namespace lumio::trace {

// Name of the function at an address, counted from where the object is loaded; empty when the file tells none.
std::string NameInFile(const char *file, std::uintptr_t address);

} // namespace lumio::trace
