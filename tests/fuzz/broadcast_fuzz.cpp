// Feeds arbitrary bytes to everything that reads transport streams. Nothing may crash, hang or exceed its memory limit.
// scripts/fuzz builds and runs it.
#include <cstdint>
#include <cstdlib>

#include "made_stream.h"
#include "packet_reader.h"
#include "statistics.h"
#include "text.h"

namespace broadcast = lumio::broadcast;
using broadcast::Bytes;

namespace {

void Check(bool holds) {
  if (!holds) {
    std::abort();
  }
}

void ReadStream(Bytes bytes) {
  broadcast::MemorySource source(bytes);
  broadcast::PacketReader reader(source, 8192); // a small buffer is allocated sooner
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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const Bytes bytes(data, size);
  if (size > 0 && data[0] == broadcast::kSyncByte) {
    ReadStream(bytes);
  } else {
    ReadStream(Bytes(fuzz::StreamOf(bytes).bytes));
  }
  const std::string text = broadcast::DecodeText(bytes.First(255));
  Check(broadcast::ValidUtf8(text) == text);
  return 0;
}
