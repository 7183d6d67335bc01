// A caption as it is displayed.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace lumio::broadcast {

enum class CaptionKind { kTeletext, kCea608 };

constexpr int kUndeterminedLanguage = 'u' << 16 | 'n' << 8 | 'd';

struct Caption {
  std::uint16_t pid;
  CaptionKind kind;
  int language;      // three letters, the last one lowest
  std::uint64_t pts; // as in the stream; kNoTime if there is none
  std::string text;  // UTF-8, its rows trimmed and joined by '\n'; empty if the captions disappear
};

using TellCaption = std::function<void(const Caption &)>;

} // namespace lumio::broadcast
