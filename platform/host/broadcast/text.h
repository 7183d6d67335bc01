// Text of service information, in one of the character tables of EN 300 468.
#pragma once

#include <string>

#include "bytes.h"

namespace lumio::broadcast {

// The text in UTF-8. Line breaks become '\n', other control codes are removed. U+FFFD replaces a byte that is not
// a character, and the whole text if its table is reserved or not supported.
std::string DecodeText(Bytes text);

// Returns valid UTF-8 for any `text`, with U+FFFD in place of each wrong byte.
std::string ValidUtf8(const std::string &text);

} // namespace lumio::broadcast
