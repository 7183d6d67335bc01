#pragma once

#include <string>

// Returns the file of the theme: beside the program in the build folder, otherwise in its installed data.
std::string FindTheme();
