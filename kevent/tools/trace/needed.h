// What a program is linked with.
#pragma once

#include <string>
#include <vector>

namespace lumio::trace {

// The libraries that an ELF file names; none for a file of another kind.
std::vector<std::string> NeededLibraries(const std::string &file);

} // namespace lumio::trace
