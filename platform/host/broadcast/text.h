// Text of service information, in one of the character tables of EN 300 468.
#pragma once

#include <string>

#include "bytes.h"

namespace lumio::broadcast {

// The text in UTF-8. Line breaks become '\n', other control codes vanish. U+FFFD stands for a byte that is no
// character, and for the whole text when its table is reserved or not known here.
std::string DecodeText(Bytes text);

// Valid UTF-8 whatever `text` is, with U+FFFD in the place of each wrong byte.
std::string ValidUtf8(const std::string &text);

} // namespace lumio::broadcast
