#include "teletext.h"

#include <algorithm>

namespace lumio::broadcast {

namespace {

constexpr std::uint8_t kFirstDataIdentifier = 0x10; // of EBU data
constexpr std::uint8_t kLastDataIdentifier = 0x1f;
constexpr std::uint8_t kTeletextUnit = 0x02;
constexpr std::uint8_t kSubtitleUnit = 0x03;
constexpr std::size_t kUnitSize = 44; // field and line, framing code, line
constexpr int kLastRow = 28;          // later rows do not belong to a single page
constexpr int kFiller = 0xff;         // ends the page before it and has no content
constexpr std::size_t kMostPages = 64;
constexpr int kRows = 25;

// A number in two bytes with error protection; -1 if it is damaged. The library's function shifts negative values.
int Unhamm(const std::uint8_t *bytes) {
  const int low = vbi_unham8(bytes[0]);
  const int high = vbi_unham8(bytes[1]);
  return low < 0 || high < 0 ? -1 : low | high << 4;
}

} // namespace

TeletextDecoder::TeletextDecoder(std::uint16_t pid, const std::vector<TeletextPage> &pages, TellCaption tell, Form form)
    : pid_(pid), tell_(std::move(tell)), form_(form) {
  for (const TeletextPage &page : pages) {
    languages_.emplace(page.page, page.language);
  }
  MakeDecoder();
}

void TeletextDecoder::MakeDecoder() {
  decoder_.reset(vbi_decoder_new());
  stored_pages_.clear();
  if (decoder_) {
    vbi_teletext_set_level(decoder_.get(), VBI_WST_LEVEL_1p5);
    vbi_event_handler_register(decoder_.get(), VBI_EVENT_TTX_PAGE, OnEvent, this);
  }
}

void TeletextDecoder::Push(const PesPacket &packet) {
  Bytes rest = packet.payload;
  if (rest.empty() || rest[0] < kFirstDataIdentifier || rest[0] > kLastDataIdentifier) {
    return;
  }
  rest = rest.From(1);
  while (rest.size() >= 2) {
    const std::uint8_t unit = rest[0];
    const std::size_t size = rest[1];
    rest = rest.From(2);
    const Bytes content = rest.First(size);
    rest = rest.From(size);
    if ((unit == kTeletextUnit || unit == kSubtitleUnit) && content.size() == kUnitSize) {
      Line line;
      std::transform(content.begin() + 2, content.end(), line.begin(),
                     [](std::uint8_t byte) { return static_cast<std::uint8_t>(vbi_rev8(byte)); });
      PushLine(line, packet.pts);
    }
  }
  if (stored_pages_.size() > kMostPages) {
    MakeDecoder(); // no broadcaster uses as many subpages
  }
}

// Passes on only the lines of our pages, so that nothing else is stored.
void TeletextDecoder::PushLine(Line line, std::uint64_t pts) {
  const int address = Unhamm(line.data());
  if (address < 0) {
    return;
  }
  const int magazine = address & 7;
  const int row = address >> 3;
  if (row > 0) {
    if (is_wanted_[magazine] && row <= kLastRow) {
      Decode(line);
    }
    return;
  }
  const int number = Unhamm(&line[2]);
  if (number < 0) {
    return;
  }
  const int page = (magazine == 0 ? 8 : magazine) << 8 | number;
  is_wanted_[magazine] = languages_.count(page) != 0;
  if (!is_wanted_[magazine]) {
    line[2] = line[3] = static_cast<std::uint8_t>(vbi_ham8(kFiller & 0xf));
  }
  Decode(line);
  if (is_wanted_[magazine]) {
    times_[page] = pts;
  }
}

void TeletextDecoder::Decode(const Line &line) {
  if (!decoder_) {
    return;
  }
  vbi_sliced sliced{};
  sliced.id = VBI_SLICED_TELETEXT_B;
  sliced.line = 7; // any line of the first field
  std::copy(line.begin(), line.end(), sliced.data);
  vbi_decode(decoder_.get(), &sliced, 1, 0.0); // without times the decoder sees no gaps
}

void TeletextDecoder::OnEvent(vbi_event *event, void *data) {
  static_cast<TeletextDecoder *>(data)->OnPage(event->ev.ttx_page.pgno, event->ev.ttx_page.subno);
}

void TeletextDecoder::OnPage(int page, int subpage) {
  const auto language = languages_.find(page);
  vbi_page shown;
  if (language == languages_.end() ||
      !vbi_fetch_vt_page(decoder_.get(), &shown, page, subpage, VBI_WST_LEVEL_1p5, kRows, /*navigation=*/0)) {
    return;
  }
  stored_pages_.insert({page, subpage});
  const auto time = times_.find(page);
  const Caption caption{pid_, CaptionKind::kTeletext, language->second, time == times_.end() ? kNoTime : time->second,
                        form_ == Form::kCaption ? TextOfRows(shown, 1, kRows - 1) : TextOfPage(shown, 1, kRows - 1)};
  vbi_unref_page(&shown);
  tell_(caption);
}

void TeletextDecoder::End() {
  for (int magazine = 0; magazine < 8; ++magazine) {
    Line line;
    line.fill(static_cast<std::uint8_t>(vbi_par8(' ')));
    line[0] = static_cast<std::uint8_t>(vbi_ham8(static_cast<unsigned>(magazine)));
    line[1] = static_cast<std::uint8_t>(vbi_ham8(0));
    line[2] = line[3] = static_cast<std::uint8_t>(vbi_ham8(kFiller & 0xf));
    std::fill(&line[4], &line[10], static_cast<std::uint8_t>(vbi_ham8(0)));
    Decode(line);
    is_wanted_[static_cast<std::size_t>(magazine)] = false;
  }
}

} // namespace lumio::broadcast
