// Pages of a teletext stream.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "caption.h"
#include "pes_assembler.h"
#include "tables.h"
#include "vbi_text.h"

namespace lumio::broadcast {

class TeletextDecoder {
public:
  // What is told of a page: a caption, or all its rows below the header as they stand, each ended by '\n'.
  enum class Form { kCaption, kWholePage };

  TeletextDecoder(std::uint16_t pid, const std::vector<TeletextPage> &pages, TellCaption tell,
                  Form form = Form::kCaption);
  TeletextDecoder(const TeletextDecoder &) = delete;
  TeletextDecoder &operator=(const TeletextDecoder &) = delete;

  // Delivers each page that this packet completes. As on a television, a page is complete when the next one begins.
  void Push(const PesPacket &packet);
  // Call it when the stream ends: the last pages are then complete.
  void End();

private:
  static constexpr std::size_t kLineSize = 42; // bytes of a line after its framing code
  using Line = std::array<std::uint8_t, kLineSize>;

  void MakeDecoder();
  void PushLine(Line line, std::uint64_t pts);
  void Decode(const Line &line);
  static void OnEvent(vbi_event *event, void *data);
  void OnPage(int page, int subpage);

  const std::uint16_t pid_;
  const TellCaption tell_;
  const Form form_;
  std::map<int, int> languages_;               // by page
  std::map<int, std::uint64_t> times_;         // when the page last began
  std::array<bool, 8> is_wanted_{};            // whether a magazine's current page is one of ours
  std::set<std::pair<int, int>> stored_pages_; // what the decoder keeps
  VbiDecoder decoder_;
};

} // namespace lumio::broadcast
