// Text from outside, which may be no text at all.
#pragma once

#include <string>

// The text with a blank for each line end and tabulator, and U+FFFD for each byte and character that is not for people:
// what is no UTF-8, and what would steer a terminal.
std::string Printable(const std::string &text);

// Whether Printable would change nothing but line ends and tabulators.
bool IsText(const std::string &text);
