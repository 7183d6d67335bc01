#include "vbi_text.h"

namespace lumio::broadcast {

namespace {

constexpr unsigned kFirstPrivate = 0xe000; // mosaics and characters that a stream defines
constexpr unsigned kLastPrivate = 0xf8ff;

bool IsShown(const vbi_char &character) {
  // The other sizes are the lower and right parts of a large character.
  const bool begins = character.size <= VBI_DOUBLE_SIZE;
  const bool is_letter = character.unicode > ' ' && (character.unicode < 0x7f || character.unicode > 0xa0) &&
                         (character.unicode < kFirstPrivate || character.unicode > kLastPrivate);
  return begins && is_letter && character.opacity != VBI_TRANSPARENT_SPACE && !character.conceal;
}

bool IsRightPart(const vbi_char &character) {
  return character.size == VBI_OVER_TOP || character.size == VBI_OVER_BOTTOM;
}

void AppendUtf8(std::string &text, unsigned character) { // of the basic plane
  if (character < 0x80) {
    text += static_cast<char>(character);
  } else if (character < 0x800) {
    text += static_cast<char>(0xc0 | character >> 6);
    text += static_cast<char>(0x80 | (character & 0x3f));
  } else {
    text += static_cast<char>(0xe0 | (character >> 12 & 0xf));
    text += static_cast<char>(0x80 | (character >> 6 & 0x3f));
    text += static_cast<char>(0x80 | (character & 0x3f));
  }
}

} // namespace

std::string TextOfRow(const vbi_page &page, int row, bool indented) {
  std::string text;
  std::size_t end = 0; // of the last letter
  for (int column = 0; column < page.columns; ++column) {
    const vbi_char &character = page.text[row * page.columns + column];
    if (IsShown(character)) {
      AppendUtf8(text, character.unicode);
      end = text.size();
    } else if ((indented || !text.empty()) && !IsRightPart(character)) {
      text += ' ';
    }
  }
  return text.substr(0, end);
}

std::string TextOfRows(const vbi_page &page, int first, int last) {
  std::string text;
  for (int row = first; row <= last && row < page.rows; ++row) {
    const std::string line = TextOfRow(page, row);
    text += (text.empty() || line.empty() ? "" : "\n") + line;
  }
  return text;
}

std::string TextOfPage(const vbi_page &page, int first, int last) {
  std::string text;
  for (int row = first; row <= last && row < page.rows; ++row) {
    text += TextOfRow(page, row, true) + "\n";
  }
  return text;
}

} // namespace lumio::broadcast
