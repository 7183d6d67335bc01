#pragma once

#include <string>

// The file of the theme: beside the program, where it is built, or else among its data, where it is installed.
std::string FindTheme();
