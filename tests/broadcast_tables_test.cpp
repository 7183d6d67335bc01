// What the tables of a stream say: text, times, services and programmes.
#include <gmock/gmock.h>

#include "programmes.h"
#include "service_list.h"
#include "stream_time.h"
#include "tables.h"
#include "text.h"
#include "transport_stream.h"

using namespace lumio::broadcast;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using ts::operator+;

namespace {

std::string Decoded(const ts::Bytes &text) { return DecodeText(Bytes(text)); }

} // namespace

TEST(Text, IsReadInTheDefaultTable) {
  EXPECT_EQ(Decoded({}), "");
  EXPECT_EQ(Decoded(ts::Text("News")), "News");
  EXPECT_EQ(Decoded({'C', 'a', 'f', 0xc2, 'e', ' ', 0xa4, '5'}), "Café €5"); // an accent stands before its letter
  EXPECT_EQ(Decoded({0xc8, 'u'}), "ü");
  EXPECT_EQ(Decoded({'a', 0xd8, 'b'}), "a\uFFFDb");
}

TEST(Text, IsReadInEachTable) {
  EXPECT_EQ(Decoded({0x01, 0xbd, 0xde}), "Но"); // ISO 8859-5
  EXPECT_EQ(Decoded({0x05, 0xdd, 0xfe}), "İş"); // ISO 8859-9
  EXPECT_EQ(Decoded({0x0b, 0xa4}), "€");        // ISO 8859-15
  EXPECT_EQ(Decoded({0x10, 0, 2, 0xb1}), "ą");  // ISO 8859-2
  EXPECT_EQ(Decoded({0x11, 0x20, 0xac, 0, 'x'}), "€x");
  EXPECT_EQ(Decoded({0x12, 0xc7, 0xd1}), "한");
  EXPECT_EQ(Decoded({0x13, 0xd6, 0xd0}), "中");
  EXPECT_EQ(Decoded({0x14, 0xa4, 0xa4}), "中");
  EXPECT_EQ(Decoded(ts::Bytes{0x15} + ts::Text("naïve")), "naïve");
}

TEST(Text, IsReplacedWhereItsTableIsNotKnown) {
  for (const unsigned table : {0x00, 0x08, 0x0c, 0x0f, 0x16, 0x1e, 0x1f}) {
    EXPECT_EQ(Decoded(ts::Bytes{static_cast<std::uint8_t>(table)} + ts::Text("text")), "\uFFFD") << table;
  }
  EXPECT_EQ(Decoded({0x10, 0, 12, 'x'}), "\uFFFD");
  EXPECT_EQ(Decoded({0x10, 1, 1, 'x'}), "\uFFFD");
  EXPECT_EQ(Decoded({0x10, 0}), "\uFFFD");
}

TEST(Text, LosesItsControlCodes) {
  EXPECT_EQ(Decoded({'a', 0x86, 'b', 0x87, 0x8a, 'c', 0x07, 0x1b, 0x7f}), "ab\nc");
  EXPECT_EQ(Decoded({0x01, 'a', 0x8a, 'b', 0x9b}), "a\nb");
  EXPECT_EQ(Decoded({0x11, 0, 'a', 0xe0, 0x86, 0xe0, 0x8a, 0, 'b', 0, 0x1b}), "a\nb");
  EXPECT_EQ(Decoded({0x15, 'a', 0xee, 0x82, 0x8a, 'b', 0xc2, 0x9b, 0xee, 0x82, 0x87}), "a\nb");
}

TEST(Text, IsValidWhateverItIs) {
  EXPECT_EQ(Decoded({0x15, 0xff, 'a', 0xc3}), "\uFFFDa\uFFFD");
  EXPECT_EQ(Decoded({0x11, 0xd8, 0x00, 0, 'a', 0}), "\uFFFDa\uFFFD");
  EXPECT_EQ(Decoded({0x12, 0xc7}), "\uFFFD");
}

TEST(Times, AreReadOrNone) {
  std::int64_t time = 7;
  EXPECT_TRUE(ParseTime(Bytes(ts::Bytes{0xc0, 0x79, 0x12, 0x45, 0x00}), time)); // the standard's example
  EXPECT_EQ(time, 750516300);                                                   // 1993-10-13 12:45
  unsigned seconds = 7;
  EXPECT_TRUE(ParseDuration(Bytes(ts::Bytes{0x01, 0x45, 0x30}), seconds));
  EXPECT_EQ(seconds, 6330U);
  EXPECT_TRUE(ParseDuration(Bytes(ts::Bytes{0x99, 0x59, 0x59}), seconds));
  EXPECT_EQ(seconds, 359'999U);
  for (const ts::Bytes &wrong : {ts::Bytes{0xff, 0xff, 0xff}, {0x1a, 0, 0}, {0, 0x60, 0}, {0, 0, 0x6f}, {0, 0}}) {
    EXPECT_FALSE(ParseDuration(Bytes(wrong), seconds));
    EXPECT_FALSE(ParseTime(Bytes(ts::Bytes{0xc0, 0x79} + wrong), time));
  }
  EXPECT_FALSE(ParseTime(Bytes(ts::Bytes{0xc0, 0x79, 0x24, 0, 0}), time)); // no hour of a day
  EXPECT_FALSE(ParseTime(Bytes(ts::Bytes(5, 0xff)), time));
}

namespace {

StreamKind KindOf(unsigned type, const ts::Bytes &descriptors = {}) {
  const ts::Bytes section = ts::Pmt(1, 0x100, {{type, 0x100, descriptors}});
  Pmt pmt;
  EXPECT_TRUE(ParsePmt(Section(Bytes(section)), pmt));
  return pmt.streams.at(0).kind;
}

} // namespace

TEST(Streams, AreOfTheKindThatTheirTypeAndDescriptorsTell) {
  for (const unsigned type : {0x01, 0x02, 0x10, 0x1b, 0x24}) {
    EXPECT_EQ(KindOf(type), StreamKind::kVideo) << type;
  }
  for (const unsigned type : {0x03, 0x04, 0x0f, 0x11, 0x81}) {
    EXPECT_EQ(KindOf(type), StreamKind::kAudio) << type;
  }
  for (const unsigned tag : {0x6a, 0x7a, 0x7b, 0x7c}) {
    EXPECT_EQ(KindOf(0x06, ts::Descriptor(tag, {0})), StreamKind::kAudio) << tag;
  }
  EXPECT_EQ(KindOf(0x06, ts::Descriptor(0x59, ts::Bytes(8, 'x'))), StreamKind::kSubtitle);
  EXPECT_EQ(KindOf(0x06, ts::Descriptor(0x56, ts::Bytes(5, 'x'))), StreamKind::kTeletext);
  EXPECT_EQ(KindOf(0x0b), StreamKind::kCarousel);
  EXPECT_EQ(KindOf(0x0d, ts::Descriptor(0x13, ts::Bytes(5, 0))), StreamKind::kCarousel);
  EXPECT_EQ(KindOf(0x0d, ts::Descriptor(0x66, {0, 6})), StreamKind::kCarousel);
  EXPECT_EQ(KindOf(0x0d, ts::Descriptor(0x66, {0, 5})), StreamKind::kSection);
  EXPECT_EQ(KindOf(0x0d, ts::Descriptor(0x66, {0})), StreamKind::kSection);
  EXPECT_EQ(KindOf(0x05), StreamKind::kSection);
  EXPECT_EQ(KindOf(0x86), StreamKind::kSection);
  EXPECT_EQ(KindOf(0x06), StreamKind::kOther);
  EXPECT_EQ(KindOf(0x80), StreamKind::kOther);
  EXPECT_EQ(KindOf(0x1b, ts::Descriptor(0x56, ts::Bytes(5, 'x'))), StreamKind::kVideo);
}

TEST(Streams, TellTheirTagsSubtitlesAndCaptionLanguages) {
  const ts::Bytes pages = ts::Text("deu") + ts::Bytes{0x10, 0x88} + ts::Text("eng") + ts::Bytes{0x29, 0x50} +
                          ts::Text("fra") + ts::Bytes{0x09, 0x00}; // the last one is no subtitle
  const ts::Bytes captions = ts::Bytes{0xc3} + ts::Text("eng") + ts::Bytes{0x7e, 0x3f, 0xff} + ts::Text("spa") +
                             ts::Bytes{0x7f, 0x3f, 0xff} + ts::Text("fra") + ts::Bytes{0xc1, 0x3f, 0xff};
  const ts::Bytes section =
      ts::Pmt(7, 0x1fff,
              {{0x06, 0x101, ts::Descriptor(0x52, {9}) + ts::Descriptor(0x56, pages)},
               {0x02, 0x102, {}},
               {0x02, 0x103, ts::Descriptor(0x86, ts::Bytes{0xc1} + ts::Text("ita") + ts::Bytes{0x7e, 0x3f, 0xff})}},
              {5}, ts::Descriptor(0x86, captions));
  Pmt pmt;
  ASSERT_TRUE(ParsePmt(Section(Bytes(section)), pmt));
  EXPECT_EQ(pmt.program, 7);
  EXPECT_EQ(pmt.version, 5);
  EXPECT_EQ(pmt.pcr_pid, 0x1fff);
  ASSERT_EQ(pmt.streams.size(), 3U);
  EXPECT_EQ(pmt.streams[0].component_tag, 9);
  ASSERT_EQ(pmt.streams[0].subtitle_pages.size(), 2U);
  EXPECT_EQ(pmt.streams[0].subtitle_pages[0].page, 0x888 - 0x800 + 0x800);
  EXPECT_EQ(pmt.streams[0].subtitle_pages[0].language, 'd' << 16 | 'e' << 8 | 'u');
  EXPECT_EQ(pmt.streams[0].subtitle_pages[1].page, 0x150);
  EXPECT_EQ(pmt.streams[1].line21_language[0], 'e' << 16 | 'n' << 8 | 'g');
  EXPECT_EQ(pmt.streams[1].line21_language[1], 's' << 16 | 'p' << 8 | 'a');
  EXPECT_EQ(pmt.streams[2].line21_language[0], 'i' << 16 | 't' << 8 | 'a');
}

TEST(Tables, ThatLieAboutTheirLengthsAreReadAsFarAsTheyGo) {
  ts::Bytes body = ts::Be16(0xe100) + ts::Be16(0xffff);
  Pmt pmt;
  EXPECT_TRUE(ParsePmt(Section(Bytes(ts::LongSection(2, 1, {}, body))), pmt));
  EXPECT_THAT(pmt.streams, IsEmpty());
  EXPECT_FALSE(ParsePmt(Section(Bytes(ts::LongSection(2, 1, {}, {0xe1}))), pmt));
  body = ts::Be16(0xe100) + ts::Be16(0xf000) + ts::Bytes{2, 0xe1, 1, 0xff, 0xff, 0x52, 0x10};
  EXPECT_TRUE(ParsePmt(Section(Bytes(ts::LongSection(2, 1, {}, body))), pmt));
  ASSERT_EQ(pmt.streams.size(), 1U);
  EXPECT_EQ(pmt.streams[0].component_tag, -1);
  Sdt sdt;
  EXPECT_FALSE(ParseSdt(Section(Bytes(ts::LongSection(0x42, 1, {}, {0}))), sdt));
  EXPECT_TRUE(ParseSdt(Section(Bytes(ts::LongSection(
                           0x42, 1, {}, ts::Bytes{0, 1, 0xff, 0, 9, 0xff, 0x80, 0x06, 0x48, 4, 1, 200, 'a', 'b'}))),
                       sdt));
  EXPECT_EQ(sdt.services.at(0).provider, "ab");
  Eit eit;
  EXPECT_FALSE(ParseEit(Section(Bytes(ts::LongSection(0x4e, 1, {}, ts::Bytes(5, 0)))), eit));
  EXPECT_TRUE(ParseEit(Section(Bytes(ts::LongSection(0x4e, 1, {}, ts::Bytes(17, 0)))), eit));
  EXPECT_THAT(eit.programmes, IsEmpty());
}

TEST(Programmes, HaveTitleAndDescription) {
  const ts::Bytes short_event =
      ts::Descriptor(0x4d, ts::Text("eng") + ts::Bytes{4} + ts::Text("Film") + ts::Bytes{5} + ts::Text("Short"));
  const ts::Bytes other = ts::Descriptor(0x4d, ts::Text("deu") + ts::Bytes{1} + ts::Text("X") + ts::Bytes{0});
  const ts::Bytes first = ts::Descriptor(0x4e, ts::Bytes{0x01} + ts::Text("eng") + ts::Bytes{0, 4} + ts::Text("Long"));
  const ts::Bytes second =
      ts::Descriptor(0x4e, ts::Bytes{0x11} + ts::Text("eng") + ts::Bytes{0, 5} + ts::Text(" text"));
  const ts::Bytes body = ts::Be16(3) + ts::Be16(2) + ts::Bytes{0, 0x4e} + ts::Be16(77) + ts::Bytes(5, 0xff) +
                         ts::Bytes(3, 0xff) + ts::Loop(short_event + other + first + second, 0);
  Eit eit;
  ASSERT_TRUE(ParseEit(Section(Bytes(ts::LongSection(0x4e, 1, {}, body))), eit));
  EXPECT_EQ(eit.service, 0x000200030001U);
  ASSERT_EQ(eit.programmes.size(), 1U);
  const Programme &programme = eit.programmes[0];
  EXPECT_EQ(programme.data.serviceId, 0x000200030001U);
  EXPECT_EQ(programme.data.eventId, 77);
  EXPECT_EQ(programme.data.title, "Film");
  EXPECT_EQ(programme.data.description, "Short\nLong text");
  EXPECT_FALSE(programme.has_start);
  EXPECT_EQ(programme.data.startTime, 0);
  EXPECT_FALSE(programme.has_duration);
}

// Services

namespace {

class Services : public testing::Test {
protected:
  bool Push(unsigned pid, const ts::Bytes &section) {
    return list.Push(static_cast<std::uint16_t>(pid), Section(Bytes(section)));
  }
  std::vector<int> Ids() {
    std::vector<int> ids;
    for (const auto &entry : list.Services()) {
      ids.push_back(entry.first);
    }
    return ids;
  }

  ServiceList list;
};

} // namespace

TEST_F(Services, AreThoseOfThePat) {
  EXPECT_TRUE(Push(0, ts::Pat(9, {{0, 0x1f0}, {5, 0x100}, {2, 0x101}})));
  EXPECT_FALSE(Push(0, ts::Pat(9, {{0, 0x1f0}, {5, 0x100}, {2, 0x101}})));
  EXPECT_THAT(Ids(), ElementsAre(2, 5));
  EXPECT_EQ(list.NetworkPid(), 0x1f0);
  EXPECT_EQ(list.StreamId(), 9);
  EXPECT_FALSE(Push(0x30, ts::Pat(9, {{7, 0x100}}, {1}))); // elsewhere
  ts::Numbers next{1};
  next.current = false;
  EXPECT_FALSE(Push(0, ts::Pat(9, {{7, 0x100}}, next))); // not yet
  EXPECT_THAT(Ids(), ElementsAre(2, 5));
}

TEST_F(Services, ChangeWhenAVersionIsComplete) {
  Push(0, ts::Pat(9, {{1, 0x100}, {2, 0x101}}));
  Push(0x100, ts::Pmt(1, 0x110, {}));
  EXPECT_TRUE(Push(0, ts::Pat(9, {{1, 0x100}}, {1, 0, 1})));
  EXPECT_THAT(Ids(), ElementsAre(1, 2));
  EXPECT_TRUE(Push(0, ts::Pat(9, {{3, 0x103}}, {1, 1, 1})));
  EXPECT_THAT(Ids(), ElementsAre(1, 3));
  EXPECT_TRUE(list.Find(1)->has_pmt);
  Push(0, ts::Pat(9, {{1, 0x104}}, {2}));
  EXPECT_FALSE(list.Find(1)->has_pmt); // its table is elsewhere now
}

TEST_F(Services, AreKnownFromTheFirstSectionsAlready) {
  Push(0, ts::Pat(9, {{1, 0x100}}, {0, 1, 3}));
  EXPECT_THAT(Ids(), ElementsAre(1));
  Push(0x11, ts::Sdt(9, 8, {{1, {}, ts::Text("One")}}, {0, 2, 3}));
  EXPECT_EQ(list.Find(1)->name, "One");
  EXPECT_FALSE(list.IsComplete());
}

TEST_F(Services, HaveTheStreamsOfTheirPmt) {
  Push(0, ts::Pat(9, {{1, 0x100}, {2, 0x100}}));
  EXPECT_TRUE(Push(0x100, ts::Pmt(1, 0x110, {{2, 0x110, {}}})));
  EXPECT_FALSE(Push(0x100, ts::Pmt(1, 0x110, {{2, 0x110, {}}})));
  EXPECT_FALSE(Push(0x101, ts::Pmt(2, 0x110, {})));
  EXPECT_FALSE(Push(0x100, ts::Pmt(3, 0x110, {})));
  EXPECT_TRUE(Push(0x100, ts::Pmt(1, 0x111, {{2, 0x111, {}}, {3, 0x112, {}}}, {1})));
  EXPECT_EQ(list.Find(1)->pmt.streams.size(), 2U);
  EXPECT_FALSE(list.Find(2)->has_pmt);
}

TEST_F(Services, HaveTheNamesOfThisStreamsSdt) {
  Push(0x11, ts::Sdt(9, 8, {{1, ts::Text("P"), ts::Text("One")}}));
  Push(0, ts::Pat(9, {{1, 0x100}}));
  EXPECT_EQ(list.Find(1)->name, "One");
  EXPECT_EQ(list.Find(1)->provider, "P");
  EXPECT_EQ(list.IdOf(1), 0x000800090001U);
  EXPECT_FALSE(Push(0x11, ts::Sdt(9, 8, {{1, {}, ts::Text("Other")}}, {}, 0x46)));
  EXPECT_EQ(list.Find(1)->name, "One");
  Push(0x11, ts::Sdt(9, 8, {{1, ts::Text("P"), ts::Text("Uno")}}, {1}));
  EXPECT_EQ(list.Find(1)->name, "Uno");
  Push(0x11, ts::Sdt(9, 8, {}, {2}));
  EXPECT_EQ(list.Find(1)->name, "");
}

TEST_F(Services, OfAHostileStreamAreLimited) {
  unsigned program = 1;
  for (unsigned number = 0; number < 20; ++number) { // 5000 services
    std::map<unsigned, unsigned> pids;
    for (int i = 0; i < 250; ++i) {
      pids[program++] = 0x100;
    }
    Push(0, ts::Pat(1, pids, {0, number, 19}));
  }
  EXPECT_EQ(list.Services().size(), 4096U);
  std::vector<ts::Es> streams(190, {6, 0x200, {}});
  std::size_t taken = 0;
  for (unsigned id = 1; id <= 300; ++id) { // 57,000 streams
    taken += Push(0x100, ts::Pmt(id, 0, streams)) ? 190 : 0;
  }
  EXPECT_LE(taken, 32768U);
  EXPECT_GT(taken, 30000U);
}

TEST_F(Services, OfAHostileStreamHaveALimitedNumberOfNames) {
  unsigned id = 1;
  for (unsigned number = 0; number < 60; ++number) {
    std::vector<ts::Named> names;
    for (int i = 0; i < 80; ++i) {
      names.push_back({id++, {}, ts::Text("A")});
    }
    Push(0x11, ts::Sdt(9, 8, names, {0, number, 59}));
  }
  Push(0, ts::Pat(9, {{4096, 0x100}, {4097, 0x101}}));
  EXPECT_EQ(list.Find(4096)->name, "A");
  EXPECT_EQ(list.Find(4097)->name, "");
}

// Programmes

namespace {

ts::Event EventOf(unsigned id, std::int64_t start, const std::string &title) {
  return {id, ts::Time(start), ts::Duration(60), ts::Text(title), {}};
}

class Guide : public testing::Test {
protected:
  Programmes::Change Push(const ts::Bytes &section) { return programmes.Push(Section(Bytes(section)), service); }
  std::vector<std::string> Titles() {
    std::vector<std::string> titles;
    for (const Programme *programme : programmes.Find(0x100010001)->List()) {
      titles.push_back(programme->data.title);
    }
    return titles;
  }

  static constexpr std::size_t kPoolSize = std::size_t{1} << 20;
  ProgrammePool pool{kPoolSize};
  Programmes programmes{pool};
  std::uint64_t service = 0;
};

constexpr Programmes::Change kNone = Programmes::Change::kNone;
constexpr Programmes::Change kChanged = Programmes::Change::kChanged;
constexpr Programmes::Change kDropped = Programmes::Change::kDropped;

} // namespace

TEST_F(Guide, HasPresentAndFollowing) {
  EXPECT_EQ(Push(ts::Eit(0x4e, {}, {EventOf(1, 60, "A")}, {0, 0, 1})), kChanged);
  EXPECT_EQ(Push(ts::Eit(0x4e, {}, {EventOf(2, 120, "B")}, {0, 1, 1})), kChanged);
  EXPECT_EQ(Push(ts::Eit(0x4e, {}, {EventOf(2, 120, "B")}, {0, 1, 1})), kNone);
  EXPECT_EQ(Push(ts::Eit(0x4e, {}, {EventOf(2, 120, "B")}, {1, 1, 1})), kNone);
  const ServiceProgrammes *own = programmes.FindOwn(1);
  ASSERT_TRUE(own);
  EXPECT_EQ(own->Present()->data.title, "A");
  EXPECT_EQ(own->Following()->data.title, "B");
  EXPECT_EQ(Push(ts::Eit(0x4e, {}, {}, {2, 0, 1})), kChanged); // a gap
  EXPECT_FALSE(own->Present());
}

TEST_F(Guide, FindsBothInOneSection) {
  Push(ts::Eit(0x4e, {}, {EventOf(1, 60, "A"), EventOf(2, 120, "B")}));
  EXPECT_EQ(programmes.FindOwn(1)->Following()->data.title, "B");
  EXPECT_TRUE(programmes.FindOwn(1)->IsPresentFollowingComplete());
}

TEST_F(Guide, TellsOtherStreamsFromThisOne) {
  EXPECT_EQ(Push(ts::Eit(0x4f, {1, 2, 1}, {EventOf(1, 60, "Other")})), kChanged);
  EXPECT_FALSE(programmes.FindOwn(1));
  EXPECT_EQ(programmes.Find(0x100020001)->Present()->data.title, "Other");
  Push(ts::Eit(0x4e, {1, 1, 1}, {EventOf(1, 60, "Own")}));
  Push(ts::Eit(0x4f, {1, 1, 1}, {EventOf(1, 60, "Lie")}, {1}));
  EXPECT_EQ(programmes.FindOwn(1)->Present()->data.title, "Own");
}

TEST_F(Guide, ListsTheScheduleByStart) {
  Push(ts::Eit(0x50, {}, {EventOf(3, 300, "C"), EventOf(1, 100, "A")}, {0, 0, 8}));
  Push(ts::Eit(0x51, {}, {EventOf(4, 400, "D")}));
  Push(ts::Eit(0x4e, {}, {EventOf(2, 200, "B"), EventOf(3, 300, "C, delayed")}));
  EXPECT_THAT(Titles(), ElementsAre("A", "B", "C, delayed", "D"));
  Push(ts::Eit(0x50, {}, {}, {1, 0, 8}));
  EXPECT_THAT(Titles(), ElementsAre("B", "C, delayed", "D"));
  EXPECT_EQ(programmes.FindOwn(1)->Find(4)->data.title, "D");
  EXPECT_FALSE(programmes.FindOwn(1)->Find(9));
}

TEST_F(Guide, KnowsWhenTheScheduleIsComplete) {
  Push(ts::Eit(0x50, {}, {EventOf(1, 100, "A")}, {0, 0, 1}));
  const ServiceProgrammes *own = programmes.FindOwn(1);
  EXPECT_FALSE(own->IsScheduleComplete());
  Push(ts::Eit(0x50, {}, {EventOf(2, 200, "B")}, {0, 1, 1}));
  EXPECT_TRUE(own->IsScheduleComplete());
}

TEST_F(Guide, KnowsWhichSectionsOfASegmentAreLeftOut) {
  const auto in_segment = [](ts::Bytes section, std::uint8_t last) {
    section[12] = last; // section of the segment
    section.resize(section.size() - 4);
    return section + ts::Be32(ts::Crc(section));
  };
  Push(in_segment(ts::Eit(0x50, {}, {EventOf(1, 100, "A")}, {0, 0, 17}), 1));
  Push(in_segment(ts::Eit(0x50, {}, {EventOf(2, 200, "B")}, {0, 16, 17}), 17));
  Push(in_segment(ts::Eit(0x50, {}, {EventOf(3, 300, "C")}, {0, 17, 17}), 17));
  Push(in_segment(ts::Eit(0x50, {}, {}, {0, 8, 17}), 8));
  EXPECT_FALSE(programmes.FindOwn(1)->IsScheduleComplete());
  Push(in_segment(ts::Eit(0x50, {}, {EventOf(4, 400, "D")}, {0, 1, 17}), 1));
  EXPECT_TRUE(programmes.FindOwn(1)->IsScheduleComplete());
}

TEST_F(Guide, TakesASectionWhoseChecksumIsZero) {
  ts::Event event = EventOf(1, 60, "A");
  event.text = ts::Bytes(4, 0); // the section's last bytes
  ts::Bytes section = ts::Eit(0x4e, {}, {event});
  section.resize(section.size() - 8);
  section = section + ts::Be32(ts::Crc(section)) + ts::Be32(0);
  ASSERT_TRUE(Section(Bytes(section)).IsChecksumRight());
  EXPECT_EQ(Push(section), kChanged);
  EXPECT_EQ(Push(section), kNone);
}

TEST_F(Guide, OfAHostileStreamHasALimitedNumberOfSections) {
  for (unsigned i = 0; i < 32768; ++i) {
    ASSERT_NE(Push(ts::Eit(0x50, {1, 1, i}, {})), kDropped);
  }
  EXPECT_EQ(Push(ts::Eit(0x50, {1, 1, 40000}, {})), kDropped);
  EXPECT_NE(Push(ts::Eit(0x50, {1, 1, 1}, {}, {1})), kDropped); // a section that is known
}

TEST_F(Guide, OfAHostileStreamHasALimitedNumberOfProgrammesInItsSections) {
  constexpr unsigned kEvents = 300, kMost = 262144; // in a section, and of all
  ts::Bytes body = ts::Be16(1) + ts::Be16(1) + ts::Bytes{0, 0x50};
  for (unsigned i = 0; i < kEvents; ++i) {
    body.resize(body.size() + 12); // the same each time
  }
  for (unsigned i = 0; i < kMost / kEvents; ++i) {
    ASSERT_EQ(Push(ts::LongSection(0x50, i, {}, body)), kChanged);
  }
  EXPECT_EQ(Push(ts::LongSection(0x50, 40000, {}, body)), kDropped);
  EXPECT_EQ(Push(ts::LongSection(0x50, 1, {1}, {body.begin(), body.begin() + 6})), kChanged); // leaves room
  EXPECT_EQ(Push(ts::LongSection(0x50, 40000, {}, body)), kChanged);
}

TEST_F(Guide, KeepsEqualProgrammesOnceAndNoMoreThanItMay) {
  for (unsigned version = 0; version < 32; ++version) {
    Push(ts::Eit(0x50, {}, {EventOf(1, 100, version % 2 == 0 ? "A" : "B")}, {version}));
  }
  const std::size_t two = pool.Size();
  EXPECT_LT(two, 1000U);
  unsigned dropped = 0;
  for (unsigned i = 0; i < 4096; ++i) { // with these titles, the pool has room for a fifth
    std::vector<ts::Event> events;
    for (unsigned k = 0; k < 3; ++k) {
      events.push_back(EventOf(i, i, std::string(250, static_cast<char>('a' + k))));
    }
    dropped += Push(ts::Eit(0x50, {1, 1, i}, events)) == kDropped ? 1 : 0;
  }
  EXPECT_GT(dropped, 3000U);
  EXPECT_LE(pool.Size(), kPoolSize);
}

TEST_F(Guide, TakesNothingElse) {
  EXPECT_EQ(Push(ts::Sdt(1, 1, {})), kNone);
  EXPECT_EQ(Push(ts::LongSection(0x4e, 1, {}, ts::Bytes(5, 0))), kNone);
  ts::Numbers next;
  next.current = false;
  EXPECT_EQ(Push(ts::Eit(0x4e, {}, {EventOf(1, 60, "A")}, next)), kNone);
}

// The stream's time

TEST(StreamTime, FollowsTheClockOverItsEndAndJumps) {
  constexpr std::uint64_t kSecond = 27'000'000;
  constexpr std::uint64_t kCycle = (std::uint64_t{1} << 33) * 300;
  StreamTime time;
  time.Clock(kCycle - kSecond, false);
  EXPECT_EQ(time.Position(), 0s);
  time.Clock(kSecond, false);
  EXPECT_EQ(time.Position(), 2s);
  time.Clock(kSecond * 9, false); // too far ahead
  time.Clock(kSecond * 8, false); // back
  EXPECT_EQ(time.Position(), 2s);
  time.Clock(kSecond * 8 + kSecond / 2, false);
  EXPECT_EQ(time.Position(), 2500ms);
  time.Clock(kSecond * 9, true);
  time.Interrupt();
  time.Clock(kSecond * 9 + 1, false);
  EXPECT_EQ(time.Position(), 2500ms);
}
