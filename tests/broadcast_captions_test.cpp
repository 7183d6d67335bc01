// Subtitles and captions, as they are displayed.
#include <gmock/gmock.h>

#include <malloc.h>

#include "line21.h"
#include "teletext.h"
#include "transport_stream.h"

using namespace lumio::broadcast;
using testing::ElementsAre;
using testing::IsEmpty;
using ts::operator+;

namespace {

constexpr int kEng = 'e' << 16 | 'n' << 8 | 'g';
constexpr int kDeu = 'd' << 16 | 'e' << 8 | 'u';

std::string LanguageOf(const Caption &caption) {
  return {static_cast<char>(caption.language >> 16), static_cast<char>(caption.language >> 8),
          static_cast<char>(caption.language)};
}

class Captions : public testing::Test {
protected:
  TellCaption Telling() {
    return [this](const Caption &caption) {
      told.push_back(LanguageOf(caption) + " " + std::to_string(caption.pts) + " " + caption.text);
    };
  }

  std::vector<std::string> told;
};

class Teletext : public Captions {
protected:
  void Push(std::uint64_t pts, const std::vector<ts::Bytes> &lines) {
    const ts::Bytes payload = ts::TeletextPayload(lines);
    decoder.Push({0x100, 0xbd, pts, pts, Bytes(payload)});
  }

  TeletextDecoder decoder{0x100, {{kDeu, 0x888}, {kEng, 0x150}}, Telling()};
};

} // namespace

TEST_F(Teletext, PagesAreToldWhenTheNextOneBegins) {
  Push(1, {ts::TeletextHeader(0x888), ts::TeletextRow(0x888, 20, "  eins "), ts::TeletextRow(0x888, 21, ""),
           ts::TeletextRow(0x888, 23, "zwei  drei")});
  EXPECT_THAT(told, IsEmpty());
  Push(2, {ts::TeletextHeader(0x8ff)});
  EXPECT_THAT(told, ElementsAre("deu 1 eins\nzwei  drei"));
}

TEST_F(Teletext, ErasuresAreEmptyTexts) {
  Push(1, {ts::TeletextHeader(0x888), ts::TeletextRow(0x888, 20, "Text"), ts::TeletextHeader(0x8ff)});
  Push(2, {ts::TeletextHeader(0x888), ts::TeletextHeader(0x8ff)});
  EXPECT_THAT(told, ElementsAre("deu 1 Text", "deu 2 "));
}

TEST_F(Teletext, LanguagesAreThoseOfTheirPages) {
  Push(1, {ts::TeletextHeader(0x888), ts::TeletextRow(0x888, 20, "Ja"), ts::TeletextHeader(0x150),
           ts::TeletextRow(0x150, 20, "Yes"), ts::TeletextHeader(0x8ff), ts::TeletextHeader(0x1ff)});
  EXPECT_THAT(told, ElementsAre("deu 1 Ja", "eng 1 Yes"));
}

TEST_F(Teletext, FewPagesAreKept) {
  constexpr unsigned kPages = 50, kSubpages = 79; // each of them would take a kilobyte
  std::vector<TeletextPage> pages;
  for (unsigned page = 0; page < kPages; ++page) {
    pages.push_back({kDeu, static_cast<int>(0x800 | page / 10 << 4 | page % 10)});
  }
  TeletextDecoder other(0x100, pages, Telling());
  const std::size_t before = mallinfo2().uordblks; // always zero where a sanitizer allocates
  for (unsigned subpage = 0; subpage < kSubpages; ++subpage) {
    for (const TeletextPage &page : pages) {
      const auto number = static_cast<unsigned>(page.page);
      const ts::Bytes payload = ts::TeletextPayload(
          {ts::TeletextHeader(number, true, true, subpage / 10 << 4 | subpage % 10), ts::TeletextRow(number, 20, "A")});
      other.Push({0x100, 0xbd, 0, 0, Bytes(payload)});
    }
    told.clear();
  }
  EXPECT_LT(mallinfo2().uordblks, before + (1 << 20));
}

TEST_F(Teletext, OtherPagesAreNotTold) {
  Push(1, {ts::TeletextHeader(0x100), ts::TeletextRow(0x100, 20, "Index"), ts::TeletextHeader(0x1ff)});
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(Teletext, OnlyWhatIsBoxedIsShown) {
  Push(1, {ts::TeletextHeader(0x888), ts::TeletextRow(0x888, 20, "hidden", false), ts::TeletextRow(0x888, 22, "shown"),
           ts::TeletextHeader(0x8ff)});
  EXPECT_THAT(told, ElementsAre("deu 1 shown"));
}

TEST_F(Teletext, TheLastPageIsToldAtTheEnd) {
  Push(1, {ts::TeletextHeader(0x888), ts::TeletextRow(0x888, 20, "Ende")});
  decoder.End();
  EXPECT_THAT(told, ElementsAre("deu 1 Ende"));
}

TEST_F(Teletext, DamagedLinesAreLeftOut) {
  ts::Bytes payload = ts::TeletextPayload({ts::TeletextHeader(0x888), ts::TeletextRow(0x888, 20, "a")});
  for (std::size_t size = 0; size < payload.size(); ++size) {
    decoder.Push({0x100, 0xbd, 0, 0, Bytes(payload).First(size)});
  }
  payload[0] = 0x77; // no EBU data
  decoder.Push({0x100, 0xbd, 0, 0, Bytes(payload)});
  payload[0] = 0x10;
  payload[5] = 0xff;
  decoder.Push({0x100, 0xbd, 0, 0, Bytes(payload)});
}

TEST_F(Teletext, ManySubpagesDoNotFillTheMemory) {
  for (unsigned i = 0; i < 5000; ++i) {
    std::vector<ts::Bytes> lines = {ts::TeletextHeader(0x888), ts::TeletextRow(0x888, 20, std::to_string(i)),
                                    ts::TeletextHeader(0x8ff)};
    static constexpr std::uint8_t kDigits[] = {0x15, 0x02, 0x49, 0x5e, 0x64, 0x73, 0x38, 0x2f};
    lines[0][4] = kDigits[i & 7];
    lines[0][6] = kDigits[i >> 3 & 7];
    Push(i, lines);
  }
  EXPECT_EQ(told.size(), 5000U);
}

namespace {

using Pairs = std::vector<ts::Pair>;

class Line21 : public Captions {
protected:
  // A picture with pairs every 3003 units of time, without reordering.
  void Push(const Pairs &pairs) {
    time_ += 3003;
    PushAt(time_, time_, pairs);
  }
  void PushAt(std::uint64_t pts, std::uint64_t dts, const Pairs &pairs) {
    const ts::Bytes payload = is_h264 ? ts::H264Picture(pairs) : ts::Mpeg2Picture(0, pairs);
    Decoder().Push({0x100, 0xe0, pts, dts, Bytes(payload)});
  }
  void PushText(const std::string &text, int field = 0) {
    for (std::size_t i = 0; i < text.size(); i += 2) {
      Push({{field, static_cast<unsigned char>(text[i]),
             i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0U}});
    }
  }
  void PushTwice(const ts::Pair &pair) {
    Push({pair});
    Push({pair});
  }
  const std::vector<std::string> &End() {
    Decoder().End();
    return told;
  }
  Line21Decoder &Decoder() {
    if (!decoder_) {
      const int languages[2] = {kEng, kDeu};
      decoder_ = std::make_unique<Line21Decoder>(0x100, is_h264, languages, Telling());
    }
    return *decoder_;
  }
  std::vector<std::string> Texts() {
    std::vector<std::string> texts;
    for (const std::string &one : End()) {
      texts.push_back(one.substr(0, 4) + one.substr(one.find(' ', 4) + 1));
    }
    return texts;
  }

  bool is_h264 = false;

private:
  std::uint64_t time_ = 0;
  std::unique_ptr<Line21Decoder> decoder_;
};

constexpr unsigned kResume = 0x20, kRollUp2 = 0x25, kPaint = 0x29, kErase = 0x2c, kReturn = 0x2d, kFlip = 0x2f;

} // namespace

TEST_F(Line21, PopOnTextIsToldWhenItIsFlipped) {
  PushTwice({0, 0x14, kResume});
  PushTwice({0, 0x13, 0x70}); // row 13? wherever
  PushText("TWO ROWS");
  PushTwice({0, 0x14, 0x70}); // the last row
  PushText("OF TEXT");
  PushTwice({0, 0x14, kFlip});
  PushTwice({0, 0x14, kErase});
  EXPECT_THAT(Texts(), ElementsAre("eng TWO ROWS\nOF TEXT", "eng "));
}

TEST_F(Line21, TimesAreThoseOfTheFlip) {
  PushAt(10, 10, {{0, 0x14, kResume}});
  PushAt(20, 20, {{0, 0x14, 0x70}});
  PushAt(30, 30, {{0, 'H', 'I'}});
  PushAt(40, 40, {{0, 0x14, kFlip}});
  EXPECT_THAT(End(), ElementsAre("eng 40 HI"));
}

TEST_F(Line21, RollUpRowsAreToldWhenTheyAreFinished) {
  PushTwice({0, 0x14, kRollUp2});
  PushTwice({0, 0x14, kReturn});
  PushTwice({0, 0x14, 0x70});
  PushText("FIRST ROW");
  PushTwice({0, 0x14, kReturn});
  PushText("SECOND");
  PushTwice({0, 0x14, kReturn});
  PushTwice({0, 0x14, kReturn});
  PushText("UNFINISHED");
  PushTwice({0, 0x14, kErase});
  EXPECT_THAT(Texts(), ElementsAre("eng FIRST ROW", "eng SECOND", "eng "));
}

TEST_F(Line21, PaintedTextIsToldWhenItIsComplete) {
  PushTwice({0, 0x14, kPaint});
  PushTwice({0, 0x14, 0x70});
  PushText("PAINTED");
  PushTwice({0, 0x14, kErase});
  EXPECT_THAT(Texts(), ElementsAre("eng PAINTED", "eng "));
}

TEST_F(Line21, TheSecondFieldHasItsOwnLanguageAndOtherData) {
  PushTwice({1, 0x15, kResume});
  PushTwice({1, 0x15, 0x70});
  Push({{1, 0x01, 0x03}, {0, 0x14, kResume}}); // other data begin
  Push({{1, 'X', 'Y'}});
  Push({{1, 0x0f, 0x1d}});
  PushTwice({1, 0x15, kResume});
  PushText("ZWEI", 1);
  PushTwice({1, 0x15, kFlip});
  EXPECT_THAT(Texts(), ElementsAre("deu ZWEI"));
}

TEST_F(Line21, H264CarriesItToo) {
  is_h264 = true;
  PushTwice({0, 0x14, kResume});
  PushTwice({0, 0x14, 0x70});
  PushText("H264");
  PushTwice({0, 0x14, kFlip});
  EXPECT_THAT(Texts(), ElementsAre("eng H264"));
}

TEST_F(Line21, PicturesAreSortedEvenWithoutTimesOfDecoding) {
  const std::vector<std::pair<int, ts::Pair>> order = {{4, {0, 'C', 'D'}}, {2, {0, 0x14, 0x70}}, {3, {0, 'A', 'B'}}};
  PushAt(1, 1, {{0, 0x14, kResume}});
  for (const auto &[pts, pair] : order) {
    PushAt(static_cast<std::uint64_t>(pts), static_cast<std::uint64_t>(pts), {pair});
  }
  PushAt(5, 5, {{0, 0x14, kFlip}});
  EXPECT_THAT(End(), ElementsAre("eng 5 ABCD"));
}

TEST_F(Line21, PicturesOfOnePacketAreSortedByTheirNumbers) {
  const ts::Bytes payload = ts::Mpeg2Picture(2, {{0, 0x14, kFlip}}) +
                            ts::Mpeg2Picture(0, {{0, 0x14, kResume}, {0, 0x14, 0x70}}) +
                            ts::Mpeg2Picture(1, {{0, 'O', 'K'}});
  Decoder().Push({0x100, 0xe0, 9009, 0, Bytes(payload)});
  EXPECT_THAT(End(), ElementsAre("eng 9009 OK"));
}

TEST_F(Line21, TimesMayWrapAround) {
  constexpr std::uint64_t kEnd = std::uint64_t{1} << 33;
  PushAt(kEnd - 2, kEnd - 3, {{0, 0x14, kResume}, {0, 0x14, 0x70}});
  PushAt(2, kEnd - 1, {{0, 0x14, kFlip}});
  PushAt(1, 0, {{0, 'O', 'K'}});
  EXPECT_THAT(End(), ElementsAre("eng 2 OK"));
}

TEST_F(Line21, WrongParityIsLeftOut) {
  ts::Bytes payload = ts::Mpeg2Picture(0, {{0, 0x14, kFlip}});
  for (std::size_t i = 0; i < payload.size() * 8; ++i) {
    payload[i / 8] ^= static_cast<std::uint8_t>(1 << i % 8);
    Decoder().Push({0x100, 0xe0, i, i, Bytes(payload)});
    payload[i / 8] ^= static_cast<std::uint8_t>(1 << i % 8);
  }
  End();
}

namespace {

// The pairs of a picture: the field and two bytes of each.
std::vector<std::string> PairsOf(bool is_h264, const ts::Bytes &payload) {
  std::vector<std::string> pairs;
  const auto tell = [&](const Line21Pictures::Picture &picture) {
    for (const Line21Pictures::Pair &pair : picture.pairs) {
      pairs.push_back(std::string(pair.second_field ? "2 " : "1 ") + static_cast<char>(pair.bytes[0]) +
                      static_cast<char>(pair.bytes[1]));
    }
  };
  Line21Pictures pictures(is_h264);
  pictures.Push({0x100, 0xe0, 0, 0, Bytes(payload)}, tell);
  pictures.End(tell);
  return pairs;
}

} // namespace

TEST(Line21InPictures, IsFreedFromTheBytesThatPreventStartCodes) {
  const ts::Bytes start = ts::Bytes{0xb5, 0x00, 0x31} + ts::Text("GA94") + ts::Bytes{3, 0x43, 0xff};
  const ts::Bytes unused = {0xf8, 0, 0, 3, 1, 'U', 'U'}; // two pairs, and 3 between them
  EXPECT_THAT(PairsOf(true, start + unused + ts::Bytes{0xfc, 'H', 'I'}), ElementsAre("1 HI"));
}

TEST(Line21InPictures, NeedsWhatStandsInFrontOfIt) {
  const ts::Bytes alone = ts::Text("GA94") + ts::Bytes{3, 0x41, 0xff, 0xfc, 'H', 'I'};
  for (const bool is_h264 : {false, true}) {
    EXPECT_THAT(PairsOf(is_h264, alone), IsEmpty());
    EXPECT_THAT(PairsOf(is_h264, ts::Bytes(10, 7) + alone), IsEmpty());
  }
}

TEST(Line21InPictures, LeavesOutPairsThatAreNotValid) {
  const ts::Bytes start = ts::Bytes{0xb5, 0x00, 0x31} + ts::Text("GA94") + ts::Bytes{3, 0x44, 0xff};
  EXPECT_THAT(PairsOf(true, start + ts::Bytes{0xf8, 'N', 'O', 0xfd, 'Y', 'O', 0xfe, 'N', 'O', 0xfc, 'Y', 'E'}),
              ElementsAre("2 YO", "1 YE"));
}
