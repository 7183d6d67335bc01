// Reads the names in an object's file that the dynamic linker does not see: those of static functions and of programs.
#pragma once

#include <cstdint>
#include <string>

namespace lumio::trace {

// Returns the name of the function at an address, counted from where the object is loaded; empty if the file has none.
std::string NameInFile(const char *file, std::uintptr_t address);

} // namespace lumio::trace
