#include "text.h"

#include <Eina.h>

namespace {

constexpr char kReplacement[] = "\xef\xbf\xbd";

bool IsWhite(Eina_Unicode character) { return character == '\n' || character == '\r' || character == '\t'; }

// Control characters of both sets, those that change the direction of writing, and surrogates, which also stand for
// bytes that are not UTF-8.
bool IsForPeople(Eina_Unicode character) {
  return character >= 0x20 && !(character >= 0x7f && character < 0xa0) &&
         !(character >= 0x2028 && character <= 0x202e) && !(character >= 0x2066 && character <= 0x2069) &&
         !(character >= 0xd800 && character < 0xe000);
}

// Calls `each` with every character and the bytes that it is made of.
template <class Function> void ForEachCharacter(const std::string &text, Function each) {
  const int size = static_cast<int>(text.size());
  for (int at = 0; at < size;) {
    const int start = at;
    const Eina_Unicode character = eina_unicode_utf8_next_get(text.c_str(), &at);
    at = at > start ? at : start + 1; // Eina stops at a zero
    each(character, text.substr(static_cast<size_t>(start), static_cast<size_t>(at - start)));
  }
}

} // namespace

std::string Printable(const std::string &text) {
  std::string printable;
  ForEachCharacter(text, [&](Eina_Unicode character, const std::string &bytes) {
    printable += IsWhite(character) ? " " : IsForPeople(character) ? bytes : kReplacement;
  });
  return printable;
}

std::string Squeezed(const std::string &text) {
  std::string squeezed;
  for (const char letter : text) {
    if (letter != ' ' || (!squeezed.empty() && squeezed.back() != ' ')) {
      squeezed += letter;
    }
  }
  return squeezed.substr(0, squeezed.find_last_not_of(' ') + 1);
}

bool IsText(const std::string &text) {
  bool is_text = true;
  ForEachCharacter(text, [&](Eina_Unicode character, const std::string &) {
    is_text = is_text && (IsWhite(character) || IsForPeople(character));
  });
  return is_text;
}
