// Hostile streams through the whole player, with a subscription to everything: it plays each to its end, counts its
// errors, and holds no more than 64 MiB meanwhile.
#include <lumio-host/broadcast.h>
#include <lumio-host/tv-control.h>

#include <TVServiceAPI.h>

#include <gmock/gmock.h>

#include <atomic>
#include <climits>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>

#include "counted_memory.h"
#include "stderr_of.h"
#include "temporary_directory.h"
#include "transport_stream.h"

namespace broadcast = lumio::broadcast;
using namespace std::chrono_literals;
using testing::HasSubstr;
using ts::operator+;

namespace {

constexpr std::size_t kMost = std::size_t{64} << 20;
constexpr unsigned kPmt = 0x100, kVideo = 0x101, kTeletext = 0x103, kCarousel = 0x104;
constexpr int kSessions = 8; // with a carousel
constexpr TCServiceId kService = 0x000200030001;

std::atomic<unsigned> g_modules{0};
std::atomic<unsigned> g_programmes{0};

std::atomic<unsigned> g_ends{0}; // of streams

int OnSignal(ESignalType type, EProfile, unsigned short, TSSignalData data, void *) {
  g_ends += type == SIGNAL_TYPE_LOCK && data.value == 0 ? 1 : 0;
  return 1;
}
void OnProgram(EProgramChangeType, TCProgramData *, int, int) { ++g_programmes; }
void OnSection(bool, unsigned short, unsigned char *, int) {}
void OnPes(TSPESData &, void *) {}
void OnCaption(TSCaption &, void *) {}
void OnDsm(TSDsmMessage &) {
  for (int i = 0; g_modules == 0 && i < 100; ++i) {
    std::this_thread::yield(); // so that the player is ahead, if it does not wait
  }
  ++g_modules;
}

void SubscribeToSections(unsigned first_pid, unsigned end) {
  ISectionSubscriber *sections = nullptr;
  TVServiceAPI::CreateSectionSubscriber(OnSection, PROFILE_MAIN, 0, &sections);
  for (unsigned pid = first_pid; pid < end; ++pid) {
    int handle = 0;
    sections->SubscribeByFilter(1, {static_cast<unsigned short>(pid), {}, {}}, handle);
  }
}

void SubscribeToEverything() {
  ISignalSubscriber *signals = nullptr;
  TVServiceAPI::CreateSignalSubscriber(OnSignal, &signals);
  for (int type = SIGNAL_TYPE_LOCK; type <= SIGNAL_TYPE_STRENGTH; ++type) {
    signals->Subscribe(static_cast<ESignalType>(type), nullptr, PROFILE_MAIN, 0);
  }
  SubscribeToSections(0, 0x14);
  SubscribeToSections(kPmt, kCarousel + 1);
  int handle = 0;
  IProgramSubscriber *programmes = nullptr;
  TVServiceAPI::CreateProgramSubscriber(OnProgram, &programmes);
  programmes->SubscribeProgramListPF(0, kService, SUBSCRIBE_TYPE_CHANGES, handle);
  programmes->SubscribeProgramList(0, kService, 0, UINT_MAX, SUBSCRIBE_TYPE_CHANGES, handle);
  IPESDataSubscriber *pes = nullptr;
  TVServiceAPI::CreatePESDataSubscriber(PROFILE_MAIN, 0, &pes);
  pes->Subscribe(OnPes, nullptr, &handle);
  IDataSubscriber *captions = nullptr;
  TVServiceAPI::CreateDataSubscriber(PROFILE_MAIN, 0, &captions);
  captions->Subscribe(OnCaption, nullptr, &handle);
  IDsm *dsm = nullptr;
  TVServiceAPI::CreateDsm(OnDsm, &dsm);
  const std::string target = "dvb://2.3.1/a";
  for (int i = 0; i < kSessions; ++i) {
    unsigned session = 0;
    dsm->Attach(session, {target.begin(), target.end()}, DSM_DATA_SERVICE_DATA_CAROUSEL,
                i % 2 == 0 ? DSM_ATTACH_CACHED : DSM_ATTACH_NORMAL, nullptr, false);
  }
}

// The tables of a service with a picture, teletext and a carousel.
ts::Stream Service() {
  const ts::Bytes teletext = ts::Descriptor(0x56, ts::Text("deu") + ts::Bytes{0x10, 0x88});
  ts::Stream stream;
  stream.Section(0, ts::Pat(3, {{1, kPmt}}));
  stream.Section(0x11, ts::Sdt(3, 2, {{1, ts::Text("Lumio"), ts::Text("One")}}));
  stream.Section(
      kPmt,
      ts::Pmt(1, kVideo,
              {{0x02, kVideo, {}}, {0x06, kTeletext, teletext}, {0x0b, kCarousel, ts::Descriptor(0x52, {0x0a})}}));
  return stream;
}

ts::Bytes Sample() {
  std::ifstream file(LUMIO_SAMPLE, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class Hostile : public testing::Test {
protected:
  Hostile() { SubscribeToEverything(); }
  ~Hostile() override {
    broadcast::Close();
    lumio::tv::Shutdown();
  }

  // Plays the stream to its end.
  broadcast::Counts Play(ts::Bytes bytes) {
    const std::string path = directory_ / "stream.ts";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    bytes = {};
    broadcast::Options options;
    options.clock = broadcast::Clock::Virtual;
    options.atEnd = broadcast::AtEnd::LoseSignal;
    const std::size_t before = counted_memory::Held();
    counted_memory::Restart();
    if (!broadcast::Open(path, options)) {
      return {};
    }
    broadcast::Advance(10'000h);
    lumio::tv::Flush();
    EXPECT_TRUE(broadcast::HasEnded());
    EXPECT_LE(counted_memory::Most() - before, kMost);
    const broadcast::Counts counts = broadcast::Counted();
    broadcast::Close();
    return counts;
  }
  broadcast::Counts Play(ts::Stream &stream) { return Play(std::exchange(stream.bytes, {})); }

  lumio::TemporaryDirectory directory_;
  std::mt19937 random_{1};
};

} // namespace

TEST_F(Hostile, TruncatedStreamsEndWhereTheyAreCut) {
  const ts::Bytes sample = Sample();
  for (const std::size_t size : {std::size_t{1}, std::size_t{187}, std::size_t{188}, std::size_t{189},
                                 std::size_t{1000}, std::size_t{100'001}, sample.size() - 1}) {
    const broadcast::Counts counts = Play(ts::Bytes(sample.begin(), sample.begin() + static_cast<long>(size)));
    EXPECT_EQ(counts.packets, size < 1'000'000 ? size / 188 : (size - 1000) / 188) << size; // 1000 are no packets
  }
}

// What it counted and told is there when the end is.
TEST_F(Hostile, AStreamOfOnePacketEndsAtOnce) {
  ts::Stream stream;
  stream.Packet(kVideo, ts::Bytes(184, 1));
  for (unsigned i = 1; i <= 200; ++i) {
    ASSERT_EQ(Play(stream.bytes).packets, 1U);
    ASSERT_EQ(g_ends, i);
  }
}

TEST_F(Hostile, ShuffledPacketsBreakTheContinuity) {
  ts::Bytes sample = Sample();
  sample.resize(1000 * 188);
  std::vector<ts::Bytes> packets;
  for (auto begin = sample.begin(); begin != sample.end(); begin += 188) {
    packets.emplace_back(begin, begin + 188);
  }
  std::shuffle(packets.begin(), packets.end(), random_);
  ts::Bytes shuffled;
  for (const ts::Bytes &packet : packets) {
    shuffled.insert(shuffled.end(), packet.begin(), packet.end());
  }
  const broadcast::Counts counts = Play(std::move(shuffled));
  EXPECT_EQ(counts.packets, 1000U);
  EXPECT_GT(counts.continuityErrors, 700U);
  EXPECT_LT(counts.continuityErrors, 1000U);
  EXPECT_EQ(counts.transportErrors, 0U);
  EXPECT_EQ(counts.syncLosses, 0U);
}

TEST_F(Hostile, FlippedBitsAreCounted) {
  ts::Stream stream = Service();
  for (int i = 0; i < 5000; ++i) {
    stream.Packet(kVideo, ts::Bytes(184, 1));
  }
  const std::size_t tables = stream.Packets() - 5000;
  const auto packet = [&](std::size_t i) { return &stream.bytes[(tables + i) * 188]; };
  for (std::size_t i = 100; i < 1000; i += 100) {
    packet(i)[0] ^= 1;         // no packet
    packet(i + 10)[1] ^= 0x80; // an error, as it says
    packet(i + 20)[3] ^= 4;    // out of turn, and so is the one after it
    packet(i + 30)[1] ^= 0x10; // on another PID
  }
  const broadcast::Counts counts = Play(stream);
  EXPECT_EQ(counts.syncLosses, 9U);
  EXPECT_EQ(counts.transportErrors, 9U);
  EXPECT_EQ(counts.packets, tables + 5000 - 9);
  // After each packet that is missing, erroneous or elsewhere, and two at the one out of turn. On the other PID each
  // comes 100 packets after the last one.
  EXPECT_EQ(counts.continuityErrors, 9U * 5 + 8);
}

TEST_F(Hostile, AnythingIsPlayedToItsEnd) {
  const ts::Bytes sample = Sample();
  for (int round = 0; round < 10; ++round) {
    ts::Bytes bytes(sample.begin(), sample.begin() + 300'000);
    for (int i = 0; i < 300; ++i) {
      bytes[random_() % bytes.size()] ^= static_cast<std::uint8_t>(1U << random_() % 8);
    }
    const auto gap = bytes.begin() + static_cast<long>(random_() % 200'000);
    bytes.erase(gap, gap + static_cast<long>(random_() % 1000));
    const broadcast::Counts counts = Play(bytes);
    EXPECT_LE(counts.packets * 188, bytes.size());
    EXPECT_LE(counts.continuityErrors + counts.transportErrors, counts.packets);
  }
  ts::Bytes any(500'000);
  std::generate(any.begin(), any.end(), [&] { return static_cast<std::uint8_t>(random_()); });
  Play(any);
  for (std::size_t i = 0; i < any.size(); i += 188) {
    any[i] = 0x47;
  }
  EXPECT_EQ(Play(any).packets, any.size() / 188 + 0U);
}

TEST_F(Hostile, SectionsThatLieAboutTheirLengthAreLeftOut) {
  ts::Stream stream = Service();
  for (unsigned length = 0; length < 4096; length += 5) {
    ts::Bytes section =
        ts::Eit(0x50, {2, 3, 1}, {{1, ts::Time(0), ts::Duration(60), ts::Text("A"), {}}}, {length % 32});
    section[1] = static_cast<std::uint8_t>(0xf0 | length >> 8);
    section[2] = static_cast<std::uint8_t>(length);
    stream.Section(0x12, section);
  }
  for (unsigned loop = 0; loop < 4096; loop += 5) { // the checksum is right
    ts::Bytes section = ts::Pmt(1, kVideo, {{0x02, kVideo, ts::Bytes(40, 0x52)}}, {loop % 32});
    section.resize(section.size() - 4);
    section[15] = static_cast<std::uint8_t>(0xf0 | loop >> 8);
    section[16] = static_cast<std::uint8_t>(loop);
    stream.Section(kPmt, section + ts::Be32(ts::Crc(section)));
  }
  EXPECT_EQ(Play(stream).continuityErrors, 0U);
}

TEST_F(Hostile, PesPacketsThatNeverEndAreDroppedAndCounted) {
  ts::Stream stream = Service();
  stream.Pes(kVideo, ts::Pes(0xe0, {1, ts::kNoPts, true}, ts::Bytes(5 << 20, 1)));
  stream.Pes(kTeletext, ts::Pes(0xbd, {1}, ts::Bytes(60'000, 1)));
  stream.Pes(kVideo, ts::Pes(0xe0, {1, ts::kNoPts, true}, ts::Bytes(100, 1)));
  EXPECT_EQ(Play(stream).droppedPes, 1U);
}

TEST_F(Hostile, StreamsOfManyPidsShareTheMemory) {
  SubscribeToSections(0x400, 0x1000);
  ts::Stream stream;
  stream.Section(0, ts::Pat(3, {{1, kPmt}}));
  std::vector<ts::Es> streams;
  for (unsigned pid = 0x200; pid < 0x200 + 200; ++pid) {
    streams.push_back({0x06, pid, {}});
  }
  stream.Section(kPmt, ts::Pmt(1, 0x200, streams));
  for (unsigned round = 0; round < 400; ++round) { // 14 MB of unfinished packets, and sections
    for (unsigned pid = 0x200; pid < 0x200 + 200; ++pid) {
      ts::PacketOptions options;
      options.start = round == 0;
      stream.Packet(pid, round == 0 ? ts::Pes(0xe0, {1, ts::kNoPts, true}, ts::Bytes(150, 1)) : ts::Bytes(184, 1),
                    options);
    }
  }
  for (unsigned pid = 0x20; pid < 0x1fff; ++pid) {
    ts::PacketOptions options;
    options.start = true;
    stream.Packet(pid, ts::Bytes{0, 0x80, 0xbf, 0xfd} + ts::Bytes(180, 1), options);
  }
  const broadcast::Counts counts = Play(stream);
  EXPECT_GT(counts.droppedPes, 50U);
  EXPECT_EQ(counts.continuityErrors, 0U);
}

TEST_F(Hostile, ThousandsOfServicesAreLimited) {
  ts::Stream stream;
  unsigned program = 1;
  for (unsigned number = 0; number < 32; ++number) {
    std::map<unsigned, unsigned> pids;
    std::vector<ts::Named> names;
    for (int i = 0; i < 250; ++i, ++program) {
      pids[program] = 0x20 + program % 0x1f00;
      if (i < 7) {
        names.push_back({program, ts::Bytes(250, 'p'), ts::Bytes(250, 'n')});
      }
    }
    stream.Section(0, ts::Pat(3, pids, {0, number, 31}));
    stream.Section(0x11, ts::Sdt(3, 2, names, {0, number, 31}));
  }
  const ts::Bytes pages = ts::Descriptor(0x56, ts::Bytes(250, 0x10));
  for (unsigned id = 1; id < 8000; id += 8) {
    stream.Section(0x20 + id % 0x1f00, ts::Pmt(id, 0x101, {{6, 0x200, pages}, {6, 0x201, pages}, {6, 0x202, pages}}));
  }
  Play(stream);
}

TEST_F(Hostile, SubtitlesOfManyPagesTakeNoMoreThanTheyMay) {
  constexpr unsigned kStreams = 10, kPages = 40, kSubpages = 20;
  ts::Bytes pages;
  for (unsigned page = 0; page < kPages; ++page) {
    pages = pages + ts::Text("deu") + ts::Bytes{0x10, static_cast<std::uint8_t>(page / 10 << 4 | page % 10)};
  }
  std::vector<ts::Es> streams;
  for (unsigned i = 0; i < kStreams; ++i) {
    streams.push_back({0x06, 0x200 + i, ts::Descriptor(0x56, pages)});
  }
  ts::Stream stream;
  stream.Section(0, ts::Pat(3, {{1, kPmt}}));
  stream.Section(kPmt, ts::Pmt(1, 0x1fff, streams));
  for (unsigned i = 0; i < kStreams; ++i) {
    for (unsigned subpage = 0; subpage < kSubpages; ++subpage) {
      std::vector<ts::Bytes> lines;
      for (unsigned page = 0; page < kPages; ++page) {
        const unsigned number = 0x800 | page / 10 << 4 | page % 10;
        lines.push_back(ts::TeletextHeader(number, true, true, subpage / 10 << 4 | subpage % 10));
        lines.push_back(ts::TeletextRow(number, 1, "any text"));
      }
      stream.Pes(0x200 + i, ts::Pes(0xbd, {subpage}, ts::TeletextPayload(lines)));
    }
  }
  Play(stream);
}

TEST_F(Hostile, EndlessCarouselsTakeNoMoreThanTheyMay) {
  ts::Stream stream = Service();
  // One module as large as the carousels' memory, to eight sessions; then many that are never complete.
  const ts::Module large{1, 0, ts::Bytes(11 << 20, 7)};
  stream.Section(kCarousel, ts::Dii(9, 4000, {large}));
  for (unsigned block = 0; block * 4000 < large.data.size(); ++block) {
    stream.Section(kCarousel, ts::Ddb(9, 4000, large, block));
  }
  for (unsigned download = 10; download < 3000; ++download) {
    const ts::Module module{download, 0, ts::Bytes(3000, 1)};
    stream.Section(kCarousel, ts::Dii(download, 2000, {module}));
    stream.Section(kCarousel, ts::Ddb(download, 2000, module, 0));
    stream.Section(kCarousel, ts::Ddb(download + 100'000, 2000, module, 0)); // never described
  }
  Play(stream);
  EXPECT_EQ(g_modules, 8U);
}

TEST_F(Hostile, ProgrammesThatThereIsNoRoomForAreDroppedWithOneLine) {
  ts::Stream stream = Service();
  unsigned event = 0;
  constexpr std::uint8_t kEuro = 0xa4; // three bytes in UTF-8
  for (unsigned section = 0; section < 2000; ++section) {
    std::vector<ts::Event> events;
    for (int i = 0; i < 12; ++i) {
      ++event;
      events.push_back({event & 0xffff, ts::Time(1'700'000'000 + event * 60), ts::Duration(60),
                        ts::Text(std::to_string(event)), ts::Bytes(230, kEuro)});
    }
    stream.Section(0x12, ts::Eit(0x50 + section / 32 % 16, {2, 3, 1 + section / 128}, events,
                                 {section % 2, section % 32 * 8, 248}));
  }
  for (int i = 0; i < 100; ++i) {
    stream.Pcr(kVideo, i);
  }
  broadcast::Counts counts{};
  const std::string log = StderrOf([&] { counts = Play(stream); });
  constexpr const char *kLine = "broadcast: no room for more programmes, changes are dropped";
  EXPECT_THAT(log, HasSubstr(kLine));
  EXPECT_EQ(log.find(kLine, log.find(kLine) + 1), std::string::npos) << "twice";
  EXPECT_GT(counts.droppedProgrammes, 200U);
  EXPECT_GT(g_programmes, 1000U);
}

// A stream whose clock stands still, or that has none, is played in portions, too.
TEST_F(Hostile, ALoopOfOnePacketDoesNotStopTheClock) {
  ts::Stream stream;
  stream.Packet(kVideo, ts::Bytes(184, 1));
  const std::string path = directory_ / "loop.ts";
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(stream.bytes.data()), 188);
  broadcast::Options options;
  options.clock = broadcast::Clock::RealTime;
  ASSERT_TRUE(broadcast::Open(path, options));
  while (broadcast::Counted().packets < 100) {
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_FALSE(broadcast::HasEnded());
  broadcast::Close();
}
