// The packets of a stream: where they are, and whether they follow each other.
#include <gmock/gmock.h>

#include "continuity.h"
#include "packet_reader.h"
#include "transport_stream.h"

using namespace lumio::broadcast;
using ts::operator+;

namespace {

// `count` packets of PID 0x100 whose payload tells their number.
ts::Stream Numbered(int count) {
  ts::Stream stream;
  for (int i = 0; i < count; ++i) {
    stream.Packet(0x100, ts::Bytes(184, static_cast<std::uint8_t>(i)));
  }
  return stream;
}

struct Read {
  std::vector<int> numbers;
  unsigned stride;
  std::uint64_t losses;
};

Read ReadAll(const ts::Bytes &bytes) {
  MemorySource source{Bytes(bytes)};
  PacketReader reader(source);
  Read result{};
  while (const std::uint8_t *packet = reader.Next()) {
    result.numbers.push_back(packet[187]);
  }
  result.stride = reader.Stride();
  result.losses = reader.SyncLosses();
  return result;
}

std::vector<int> operator+(std::vector<int> a, const std::vector<int> &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

std::vector<int> UpTo(int count) {
  std::vector<int> numbers;
  for (int i = 0; i < count; ++i) {
    numbers.push_back(i);
  }
  return numbers;
}

} // namespace

TEST(PacketReader, FindsPacketsOf188Bytes) {
  const Read read = ReadAll(Numbered(10).bytes);
  EXPECT_EQ(read.numbers, UpTo(10));
  EXPECT_EQ(read.stride, 188U);
  EXPECT_EQ(read.losses, 0U);
}

TEST(PacketReader, FindsPacketsBehindTimeStamps) {
  const Read read = ReadAll(ts::Framed(Numbered(10).bytes, 4, 0));
  EXPECT_EQ(read.numbers, UpTo(10));
  EXPECT_EQ(read.stride, 192U);
  EXPECT_EQ(read.losses, 0U);
}

TEST(PacketReader, FindsPacketsBeforeChecksums) {
  const Read read = ReadAll(ts::Framed(Numbered(10).bytes, 0, 16));
  EXPECT_EQ(read.numbers, UpTo(10));
  EXPECT_EQ(read.stride, 204U);
  EXPECT_EQ(read.losses, 0U);
}

TEST(PacketReader, IsNotMisledByASyncByteInAChecksum) {
  ts::Bytes bytes = ts::Framed(Numbered(10).bytes, 0, 16);
  bytes[188] = 0x47; // as if the next packet began here
  const Read read = ReadAll(bytes);
  EXPECT_EQ(read.numbers, UpTo(10));
  EXPECT_EQ(read.stride, 204U);
}

TEST(PacketReader, FindsEvenOnePacket) {
  for (int count = 1; count < 7; ++count) {
    const Read read = ReadAll(Numbered(count).bytes);
    EXPECT_EQ(read.numbers, UpTo(count));
    EXPECT_EQ(read.losses, 0U);
  }
}

TEST(PacketReader, FindsNothingWhereThereIsNothing) {
  EXPECT_THAT(ReadAll({}).numbers, testing::IsEmpty());
  EXPECT_THAT(ReadAll(ts::Bytes(5'000'000, 0x46)).numbers, testing::IsEmpty());
  EXPECT_THAT(ReadAll(ts::Bytes(187, 0x47)).numbers, testing::IsEmpty());
}

TEST(PacketReader, DoesNotCountWhatStandsBeforeTheFirstPacket) {
  for (const std::size_t junk : {1, 187, 5000, 3'000'000}) {
    const Read read = ReadAll(ts::Bytes(junk, 0x46) + Numbered(10).bytes);
    EXPECT_EQ(read.numbers, UpTo(10)) << junk;
    EXPECT_EQ(read.losses, 0U) << junk;
  }
}

TEST(PacketReader, CountsOneLossForEachRunOfSkippedBytes) {
  ts::Stream stream = Numbered(60);
  stream.bytes[20 * 188] = 0x00; // one packet
  stream.bytes[30 * 188] = 0x00; // two
  stream.bytes[31 * 188] = 0x00;
  const ts::Bytes between(77, 0x47); // looks like the beginning of packets
  stream.bytes.insert(stream.bytes.begin() + 50 * 188, between.begin(), between.end());
  std::vector<int> numbers = UpTo(60);
  numbers.erase(numbers.begin() + 30, numbers.begin() + 32);
  numbers.erase(numbers.begin() + 20);
  const Read read = ReadAll(stream.bytes);
  EXPECT_EQ(read.losses, 3U);
  EXPECT_THAT(read.numbers, testing::IsSupersetOf(std::vector<int>(numbers.begin(), numbers.begin() + 40)));
  EXPECT_EQ(read.numbers.back(), 59);
}

TEST(PacketReader, RegainsSynchronisationWhereBytesAreMissing) {
  ts::Stream stream = Numbered(20);
  stream.bytes.erase(stream.bytes.begin() + 5 * 188 + 100, stream.bytes.begin() + 5 * 188 + 150);
  const Read read = ReadAll(stream.bytes);
  EXPECT_EQ(read.losses, 1U);
  EXPECT_EQ(read.numbers.size(), 19U); // the packet after the broken one begins too early
  EXPECT_EQ(read.numbers.back(), 19);
}

TEST(PacketReader, IsNotMisledBySyncBytesInNoise) {
  for (const std::size_t from : {0, 1, 50, 187, 188, 300}) {
    ts::Stream stream = Numbered(10);
    ts::Bytes noise(400, 0x11);
    noise[0] = 0x00;
    noise[from == 0 ? 1 : from] = 0x47;
    stream.Append(noise + Numbered(10).bytes);
    const Read read = ReadAll(stream.bytes);
    EXPECT_EQ(read.numbers, UpTo(10) + UpTo(10)) << from;
    EXPECT_EQ(read.losses, 1U);
  }
}

TEST(PacketReader, StartsWithTheFirstPacketAlsoWhenOneOfTheNextIsDamaged) {
  ts::Stream stream = Numbered(20);
  stream.bytes[3 * 188] = 0x00;
  const Read read = ReadAll(stream.bytes);
  EXPECT_EQ(read.numbers.size(), 19U);
  EXPECT_EQ(read.numbers.front(), 0);
  EXPECT_EQ(read.losses, 1U);
}

TEST(PacketReader, LeavesOutAPacketThatIsCutOff) {
  ts::Stream stream = Numbered(20);
  stream.bytes.resize(stream.bytes.size() - 1);
  EXPECT_EQ(ReadAll(stream.bytes).numbers, UpTo(19));
  EXPECT_EQ(ReadAll(stream.bytes).losses, 0U);
  stream.Append(ts::Bytes(1000, 0x00));
  EXPECT_EQ(ReadAll(stream.bytes).losses, 1U);
}

TEST(PacketReader, StartsAgain) {
  const ts::Stream stream = Numbered(9);
  MemorySource source{Bytes(stream.bytes)};
  PacketReader reader(source);
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 9; ++i) {
      const std::uint8_t *packet = reader.Next();
      ASSERT_TRUE(packet);
      EXPECT_EQ(packet[187], i);
    }
    EXPECT_FALSE(reader.Next());
    EXPECT_TRUE(reader.Rewind());
  }
}

TEST(PacketReader, ReadsMoreThanItsBuffer) {
  ts::Stream stream;
  for (int i = 0; i < 12'000; ++i) {
    stream.bytes.insert(stream.bytes.end(), {0x47, 0x01, 0x00, 0x10});
    stream.bytes.resize(stream.bytes.size() + 184, static_cast<std::uint8_t>(i));
  }
  for (const ts::Bytes &bytes : {stream.bytes, ts::Framed(stream.bytes, 4, 0), ts::Framed(stream.bytes, 0, 16)}) {
    const Read read = ReadAll(bytes);
    ASSERT_EQ(read.numbers.size(), 12'000U);
    for (int i = 0; i < 12'000; ++i) {
      ASSERT_EQ(read.numbers[static_cast<std::size_t>(i)], i & 0xff);
    }
  }
}

TEST(PacketReader, ReadsInBlocksAndAgain) {
  ts::Stream stream;
  for (int i = 0; i < 300; ++i) {
    stream.Packet(0x100, ts::Bytes(184, static_cast<std::uint8_t>(i)));
  }
  for (const std::size_t block : {2048, 1920, 100'000}) { // blocks that end in a packet, with one, and with the stream
    const ts::Bytes bytes = ts::Framed(stream.bytes, 4, 0);
    MemorySource source{Bytes(bytes)};
    PacketReader reader(source, block);
    for (int round = 0; round < 2; ++round) {
      for (int i = 0; i < 300; ++i) {
        const std::uint8_t *packet = reader.Next();
        ASSERT_TRUE(packet);
        ASSERT_EQ(packet[187], i & 0xff);
      }
      EXPECT_FALSE(reader.Next());
      EXPECT_FALSE(reader.Next());
      EXPECT_TRUE(reader.Rewind());
    }
    EXPECT_EQ(reader.SyncLosses(), 0U); // what stands before the first packet is none, when it is read again, too
  }
}

TEST(PacketReader, ReadsRuns) {
  ts::Stream stream = Numbered(600);
  stream.bytes[400 * 188] = 0x00;
  MemorySource source{Bytes(stream.bytes)};
  PacketReader reader(source, 300 * 188);
  std::vector<std::size_t> counts;
  for (PacketRun run = reader.NextRun(); run.count > 0; run = reader.NextRun()) {
    EXPECT_EQ(run.stride, 188U);
    counts.push_back(run.count);
  }
  EXPECT_THAT(counts, testing::ElementsAre(256, 44, 100, 199));
  EXPECT_EQ(reader.SyncLosses(), 1U);
}

TEST(ByteSource, TellsWhyAFileCannotBeRead) {
  EXPECT_EQ(FileSource().Open("/nonexistent/stream.ts"), ENOENT);
  EXPECT_EQ(FileSource().Open("/tmp"), EISDIR);
}

namespace {

std::vector<Continuity> CheckAll(const ts::Stream &stream) {
  ContinuityCounter counter;
  std::vector<Continuity> results;
  for (std::size_t i = 0; i < stream.bytes.size(); i += 188) {
    results.push_back(counter.Check(Packet(&stream.bytes[i])));
  }
  return results;
}

constexpr Continuity kFollows = Continuity::kFollows;

} // namespace

TEST(Continuity, FollowsThroughTheWholeCycle) { EXPECT_THAT(CheckAll(Numbered(40)), testing::Each(kFollows)); }

TEST(Continuity, BreaksWherePacketsAreMissing) {
  ts::Stream stream = Numbered(2);
  stream.Skip(0x100, 3);
  stream.Packet(0x100, ts::Bytes(184, 7));
  stream.Packet(0x100, ts::Bytes(184, 8));
  EXPECT_THAT(CheckAll(stream), testing::ElementsAre(kFollows, kFollows, Continuity::kBroken, kFollows));
}

TEST(Continuity, AllowsARepetitionOnce) {
  ts::Stream stream = Numbered(1);
  for (int i = 0; i < 2; ++i) {
    stream.Skip(0x100, -1);
    stream.Packet(0x100, ts::Bytes(184, 0));
  }
  stream.Packet(0x100, ts::Bytes(184, 9));
  EXPECT_THAT(CheckAll(stream), testing::ElementsAre(kFollows, Continuity::kRepeats, Continuity::kBroken, kFollows));
}

TEST(Continuity, ComparesWithAPacketThatIsNoLongerThere) {
  ts::Stream stream = Numbered(1);
  stream.Skip(0x100, -1);
  stream.Packet(0x100, ts::Bytes(184, 0));
  ContinuityCounter counter;
  ts::Bytes packet(stream.bytes.begin(), stream.bytes.begin() + 188);
  EXPECT_EQ(counter.Check(Packet(packet.data())), kFollows);
  counter.Keep();
  packet.assign(188, 0xee);
  EXPECT_EQ(counter.Check(Packet(&stream.bytes[188])), Continuity::kRepeats);
}

TEST(Continuity, DoesNotTakeAnotherPacketForARepetition) {
  ts::Stream stream = Numbered(1);
  stream.Skip(0x100, -1);
  stream.Packet(0x100, ts::Bytes(184, 77));
  EXPECT_THAT(CheckAll(stream), testing::ElementsAre(kFollows, Continuity::kBroken));
}

TEST(Continuity, ComparesTheWholePayload) {
  for (const auto &[first, second] : {std::pair(184, 100), std::pair(100, 184)}) {
    ts::Stream stream;
    stream.Packet(0x100, ts::Bytes(static_cast<std::size_t>(first), 7));
    stream.Skip(0x100, -1);
    stream.Packet(0x100, ts::Bytes(static_cast<std::size_t>(second), 7));
    EXPECT_THAT(CheckAll(stream), testing::ElementsAre(kFollows, Continuity::kBroken));
  }
}

TEST(Continuity, IsNotRepeatedWhereTheStreamJumps) {
  ts::Stream stream;
  stream.Packet(0x100, ts::Bytes(100, 7));
  stream.Skip(0x100, -1);
  ts::PacketOptions options;
  options.discontinuity = true;
  stream.Packet(0x100, ts::Bytes(100, 7), options);
  EXPECT_THAT(CheckAll(stream), testing::ElementsAre(kFollows, Continuity::kJumps));
}

TEST(Continuity, JumpsWhereTheStreamSaysSo) {
  ts::Stream stream = Numbered(1);
  stream.Skip(0x100, 5);
  ts::PacketOptions options;
  options.discontinuity = true;
  stream.Packet(0x100, ts::Bytes(100, 1), options);
  stream.Packet(0x100, ts::Bytes(184, 2));
  stream.Packet(0x100, {}, options); // a packet without payload says it of the next one
  stream.Skip(0x100, 5);
  stream.Packet(0x100, ts::Bytes(184, 3));
  EXPECT_THAT(CheckAll(stream), testing::ElementsAre(kFollows, Continuity::kJumps, kFollows, kFollows, kFollows));
}

TEST(Continuity, LeavesOutPacketsWithoutPayload) {
  ts::Stream stream = Numbered(1);
  stream.Pcr(0x100, 1);
  stream.Skip(0x100, 7);
  stream.Pcr(0x100, 2);
  stream.Skip(0x100, -7);
  stream.Packet(0x100, ts::Bytes(184, 2));
  EXPECT_THAT(CheckAll(stream), testing::Each(kFollows));
}
