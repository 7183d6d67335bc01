// Writes captions into line 21 (CEA-608), two bytes of each field per picture.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace lumio::sample {

// What waits to be sent in one field of line 21.
class Line21Writer {
public:
  // `field` is 0 or 1.
  explicit Line21Writer(int field) : field_(field) {}

  // Loads a caption of up to 32 characters off screen, and shows it at once.
  void PopOn(const std::string &text);
  // Adds a row of up to 32 characters at the bottom, and moves the rows before it up.
  void RollUp(const std::string &text);
  // Clears the screen.
  void Erase();

  // Appends what goes with the next picture to A/53 caption data.
  void Take(std::vector<std::uint8_t> *caption_data);

private:
  void Control(std::uint8_t code);
  void Pair(std::uint8_t first, std::uint8_t second) { pairs_.emplace_back(first, second); }
  void Twice(std::uint8_t first, std::uint8_t second);
  void Text(const std::string &text);

  const int field_;
  std::deque<std::pair<std::uint8_t, std::uint8_t>> pairs_;
};

} // namespace lumio::sample
