// Builds transport streams, byte by byte, without the code that reads them.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace ts {

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes a, const Bytes &b);
inline Bytes Text(const std::string &text) { return {text.begin(), text.end()}; }
Bytes Be16(unsigned value);
Bytes Be32(std::uint32_t value);

// How a packet differs from a plain one.
struct PacketOptions {
  bool start = false;
  bool discontinuity = false;
  bool error = false;
  int scrambling = 0;
  std::int64_t pcr = -1; // units of 27 MHz
};

class Stream {
public:
  // A packet with up to 184 bytes of payload, padded by the adaptation field. Without payload the counter stays.
  void Packet(unsigned pid, const Bytes &payload, const PacketOptions &options = {});
  void Null();
  void Pcr(unsigned pid, double seconds, bool discontinuity = false);
  // Sections one after the other, in as few packets as possible; the last one is stuffed.
  void Sections(unsigned pid, const std::vector<Bytes> &sections);
  // Payload of the next packet of sections, in bytes; 184 by default, at least 2.
  std::function<std::size_t()> room = [] { return 184; };
  void Section(unsigned pid, const Bytes &section) { Sections(pid, {section}); }
  // A PES packet in packets of its own.
  void Pes(unsigned pid, const Bytes &pes);
  // The next packet of the PID has this many more in its counter than it should.
  void Skip(unsigned pid, int count) { counters_[pid] += count; }
  void Append(const Bytes &raw) { bytes.insert(bytes.end(), raw.begin(), raw.end()); }

  std::size_t Packets() const { return bytes.size() / 188; }
  Bytes bytes;

private:
  std::map<unsigned, int> counters_;
};

// Each packet with bytes before and after it.
Bytes Framed(const Bytes &stream, std::size_t before, std::size_t after);

std::uint32_t Crc(const Bytes &bytes);

Bytes ShortSection(unsigned table_id, const Bytes &body);
struct Numbers {
  unsigned version = 0;
  unsigned number = 0;
  unsigned last = 0;
  bool current = true;
};
Bytes LongSection(unsigned table_id, unsigned extension, const Numbers &numbers, const Bytes &body);

Bytes Descriptor(unsigned tag, const Bytes &content);
Bytes Loop(const Bytes &content, unsigned high_bits = 0xf000); // after its length of 12 bits

Bytes Pat(unsigned stream_id, const std::map<unsigned, unsigned> &pids, const Numbers &numbers = {});
struct Es {
  unsigned type;
  unsigned pid;
  Bytes descriptors;
};
Bytes Pmt(unsigned program, unsigned pcr_pid, const std::vector<Es> &streams, const Numbers &numbers = {},
          const Bytes &descriptors = {});
struct Named {
  unsigned id;
  Bytes provider;
  Bytes name;
};
Bytes Sdt(unsigned stream_id, unsigned network_id, const std::vector<Named> &services, const Numbers &numbers = {},
          unsigned table_id = 0x42);
struct Event {
  unsigned id;
  Bytes start;    // five bytes
  Bytes duration; // three bytes
  Bytes title;
  Bytes text;
};
struct EventService {
  unsigned network_id = 1;
  unsigned stream_id = 1;
  unsigned id = 1;
};
Bytes Eit(unsigned table_id, const EventService &service, const std::vector<Event> &events,
          const Numbers &numbers = {});
Bytes Time(std::int64_t epoch);
Bytes Duration(unsigned seconds);

constexpr std::uint64_t kNoPts = ~std::uint64_t{0};
struct PesTimes {
  std::uint64_t pts = kNoPts;
  std::uint64_t dts = kNoPts;
  bool unbounded = false;
};
Bytes Pes(unsigned stream_id, const PesTimes &times, const Bytes &payload);

// Carousel messages.
struct Module {
  unsigned id;
  unsigned version;
  Bytes data;
};
Bytes Dii(std::uint32_t download, unsigned block_size, const std::vector<Module> &modules, unsigned version = 0);
Bytes Ddb(std::uint32_t download, unsigned block_size, const Module &module, unsigned block);

// A PES payload of teletext lines: page header and rows.
Bytes TeletextHeader(unsigned page, bool erase = true, bool subtitle = true, unsigned subpage = 0);
Bytes TeletextRow(unsigned page, unsigned row, const std::string &text, bool boxed = true);
Bytes TeletextPayload(const std::vector<Bytes> &lines);

// Line 21: pairs of a field with parity, as MPEG-2 or H.264 user data of a picture.
struct Pair {
  int field; // 0 or 1
  unsigned first;
  unsigned second;
};
Bytes CcData(const std::vector<Pair> &pairs);
Bytes Mpeg2Picture(unsigned temporal_reference, const std::vector<Pair> &pairs);
Bytes H264Picture(const std::vector<Pair> &pairs);

} // namespace ts
