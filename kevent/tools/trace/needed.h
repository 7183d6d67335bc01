// Reads which libraries a program is linked with.
#pragma once

#include <string>
#include <vector>

namespace lumio::trace {

// Returns the libraries that an ELF file needs; none if it is another kind of file.
std::vector<std::string> NeededLibraries(const std::string &file);

} // namespace lumio::trace
