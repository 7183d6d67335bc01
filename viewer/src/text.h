// Text from outside, which may not be text at all.
#pragma once

#include <string>

// Returns the text with a blank for each line end and tabulator, and U+FFFD for each byte that is not UTF-8 and each
// character that would control a terminal.
std::string Printable(const std::string &text);

// Whether Printable would change nothing but line ends and tabulators.
bool IsText(const std::string &text);
// Without spaces at either end, and with one where there are several.
std::string Squeezed(const std::string &text);
