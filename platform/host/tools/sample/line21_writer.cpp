#include "line21_writer.h"

namespace lumio::sample {
namespace {

enum ControlCode : std::uint8_t {
  kResumeCaptionLoading = 0x20,
  kRollUp2Rows = 0x25,
  kEraseDisplayed = 0x2c,
  kCarriageReturn = 0x2d,
  kEraseNonDisplayed = 0x2e,
  kEndOfCaption = 0x2f,
};

constexpr std::uint8_t kBottomRow[] = {0x14, 0x70}; // the address of row 15, white text
constexpr std::uint8_t kValid = 0xfc;               // the type byte of a pair that counts, for field 0

std::uint8_t WithOddParity(std::uint8_t byte) {
  return static_cast<std::uint8_t>(byte | (__builtin_parity(byte) ? 0 : 0x80));
}

} // namespace

// Receivers expect control codes twice, so that a lost one does no harm.
void Line21Writer::Twice(std::uint8_t first, std::uint8_t second) {
  Pair(first, second);
  Pair(first, second);
}

void Line21Writer::Control(std::uint8_t code) { Twice(static_cast<std::uint8_t>(0x14 + field_), code); }

void Line21Writer::Text(const std::string &text) {
  for (size_t i = 0; i < text.size(); i += 2) {
    Pair(static_cast<std::uint8_t>(text[i]), i + 1 < text.size() ? static_cast<std::uint8_t>(text[i + 1]) : 0);
  }
}

void Line21Writer::PopOn(const std::string &text) {
  Control(kResumeCaptionLoading);
  Control(kEraseNonDisplayed);
  Twice(kBottomRow[0], kBottomRow[1]);
  Text(text);
  Control(kEndOfCaption);
}

void Line21Writer::RollUp(const std::string &text) {
  Control(kRollUp2Rows);
  Control(kCarriageReturn);
  Twice(kBottomRow[0], kBottomRow[1]);
  Text(text);
}

void Line21Writer::Erase() { Control(kEraseDisplayed); }

void Line21Writer::Take(std::vector<std::uint8_t> *caption_data) {
  std::pair<std::uint8_t, std::uint8_t> pair(0, 0); // nothing to send
  if (!pairs_.empty()) {
    pair = pairs_.front();
    pairs_.pop_front();
  }
  caption_data->push_back(static_cast<std::uint8_t>(kValid | field_));
  caption_data->push_back(WithOddParity(pair.first));
  caption_data->push_back(WithOddParity(pair.second));
}

} // namespace lumio::sample
