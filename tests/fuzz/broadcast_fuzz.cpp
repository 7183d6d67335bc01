// Feeds any bytes to all that reads transport streams: nothing may crash, hang or take more than its memory.
// scripts/fuzz builds and runs it.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "packet_reader.h"
#include "statistics.h"
#include "text.h"
#include "transport_stream.h"

namespace broadcast = lumio::broadcast;
using broadcast::Bytes;
using ts::operator+;

namespace {

void Check(bool holds) {
  if (!holds) {
    std::abort();
  }
}

void ReadStream(Bytes bytes) {
  broadcast::MemorySource source(bytes);
  broadcast::PacketReader reader(source, 8192); // a small one is made sooner
  broadcast::Statistics statistics;
  statistics.Read(reader);
  const broadcast::PacketCounts &counts = statistics.Counts();
  Check(counts.packets * broadcast::kPacketSize <= bytes.size());
  Check(counts.transport_errors + counts.continuity_errors <= counts.packets);
  Check(reader.SyncLosses() <= bytes.size());
  for (const auto &entry : statistics.Services().Services()) {
    statistics.IsScrambled(entry.second);
    if (const broadcast::ServiceProgrammes *programmes = statistics.AllProgrammes().FindOwn(entry.first)) {
      programmes->List();
      programmes->IsScheduleComplete();
    }
  }
  statistics.Tables();
  statistics.Captions();
}

// A section with the length and the checksum that it needs to be read.
ts::Bytes Mended(ts::Bytes section) {
  section.resize(std::clamp<std::size_t>(section.size(), 8, 4092));
  const std::size_t length = section.size() + 4 - 3;
  section[1] = static_cast<std::uint8_t>((section[1] & 0xf0) | length >> 8);
  section[2] = static_cast<std::uint8_t>(length);
  return section + ts::Be32(ts::Crc(section));
}

constexpr unsigned kPmt = 0x100, kVideo = 0x101, kH264 = 0x102, kTeletext = 0x103, kCarousel = 0x104;

// The input as chunks of a kind, a length and bytes: what stands in a stream whose packets and checksums are right.
ts::Stream StreamOf(Bytes input) {
  constexpr unsigned kSectionPids[] = {0x00, 0x11, 0x12, 0x14, kPmt, kCarousel};
  constexpr unsigned kPesPids[] = {kVideo, kH264, kTeletext};
  ts::Stream stream;
  const ts::Bytes pages = ts::Descriptor(0x56, ts::Text("deu") + ts::Bytes{0x10, 0x88});
  stream.Section(0x00, ts::Pat(1, {{1, kPmt}}));
  stream.Section(
      kPmt,
      ts::Pmt(1, kVideo, {{0x02, kVideo, {}}, {0x1b, kH264, {}}, {0x06, kTeletext, pages}, {0x0b, kCarousel, {}}}));
  std::uint64_t time = 0;
  while (input.size() > 3) {
    const unsigned kind = input[0];
    const std::size_t size = input.Get16(1) % 4096;
    const ts::Bytes chunk = input.From(3).First(size).Copy();
    input = input.From(3 + size);
    if (kind % 2 == 0) {
      stream.Section(kSectionPids[kind / 2 % std::size(kSectionPids)], Mended(chunk));
    } else {
      time += kind;
      stream.Pes(kPesPids[kind / 2 % std::size(kPesPids)], ts::Pes(kind > 127 ? 0xbd : 0xe0, {time, time}, chunk));
    }
  }
  return stream;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const Bytes bytes(data, size);
  if (size > 0 && data[0] == broadcast::kSyncByte) {
    ReadStream(bytes);
  } else {
    ReadStream(Bytes(StreamOf(bytes).bytes));
  }
  const std::string text = broadcast::DecodeText(bytes.First(255));
  Check(broadcast::ValidUtf8(text) == text);
  return 0;
}
