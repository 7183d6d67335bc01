// Sections and tables, put together from packets: by hand, and beside libdvbpsi on random streams.
#include <gmock/gmock.h>

extern "C" {
#include <dvbpsi/dvbpsi.h>
// The others need it first.
#include <dvbpsi/demux.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/eit.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/psi.h>
#include <dvbpsi/sdt.h>
}

#include <cstring>
#include <random>
#include <sstream>

#include "byte_source.h"
#include "demultiplexer.h"
#include "packet_reader.h"
#include "tables.h"
#include "transport_stream.h"

using namespace lumio::broadcast;
using testing::ElementsAre;
using testing::IsEmpty;
using ts::operator+;

namespace {

// What a demultiplexer tells.
class Collector : public DemultiplexerListener {
public:
  void OnSection(std::uint16_t pid, const Section &section) override {
    pids.push_back(pid);
    sections.push_back(section.Raw().Copy());
    right.push_back(section.IsChecksumRight());
  }
  void OnPes(const PesPacket &packet) override {
    packets.push_back(packet);
    payloads.push_back(packet.payload.Copy());
  }

  void Push(const ts::Stream &stream) {
    for (std::size_t i = 0; i < stream.bytes.size(); i += 188) {
      demultiplexer.Push(Packet(&stream.bytes[i]));
    }
  }

  Demultiplexer demultiplexer{*this};
  std::vector<std::uint16_t> pids;
  std::vector<ts::Bytes> sections;
  std::vector<bool> right;
  std::vector<PesPacket> packets;
  std::vector<ts::Bytes> payloads;
};

class SectionsTest : public testing::Test {
protected:
  SectionsTest() { collector.demultiplexer.WantSections(0x100, true); }

  ts::Bytes SectionOf(std::size_t size, unsigned version = 0) {
    return ts::LongSection(0x40, 1, {version}, ts::Bytes(size - 12, 0x5a));
  }

  Collector collector;
  ts::Stream stream;
};

} // namespace

TEST_F(SectionsTest, AreToldWhateverTheirSize) {
  std::vector<ts::Bytes> sections;
  for (const std::size_t size : {12, 13, 180, 183, 184, 185, 366, 367, 368, 1024, 4093, 4094, 4095, 4096}) {
    sections.push_back(SectionOf(size));
    stream.Section(0x100, sections.back());
  }
  collector.Push(stream);
  EXPECT_EQ(collector.sections, sections);
  EXPECT_THAT(collector.right, testing::Each(true));
}

TEST_F(SectionsTest, AreToldWhereOneEndsAndOthersBeginInOnePacket) {
  const std::vector<ts::Bytes> sections = {SectionOf(200), SectionOf(20), SectionOf(30), SectionOf(300), SectionOf(12)};
  stream.Sections(0x100, sections);
  collector.Push(stream);
  EXPECT_EQ(collector.sections, sections);
}

TEST_F(SectionsTest, AreToldHoweverTheirHeaderIsSplit) {
  for (std::size_t first = 1; first < 8; ++first) {
    Collector split;
    split.demultiplexer.WantSections(0x100, true);
    ts::Stream packets;
    const ts::Bytes section = SectionOf(40);
    bool begun = false;
    packets.room = [&] { return std::exchange(begun, true) ? std::size_t{2} : first + 1; };
    packets.Section(0x100, section);
    split.Push(packets);
    EXPECT_THAT(split.sections, ElementsAre(section)) << first;
  }
}

TEST_F(SectionsTest, AreToldWithAWrongChecksum) {
  ts::Bytes section = SectionOf(100);
  section[50] ^= 1;
  stream.Section(0x100, section);
  stream.Section(0x100, ts::ShortSection(0x70, ts::Bytes(5, 1))); // has none
  stream.Section(0x100, ts::ShortSection(0x73, ts::Bytes(9, 1))); // has one although it is short
  ts::Bytes right = ts::ShortSection(0x73, ts::Bytes(11, 1));
  right.resize(right.size() - 4);
  stream.Section(0x100, right + ts::Be32(ts::Crc(right)));
  collector.Push(stream);
  EXPECT_THAT(collector.right, ElementsAre(false, true, false, true));
}

TEST_F(SectionsTest, ThatAreTooShortForAChecksumHaveAWrongOne) {
  stream.Section(0x100, {0x40, 0xb0, 0x04, 0, 0, 0, 0});
  stream.Section(0x100, {0x40, 0xb0, 0x00});
  const ts::Bytes header = {0x40, 0xb0, 0x04};
  stream.Section(0x100, header + ts::Be32(ts::Crc(header))); // right, but of nothing
  collector.Push(stream);
  EXPECT_THAT(collector.right, ElementsAre(false, false, false));
}

TEST_F(SectionsTest, OfMoreThan4096BytesAreLies) {
  stream.Section(0x100, ts::Bytes{0x40, 0xbf, 0xfe} + ts::Bytes(4094, 1)); // 4097
  const ts::Bytes next = SectionOf(20);
  stream.Section(0x100, next);
  collector.Push(stream);
  EXPECT_THAT(collector.sections, ElementsAre(next));
}

TEST_F(SectionsTest, AreDroppedWhereAPacketIsMissing) {
  stream.Section(0x100, SectionOf(500));
  stream.bytes.erase(stream.bytes.begin() + 188, stream.bytes.begin() + 2 * 188);
  const ts::Bytes next = SectionOf(20);
  stream.Section(0x100, next);
  collector.Push(stream);
  EXPECT_THAT(collector.sections, ElementsAre(next));
  EXPECT_EQ(collector.demultiplexer.Counts().continuity_errors, 1U);
}

TEST_F(SectionsTest, AreToldOnceAlthoughAPacketIsRepeated) {
  const ts::Bytes section = SectionOf(500);
  stream.Section(0x100, section);
  const ts::Bytes second(stream.bytes.begin() + 188, stream.bytes.begin() + 2 * 188);
  stream.bytes.insert(stream.bytes.begin() + 188, second.begin(), second.end());
  collector.Push(stream);
  EXPECT_THAT(collector.sections, ElementsAre(section));
}

TEST_F(SectionsTest, AreToldAlthoughNoPointerSaysThatTheyStart) {
  const ts::Bytes first = SectionOf(200);
  const ts::Bytes second = SectionOf(30);
  stream.Sections(0x100, {first, second});
  stream.bytes[188 + 1] &= 0xbf; // the second packet
  stream.bytes.erase(stream.bytes.begin() + 188 + 4);
  stream.bytes.push_back(0xff);
  collector.Push(stream);
  EXPECT_THAT(collector.sections, ElementsAre(first, second));
}

TEST_F(SectionsTest, AreDroppedWhereOtherPacketsFollow) {
  enum { kMissing, kAnnounced, kInterrupted };
  for (const int how : {kMissing, kAnnounced, kInterrupted}) {
    Collector one;
    one.demultiplexer.WantSections(0x100, true);
    ts::Stream packets;
    packets.Section(0x100, SectionOf(300));
    const ts::Bytes rest(packets.bytes.begin() + 188 + 4, packets.bytes.begin() + 188 + 4 + 150);
    packets.bytes.resize(188);
    one.Push(packets);
    packets.bytes.clear();
    packets.Skip(0x100, how == kMissing ? 4 : -1);
    ts::PacketOptions options;
    options.discontinuity = how == kAnnounced;
    packets.Skip(0x100, how == kAnnounced ? 3 : 0);
    packets.Packet(0x100, rest, options); // would complete it
    if (how == kInterrupted) {
      one.demultiplexer.Interrupt();
    }
    one.Push(packets);
    EXPECT_THAT(one.sections, IsEmpty()) << how;
    EXPECT_EQ(one.demultiplexer.Counts().continuity_errors, how == kMissing ? 1U : 0U);
  }
}

TEST_F(SectionsTest, AreDroppedWhenTheNextOneWouldBeginBehindThePacket) {
  const ts::Bytes section = SectionOf(200);
  ts::PacketOptions start;
  start.start = true;
  stream.Packet(0x100, ts::Bytes{0} + ts::Bytes(section.begin(), section.begin() + 183), start);
  ts::Bytes next = ts::Bytes{184} + ts::Bytes(section.begin() + 183, section.end());
  next.resize(184, 0xff);
  stream.Packet(0x100, next, start);
  collector.Push(stream);
  EXPECT_THAT(collector.sections, IsEmpty());
}

TEST_F(SectionsTest, AreDroppedWhenThePointerLies) {
  ts::PacketOptions start;
  start.start = true;
  stream.Packet(0x100, ts::Bytes(184, 0xb8), start);
  stream.Packet(0x100, {}, start);
  stream.Packet(0x100, {0}, start);
  stream.Packet(0x100, {0, 0x40}, start);
  stream.Packet(0x100, {0, 0x40}, start); // begins anew
  collector.Push(stream);
  EXPECT_THAT(collector.sections, IsEmpty());
}

TEST_F(SectionsTest, OfErroneousAndScrambledPacketsAreNotToldAndCounted) {
  ts::PacketOptions options;
  options.start = true;
  options.error = true;
  stream.Packet(0x100, ts::Bytes{0} + SectionOf(183), options);
  stream.Null();
  options.error = false;
  options.scrambling = 2;
  stream.Packet(0x100, ts::Bytes{0} + SectionOf(183), options);
  collector.Push(stream);
  EXPECT_THAT(collector.sections, IsEmpty());
  EXPECT_EQ(collector.demultiplexer.Counts().transport_errors, 1U);
  EXPECT_EQ(collector.demultiplexer.Counts().continuity_errors, 0U);
  EXPECT_EQ(collector.demultiplexer.Counts().packets, 3U);
  EXPECT_TRUE(collector.demultiplexer.WasScrambled(0x100));
}

// 8 MiB are there for all that is unfinished, and a section takes the room of the longest one.
TEST(Demultiplexer, SharesItsMemoryAmongThousandsOfStreams) {
  constexpr unsigned kFirst = 0x100, kEnd = 0x100 + 2200;
  Collector collector;
  ts::Stream stream;
  for (unsigned pid = kFirst; pid < kEnd; ++pid) {
    collector.demultiplexer.WantSections(static_cast<std::uint16_t>(pid), true);
    stream.Section(pid, ts::LongSection(0x40, 1, {}, ts::Bytes(200, 0x5a)));
  }
  collector.Push(stream); // one after the other
  EXPECT_EQ(collector.sections.size(), kEnd - kFirst);
  ts::Stream mixed;
  for (std::size_t part = 0; part < 2; ++part) {
    for (std::size_t i = part * 188; i < stream.bytes.size(); i += std::size_t{2} * 188) {
      mixed.bytes.insert(mixed.bytes.end(), stream.bytes.begin() + static_cast<long>(i),
                         stream.bytes.begin() + static_cast<long>(i) + 188);
    }
  }
  collector.demultiplexer.Interrupt();
  collector.Push(mixed); // all at once
  EXPECT_EQ(collector.sections.size(), kEnd - kFirst + 2048);
}

TEST(Demultiplexer, ComparesPacketsOfDifferentRuns) {
  Collector collector;
  ts::Stream stream;
  for (int i = 0; i < 3; ++i) {
    stream.Packet(0x100, ts::Bytes(184, static_cast<std::uint8_t>(i)));
  }
  stream.Skip(0x100, -1);
  stream.Packet(0x100, ts::Bytes(184, 2)); // repeated
  for (std::size_t i = 0; i < stream.bytes.size(); i += 188) {
    collector.demultiplexer.PushRun({&stream.bytes[i], 1, 188});
    std::fill_n(stream.bytes.begin() + static_cast<long>(i), 188, 0xee); // the memory serves another purpose
  }
  EXPECT_EQ(collector.demultiplexer.Counts().continuity_errors, 0U);
}

TEST(Pes, PacketsAreToldWithTheirTimes) {
  Collector collector;
  collector.demultiplexer.WantPes(0x101, true);
  ts::Stream stream;
  constexpr std::uint64_t kLate = 0x1fffffffe; // shortly before the clock wraps around
  stream.Pes(0x101, ts::Pes(0xe0, {kLate}, ts::Text("one")));
  stream.Pes(0x101, ts::Pes(0xc0, {5, 3}, ts::Bytes(1000, 2)));
  stream.Pes(0x101, ts::Pes(0xbd, {}, ts::Text("three")));
  stream.Pes(0x101, ts::Bytes{0, 0, 1, 0xbf} + ts::Be16(4) + ts::Text("four")); // a kind without optional fields
  collector.Push(stream);
  EXPECT_THAT(collector.payloads,
              ElementsAre(ts::Text("one"), ts::Bytes(1000, 2), ts::Text("three"), ts::Text("four")));
  EXPECT_EQ(collector.packets[0].pts, kLate);
  EXPECT_EQ(collector.packets[0].dts, kLate);
  EXPECT_EQ(collector.packets[0].stream_id, 0xe0);
  EXPECT_EQ(collector.packets[1].pts, 5U);
  EXPECT_EQ(collector.packets[1].dts, 3U);
  EXPECT_EQ(collector.packets[2].pts, kNoTime);
}

TEST(Pes, UnboundedPacketsEndWithTheNextOrTheStream) {
  Collector collector;
  collector.demultiplexer.WantPes(0x101, true);
  ts::Stream stream;
  const ts::PesTimes unbounded{1, ts::kNoPts, true};
  stream.Pes(0x101, ts::Pes(0xe0, unbounded, ts::Bytes(500, 1)));
  stream.Pes(0x101, ts::Pes(0xe0, unbounded, ts::Bytes(600, 2)));
  collector.Push(stream);
  EXPECT_THAT(collector.payloads, ElementsAre(ts::Bytes(500, 1)));
  collector.demultiplexer.End();
  EXPECT_THAT(collector.payloads, ElementsAre(ts::Bytes(500, 1), ts::Bytes(600, 2)));
  EXPECT_EQ(collector.demultiplexer.DroppedPes(), 0U);
}

TEST(Pes, PacketsOfMoreThanTwoMebibytesAreDroppedAndCounted) {
  Collector collector;
  collector.demultiplexer.WantPes(0x101, true);
  ts::Stream stream;
  const ts::PesTimes unbounded{1, ts::kNoPts, true};
  stream.Pes(0x101, ts::Pes(0xe0, unbounded, ts::Bytes((2 << 20) - 14, 1)));
  stream.Pes(0x101, ts::Pes(0xe0, unbounded, ts::Bytes((2 << 20) - 13, 1)));
  stream.Pes(0x101, ts::Pes(0xe0, unbounded, ts::Bytes(10, 1)));
  collector.Push(stream);
  collector.demultiplexer.End();
  ASSERT_EQ(collector.payloads.size(), 2U);
  EXPECT_EQ(collector.payloads[0].size(), std::size_t{(2 << 20) - 14});
  EXPECT_EQ(collector.payloads[1].size(), 10U);
  EXPECT_EQ(collector.demultiplexer.DroppedPes(), 1U);
}

TEST(Pes, PacketsThatAreBrokenOffOrNoneAreDroppedAndCounted) {
  Collector collector;
  collector.demultiplexer.WantPes(0x101, true);
  ts::Stream stream;
  stream.Pes(0x101, ts::Pes(0xe0, {}, ts::Bytes(500, 1)));
  stream.bytes.resize(2 * 188); // its end is missing
  ts::Bytes none = ts::Pes(0xe0, {}, ts::Text("right, but for its start"));
  none[2] = 2;
  stream.Pes(0x101, none);
  stream.Pes(0x101, ts::Bytes{0, 0, 1, 0xe0, 0, 3, 0x80, 0x80, 0xff}); // a header longer than the packet
  stream.Pes(0x101, ts::Bytes{0, 0, 1, 0xe0, 0, 1, 0x80});
  stream.Pes(0x101, ts::Pes(0xe0, {}, ts::Text("right")));
  collector.Push(stream);
  EXPECT_THAT(collector.payloads, ElementsAre(ts::Text("right")));
  EXPECT_EQ(collector.demultiplexer.DroppedPes(), 4U);
}

TEST(Pes, PacketsLeaveTheirMemoryToOthers) {
  Collector collector;
  ts::Stream stream;
  for (unsigned pid = 0x100; pid < 0x200; ++pid) {
    collector.demultiplexer.WantPes(static_cast<std::uint16_t>(pid), true);
    stream.Pes(pid, ts::Pes(0xe0, {}, ts::Bytes(10, 1)));
  }
  for (unsigned pid = 0x100; pid < 0x120; ++pid) { // much larger ones
    stream.Pes(pid, ts::Pes(0xe0, {0, ts::kNoPts, true}, ts::Bytes(300'000, 1)));
    stream.Pes(pid, ts::Pes(0xe0, {}, ts::Bytes(10, 1)));
  }
  collector.Push(stream);
  EXPECT_EQ(collector.packets.size(), 0x100U + 2 * 0x20U);
  EXPECT_EQ(collector.demultiplexer.DroppedPes(), 0U);
}

TEST(Pes, PacketsOfThousandsOfStreamsShareTheMemory) {
  Collector collector;
  ts::Stream stream;
  for (unsigned pid = 0x100; pid < 0x1000; ++pid) {
    collector.demultiplexer.WantPes(static_cast<std::uint16_t>(pid), true);
    stream.Pes(pid, ts::Pes(0xe0, {1, ts::kNoPts, true}, ts::Bytes(100, 1)));
  }
  collector.Push(stream);
  EXPECT_GT(collector.demultiplexer.DroppedPes(), 0x400U); // 8 MiB are there for them
}

// Beside libdvbpsi

namespace {

class RandomStream {
public:
  explicit RandomStream(unsigned seed) : random_(seed) {}

  unsigned Below(unsigned end) { return std::uniform_int_distribution<unsigned>(0, end - 1)(random_); }
  ts::Bytes Any(unsigned size) {
    ts::Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(Below(256)); });
    return bytes;
  }
  ts::Bytes Name() { return ts::Bytes(1 + Below(30), static_cast<std::uint8_t>('a' + Below(26))); }

  // Tables on their PIDs, anything on 0x50; packets of several PIDs stand between each other.
  ts::Stream Make();

  std::map<unsigned, std::vector<ts::Bytes>> sections; // by PID

private:
  void Add(unsigned pid, const ts::Bytes &section) { sections[pid].push_back(section); }
  void AddTables(unsigned version);

  std::mt19937 random_;
};

void RandomStream::AddTables(unsigned version) {
  std::map<unsigned, unsigned> pids;
  for (unsigned count = 1 + Below(5); count > 0; --count) {
    pids[1 + Below(0xfff)] = 0x60 + count;
  }
  Add(0x00, ts::Pat(0x77, pids, {version}));
  std::vector<ts::Named> named;
  for (const auto &[program, pid] : pids) {
    std::vector<ts::Es> streams;
    for (unsigned count = Below(6); count > 0; --count) {
      streams.push_back(
          {Below(256), 0x200 + Below(0x1000), Below(2) ? ts::Descriptor(Below(256), Any(Below(40))) : ts::Bytes{}});
    }
    Add(0x61, ts::Pmt(program, Below(0x1fff), streams, {version}));
    named.push_back({program, Name(), Name()});
  }
  Add(0x11, ts::Sdt(0x77, 0x88, named, {version}));
  std::vector<ts::Event> events;
  for (unsigned count = Below(8); count > 0; --count) {
    events.push_back(
        {Below(0x10000), ts::Time(86400 * 20'000 + Below(86400)), ts::Duration(Below(86400)), Name(), Name()});
  }
  Add(0x12, ts::Eit(0x4e, {0x88, 0x77, 5}, events, {version}));
}

ts::Stream RandomStream::Make() {
  for (unsigned version = 0; version < 3; ++version) {
    AddTables(version);
    for (unsigned count = Below(20); count > 0; --count) {
      Add(0x50, ts::LongSection(0x80 + Below(0x7f), Below(0x10000), {Below(32), 0, 0}, Any(Below(4084))));
    }
  }
  ts::Stream stream;
  stream.room = [this] { return Below(3) ? 184 : 2 + Below(183); };
  std::map<unsigned, std::size_t> told;
  for (bool more = true; more;) {
    more = false;
    for (auto &[pid, list] : sections) {
      const std::size_t count = std::min<std::size_t>(1 + Below(4), list.size() - told[pid]);
      const auto first = list.begin() + static_cast<long>(told[pid]);
      stream.Sections(pid, {first, first + static_cast<long>(count)});
      told[pid] += count;
      more = more || told[pid] < list.size();
      Below(5) == 0 ? stream.Null() : stream.Pcr(pid, 1);
    }
  }
  return stream;
}

// The sections that libdvbpsi puts together.
struct DvbpsiSections {
  dvbpsi_decoder_t decoder; // first, as the library wants it
  std::vector<ts::Bytes> *told;
};

std::vector<ts::Bytes> SectionsByDvbpsi(const ts::Stream &stream, unsigned pid) {
  std::vector<ts::Bytes> told;
  dvbpsi_t *handle = dvbpsi_new(nullptr, DVBPSI_MSG_NONE);
  auto *decoder = static_cast<DvbpsiSections *>(dvbpsi_decoder_new(
      [](dvbpsi_t *self, dvbpsi_psi_section_t *section) {
        auto *collected = reinterpret_cast<DvbpsiSections *>(self->p_decoder)->told;
        collected->emplace_back(section->p_data, section->p_data + 3 + section->i_length);
        dvbpsi_DeletePSISections(section);
      },
      4096, true, sizeof(DvbpsiSections)));
  decoder->told = &told;
  handle->p_decoder = &decoder->decoder;
  for (std::size_t i = 0; i < stream.bytes.size(); i += 188) {
    ts::Bytes packet(stream.bytes.begin() + static_cast<long>(i), stream.bytes.begin() + static_cast<long>(i + 188));
    if (((packet[1] & 0x1fU) << 8 | packet[2]) == pid) {
      dvbpsi_packet_push(handle, packet.data());
    }
  }
  dvbpsi_decoder_delete(handle->p_decoder);
  handle->p_decoder = nullptr;
  dvbpsi_delete(handle);
  return told;
}

// Tables as text, by libdvbpsi and by us.
using Lines = std::vector<std::string>;

void OnPat(void *data, dvbpsi_pat_t *pat) {
  std::ostringstream text;
  text << "PAT " << pat->i_ts_id << " v" << int(pat->i_version);
  for (dvbpsi_pat_program_t *program = pat->p_first_program; program; program = program->p_next) {
    text << ' ' << program->i_number << ':' << program->i_pid;
  }
  static_cast<Lines *>(data)->push_back(text.str());
  dvbpsi_pat_delete(pat);
}

void OnSdt(void *data, dvbpsi_sdt_t *sdt) {
  std::ostringstream text;
  text << "SDT " << sdt->i_extension << ' ' << sdt->i_network_id;
  for (dvbpsi_sdt_service_t *service = sdt->p_first_service; service; service = service->p_next) {
    const std::uint8_t *content = service->p_first_descriptor->p_data;
    const std::string provider(reinterpret_cast<const char *>(content) + 2, content[1]);
    const std::string name(reinterpret_cast<const char *>(content) + 3 + content[1], content[2 + content[1]]);
    text << ' ' << service->i_service_id << ':' << provider << ':' << name;
  }
  static_cast<Lines *>(data)->push_back(text.str());
  dvbpsi_sdt_delete(sdt);
}

void OnEit(void *data, dvbpsi_eit_t *eit) {
  std::ostringstream text;
  text << "EIT " << eit->i_network_id << ' ' << eit->i_ts_id << ' ' << eit->i_extension;
  for (dvbpsi_eit_event_t *event = eit->p_first_event; event; event = event->p_next) {
    const std::uint8_t *content = event->p_first_descriptor->p_data;
    text << ' ' << event->i_event_id << ':' << event->i_start_time << ':' << event->i_duration << ':'
         << std::string(reinterpret_cast<const char *>(content) + 4, content[3]);
  }
  static_cast<Lines *>(data)->push_back(text.str());
  dvbpsi_eit_delete(eit);
}

void OnPmt(void *data, dvbpsi_pmt_t *pmt) {
  std::ostringstream text;
  text << "PMT " << pmt->i_program_number << " v" << int(pmt->i_version) << " pcr " << pmt->i_pcr_pid;
  for (dvbpsi_pmt_es_t *es = pmt->p_first_es; es; es = es->p_next) {
    text << ' ' << int(es->i_type) << ':' << es->i_pid;
  }
  static_cast<Lines *>(data)->push_back(text.str());
  dvbpsi_pmt_delete(pmt);
}

template <class Attach, class Detach>
Lines TablesByDvbpsi(const std::vector<ts::Bytes> &sections, Attach attach, Detach detach) {
  Lines lines;
  for (const ts::Bytes &section : sections) {
    dvbpsi_t *handle = dvbpsi_new(nullptr, DVBPSI_MSG_NONE);
    attach(handle, section, &lines);
    ts::Stream alone;
    alone.Section(0x100, section);
    alone.Section(0x100, section); // from some tables libdvbpsi only sees with the repetition that nothing is missing
    for (std::size_t i = 0; i < alone.bytes.size(); i += 188) {
      dvbpsi_packet_push(handle, &alone.bytes[i]);
    }
    detach(handle);
    dvbpsi_delete(handle);
  }
  return lines;
}

void OnNewTable(dvbpsi_t *handle, std::uint8_t table_id, std::uint16_t extension, void *data) {
  if (table_id == kSdtActualId) {
    dvbpsi_sdt_attach(handle, table_id, extension, OnSdt, data);
  } else if (table_id == kEitPresentActualId) {
    dvbpsi_eit_attach(handle, table_id, extension, OnEit, data);
  }
}

Lines PatsByDvbpsi(const std::vector<ts::Bytes> &sections) {
  return TablesByDvbpsi(
      sections, [](dvbpsi_t *handle, const ts::Bytes &, Lines *lines) { dvbpsi_pat_attach(handle, OnPat, lines); },
      dvbpsi_pat_detach);
}

Lines PmtsByDvbpsi(const std::vector<ts::Bytes> &sections) {
  return TablesByDvbpsi(
      sections,
      [](dvbpsi_t *handle, const ts::Bytes &section, Lines *lines) {
        dvbpsi_pmt_attach(handle, static_cast<std::uint16_t>(section[3] << 8 | section[4]), OnPmt, lines);
      },
      dvbpsi_pmt_detach);
}

Lines OthersByDvbpsi(const std::vector<ts::Bytes> &sections) {
  return TablesByDvbpsi(
      sections,
      [](dvbpsi_t *handle, const ts::Bytes &, Lines *lines) { dvbpsi_AttachDemux(handle, OnNewTable, lines); },
      dvbpsi_DetachDemux);
}

std::string OurText(const ts::Bytes &bytes) {
  const Section section{Bytes(bytes)};
  std::ostringstream text;
  switch (section.TableId()) {
  case kPatId:
    text << "PAT " << section.Extension() << " v" << int(section.Version());
    for (const PatEntry &entry : ParsePat(section)) {
      text << ' ' << entry.program << ':' << entry.pid;
    }
    break;
  case kPmtId: {
    Pmt pmt;
    EXPECT_TRUE(ParsePmt(section, pmt));
    text << "PMT " << pmt.program << " v" << int(pmt.version) << " pcr " << pmt.pcr_pid;
    for (const ElementaryStream &stream : pmt.streams) {
      text << ' ' << int(stream.type) << ':' << stream.pid;
    }
    break;
  }
  case kSdtActualId: {
    Sdt sdt;
    EXPECT_TRUE(ParseSdt(section, sdt));
    text << "SDT " << sdt.stream_id << ' ' << sdt.network_id;
    for (const SdtEntry &entry : sdt.services) {
      text << ' ' << entry.service_id << ':' << entry.provider << ':' << entry.name;
    }
    break;
  }
  default: {
    Eit eit;
    EXPECT_TRUE(ParseEit(section, eit));
    text << "EIT " << (eit.service >> 32) << ' ' << (eit.service >> 16 & 0xffff) << ' ' << (eit.service & 0xffff);
    const std::uint8_t *event = &bytes[14]; // libdvbpsi tells the times as they stand
    for (const Programme &programme : eit.programmes) {
      std::uint64_t start = 0;
      for (int i = 2; i < 7; ++i) {
        start = start << 8 | event[i];
      }
      const unsigned duration = event[7] << 16U | event[8] << 8U | event[9];
      text << ' ' << programme.data.eventId << ':' << start << ':' << duration << ':' << programme.data.title;
      event += 12 + ((event[10] & 0xf) << 8 | event[11]);
    }
  }
  }
  return text.str();
}

Lines OurTables(const std::vector<ts::Bytes> &sections) {
  Lines lines;
  std::transform(sections.begin(), sections.end(), std::back_inserter(lines), OurText);
  return lines;
}

} // namespace

TEST(BesideDvbpsi, FiftyRandomStreamsAgree) {
  for (unsigned seed = 0; seed < 50; ++seed) {
    SCOPED_TRACE(seed);
    RandomStream random(seed);
    const ts::Stream stream = random.Make();
    for (const auto &[pid, sections] : random.sections) {
      Collector collector;
      collector.demultiplexer.WantSections(static_cast<std::uint16_t>(pid), true);
      collector.Push(stream);
      EXPECT_EQ(collector.sections, sections) << pid;
      EXPECT_EQ(SectionsByDvbpsi(stream, pid), sections) << pid;
      EXPECT_EQ(collector.demultiplexer.Counts().continuity_errors, 0U);
    }
    EXPECT_EQ(OurTables(random.sections[0x00]), PatsByDvbpsi(random.sections[0x00]));
    EXPECT_EQ(OurTables(random.sections[0x61]), PmtsByDvbpsi(random.sections[0x61]));
    EXPECT_EQ(OurTables(random.sections[0x11]), OthersByDvbpsi(random.sections[0x11]));
    EXPECT_EQ(OurTables(random.sections[0x12]), OthersByDvbpsi(random.sections[0x12]));
  }
}

// The section as a table of its own, since libdvbpsi tells only complete ones.
static ts::Bytes AsPresent(ts::Bytes section) {
  section[0] = kEitPresentActualId;
  section[6] = section[7] = 0; // its number, and the last one
  section.resize(section.size() - kChecksumSize);
  return section + ts::Be32(ts::Crc(section));
}

TEST(BesideDvbpsi, TheSampleAgrees) {
  FileSource source;
  ASSERT_EQ(source.Open(LUMIO_SAMPLE), 0);
  PacketReader reader(source);
  ts::Stream stream;
  while (const std::uint8_t *packet = reader.Next()) {
    stream.Append({packet, packet + kPacketSize});
  }
  const auto sections_on = [&](std::uint16_t pid) {
    Collector collector;
    collector.demultiplexer.WantSections(pid, true);
    collector.Push(stream);
    EXPECT_THAT(collector.sections, testing::Not(IsEmpty())) << pid;
    EXPECT_EQ(SectionsByDvbpsi(stream, pid), collector.sections) << pid;
    return collector.sections;
  };
  for (const std::uint16_t pid : {0x14, 0x104}) {
    sections_on(pid);
  }
  const auto pats = sections_on(0x00), pmts = sections_on(0x100), others = sections_on(0x200);
  const auto names = sections_on(0x11);
  auto programmes = sections_on(0x12);
  std::transform(programmes.begin(), programmes.end(), programmes.begin(), AsPresent);
  EXPECT_EQ(OurTables(pats), PatsByDvbpsi(pats));
  EXPECT_EQ(OurTables(pmts), PmtsByDvbpsi(pmts));
  EXPECT_EQ(OurTables(others), PmtsByDvbpsi(others));
  EXPECT_EQ(OurTables(names), OthersByDvbpsi(names));
  Lines by_dvbpsi = OthersByDvbpsi(programmes);
  for (std::string &line : by_dvbpsi) {
    line.erase(std::remove(line.begin(), line.end(), '\x15'), line.end()); // says that the text is UTF-8
  }
  EXPECT_EQ(OurTables(programmes), by_dvbpsi);
}
