#include "transport_stream.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace ts {

namespace {

unsigned Bcd(unsigned value) { return value / 10 << 4 | value % 10; }
std::uint8_t Byte(std::uint64_t value) { return static_cast<std::uint8_t>(value); }

std::uint8_t Odd(unsigned value) { return Byte(value | (__builtin_parity(value) != 0 ? 0 : 0x80)); }

std::uint8_t Hamming(unsigned value) {
  static constexpr std::uint8_t kCodes[] = {0x15, 0x02, 0x49, 0x5e, 0x64, 0x73, 0x38, 0x2f,
                                            0xd0, 0xc7, 0x8c, 0x9b, 0xa1, 0xb6, 0xfd, 0xea};
  return kCodes[value & 0xf];
}

std::uint8_t Reversed(std::uint8_t byte) {
  std::uint8_t result = 0;
  for (int i = 0; i < 8; ++i) {
    result = Byte(result | (byte >> i & 1) << (7 - i));
  }
  return result;
}

Bytes PesTime(unsigned prefix, std::uint64_t time) {
  return {Byte(prefix << 4 | (time >> 30 & 7) << 1 | 1), Byte(time >> 22), Byte((time >> 14 & 0xfe) | 1),
          Byte(time >> 7), Byte((time << 1 & 0xfe) | 1)};
}

} // namespace

Bytes operator+(Bytes a, const Bytes &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Bytes Be16(unsigned value) { return {Byte(value >> 8), Byte(value)}; }
Bytes Be32(std::uint32_t value) { return Be16(value >> 16) + Be16(value & 0xffff); }

void Stream::Packet(unsigned pid, const Bytes &payload, const PacketOptions &options) {
  int &counter = counters_[pid];
  Bytes packet = {0x47, Byte((options.error ? 0x80 : 0) | (options.start ? 0x40 : 0) | pid >> 8), Byte(pid)};
  const std::size_t left = 184 - payload.size();
  Bytes adaptation;
  if (left > 0 || options.pcr >= 0 || options.discontinuity) {
    adaptation = {Byte(left - 1)};
    if (left > 1) {
      adaptation.push_back(Byte((options.discontinuity ? 0x80 : 0) | (options.pcr >= 0 ? 0x10 : 0)));
    }
    if (options.pcr >= 0) {
      const std::uint64_t base = static_cast<std::uint64_t>(options.pcr) / 300;
      const std::uint64_t extension = static_cast<std::uint64_t>(options.pcr) % 300;
      adaptation = adaptation + Bytes{Byte(base >> 25),
                                      Byte(base >> 17),
                                      Byte(base >> 9),
                                      Byte(base >> 1),
                                      Byte((base & 1) << 7 | 0x7e | extension >> 8),
                                      Byte(extension)};
    }
    adaptation.resize(left, 0xff);
  }
  const int control = (adaptation.empty() ? 0 : 2) | (payload.empty() ? 0 : 1);
  packet.push_back(Byte(options.scrambling << 6 | control << 4 | ((payload.empty() ? counter + 15 : counter) & 15)));
  counter += payload.empty() ? 0 : 1;
  Append(packet + adaptation + payload);
}

void Stream::Null() {
  Bytes packet = {0x47, 0x1f, 0xff, 0x10};
  packet.resize(188, 0xff);
  Append(packet);
}

void Stream::Pcr(unsigned pid, double seconds, bool discontinuity) {
  PacketOptions options;
  options.pcr = static_cast<std::int64_t>(seconds * 27e6);
  options.discontinuity = discontinuity;
  Packet(pid, {}, options);
}

void Stream::Sections(unsigned pid, const std::vector<Bytes> &sections) {
  Bytes all;
  std::vector<std::size_t> starts;
  for (const Bytes &section : sections) {
    starts.push_back(all.size());
    all.insert(all.end(), section.begin(), section.end());
  }
  std::size_t position = 0;
  std::size_t next = 0; // start of a section that is not in a packet yet
  while (position < all.size()) {
    // A packet in which a section starts has a pointer to it.
    std::size_t size = room();
    const bool starts_here = next < starts.size() && starts[next] < position + size - 1;
    if (!starts_here && next < starts.size()) {
      size = std::min(size, starts[next] - position); // there would be no room for a pointer
    }
    Bytes payload;
    if (starts_here) {
      payload.push_back(Byte(starts[next] - position));
    }
    const std::size_t count = std::min(all.size() - position, size - payload.size());
    payload.insert(payload.end(), all.begin() + static_cast<long>(position),
                   all.begin() + static_cast<long>(position + count));
    payload.resize(size, 0xff);
    position += count;
    while (next < starts.size() && starts[next] < position) {
      ++next;
    }
    PacketOptions options;
    options.start = starts_here;
    Packet(pid, payload, options);
  }
}

void Stream::Pes(unsigned pid, const Bytes &pes) {
  for (std::size_t position = 0; position < pes.size(); position += 184) {
    const std::size_t end = std::min(pes.size(), position + 184);
    PacketOptions options;
    options.start = position == 0;
    Packet(pid, Bytes(pes.begin() + static_cast<long>(position), pes.begin() + static_cast<long>(end)), options);
  }
}

Bytes Framed(const Bytes &stream, std::size_t before, std::size_t after) {
  Bytes result;
  for (std::size_t i = 0; i < stream.size(); i += 188) {
    result.insert(result.end(), before, 0x11);
    result.insert(result.end(), stream.begin() + static_cast<long>(i), stream.begin() + static_cast<long>(i + 188));
    result.insert(result.end(), after, 0x22);
  }
  return result;
}

std::uint32_t Crc(const Bytes &bytes) {
  static const std::array<std::uint32_t, 256> kEffects = [] {
    std::array<std::uint32_t, 256> effects{}; // of a byte
    for (std::uint32_t byte = 0; byte < effects.size(); ++byte) {
      effects[byte] = byte << 24;
      for (int bit = 0; bit < 8; ++bit) {
        effects[byte] = effects[byte] << 1 ^ ((effects[byte] >> 31) != 0 ? 0x04c11db7 : 0);
      }
    }
    return effects;
  }();
  std::uint32_t crc = 0xffffffff;
  for (const std::uint8_t byte : bytes) {
    crc = crc << 8 ^ kEffects[crc >> 24 ^ byte];
  }
  return crc;
}

Bytes ShortSection(unsigned table_id, const Bytes &body) {
  return Bytes{Byte(table_id), Byte(0x70 | body.size() >> 8), Byte(body.size())} + body;
}

Bytes LongSection(unsigned table_id, unsigned extension, const Numbers &numbers, const Bytes &body) {
  const std::size_t length = 5 + body.size() + 4;
  const Bytes section =
      Bytes{Byte(table_id), Byte(0xb0 | length >> 8), Byte(length)} + Be16(extension) +
      Bytes{Byte(0xc0 | numbers.version << 1 | (numbers.current ? 1 : 0)), Byte(numbers.number), Byte(numbers.last)} +
      body;
  return section + Be32(Crc(section));
}

Bytes Descriptor(unsigned tag, const Bytes &content) { return Bytes{Byte(tag), Byte(content.size())} + content; }
Bytes Loop(const Bytes &content, unsigned high_bits) {
  return Be16(high_bits | static_cast<unsigned>(content.size())) + content;
}

Bytes Pat(unsigned stream_id, const std::map<unsigned, unsigned> &pids, const Numbers &numbers) {
  Bytes body;
  for (const auto &[program, pid] : pids) {
    body = body + Be16(program) + Be16(0xe000 | pid);
  }
  return LongSection(0x00, stream_id, numbers, body);
}

Bytes Pmt(unsigned program, unsigned pcr_pid, const std::vector<Es> &streams, const Numbers &numbers,
          const Bytes &descriptors) {
  Bytes body = Be16(0xe000 | pcr_pid) + Loop(descriptors);
  for (const Es &stream : streams) {
    body = body + Bytes{Byte(stream.type)} + Be16(0xe000 | stream.pid) + Loop(stream.descriptors);
  }
  return LongSection(0x02, program, numbers, body);
}

Bytes Sdt(unsigned stream_id, unsigned network_id, const std::vector<Named> &services, const Numbers &numbers,
          unsigned table_id) {
  Bytes body = Be16(network_id) + Bytes{0xff};
  for (const Named &service : services) {
    const Bytes content =
        Bytes{0x01, Byte(service.provider.size())} + service.provider + Bytes{Byte(service.name.size())} + service.name;
    body = body + Be16(service.id) + Bytes{0xff} + Loop(Descriptor(0x48, content), 0x8000);
  }
  return LongSection(table_id, stream_id, numbers, body);
}

Bytes Eit(unsigned table_id, const EventService &service, const std::vector<Event> &events, const Numbers &numbers) {
  Bytes body = Be16(service.stream_id) + Be16(service.network_id) + Bytes{Byte(numbers.last), Byte(table_id)};
  for (const Event &event : events) {
    const Bytes content =
        Text("eng") + Bytes{Byte(event.title.size())} + event.title + Bytes{Byte(event.text.size())} + event.text;
    body = body + Be16(event.id) + event.start + event.duration + Loop(Descriptor(0x4d, content), 0x8000);
  }
  return LongSection(table_id, service.id, numbers, body);
}

Bytes Time(std::int64_t epoch) {
  return Be16(static_cast<unsigned>(epoch / 86400 + 40587)) + Duration(static_cast<unsigned>(epoch % 86400));
}

Bytes Duration(unsigned seconds) {
  return {Byte(Bcd(seconds / 3600)), Byte(Bcd(seconds / 60 % 60)), Byte(Bcd(seconds % 60))};
}

Bytes Pes(unsigned stream_id, const PesTimes &times, const Bytes &payload) {
  Bytes optional;
  if (times.pts != kNoPts) {
    optional = PesTime(times.dts == kNoPts ? 2 : 3, times.pts);
  }
  if (times.dts != kNoPts) {
    optional = optional + PesTime(1, times.dts);
  }
  const unsigned flags = (times.pts != kNoPts ? 0x80U : 0U) | (times.dts != kNoPts ? 0x40U : 0U);
  const std::size_t length = times.unbounded ? 0 : 3 + optional.size() + payload.size();
  return Bytes{0, 0, 1, Byte(stream_id)} + Be16(static_cast<unsigned>(length)) +
         Bytes{0x80, Byte(flags), Byte(optional.size())} + optional + payload;
}

namespace {

Bytes Message(unsigned id, std::uint32_t transaction, const Bytes &body) {
  return Bytes{0x11, 0x03} + Be16(id) + Be32(transaction) + Bytes{0xff, 0x00} +
         Be16(static_cast<unsigned>(body.size())) + body;
}

} // namespace

Bytes Dii(std::uint32_t download, unsigned block_size, const std::vector<Module> &modules, unsigned version) {
  Bytes body = Be32(download) + Be16(block_size) + Bytes{0, 0} + Be32(0) + Be32(0) + Be16(0) +
               Be16(static_cast<unsigned>(modules.size()));
  for (const Module &module : modules) {
    body =
        body + Be16(module.id) + Be32(static_cast<std::uint32_t>(module.data.size())) + Bytes{Byte(module.version), 0};
  }
  const std::uint32_t transaction = 0x80000002 | version << 16;
  return LongSection(0x3b, transaction & 0xffff, {0, 0, 0}, Message(0x1002, transaction, body + Be16(0)));
}

Bytes Ddb(std::uint32_t download, unsigned block_size, const Module &module, unsigned block) {
  const std::size_t start = std::size_t{block} * block_size;
  const std::size_t end = std::min(module.data.size(), start + block_size);
  const Bytes data(module.data.begin() + static_cast<long>(start), module.data.begin() + static_cast<long>(end));
  const Bytes body = Be16(module.id) + Bytes{Byte(module.version), 0xff} + Be16(block) + data;
  return LongSection(0x3c, module.id, {module.version & 0x1f, block & 0xff, block & 0xff},
                     Message(0x1003, download, body));
}

namespace {

Bytes TeletextLine(unsigned page, unsigned row, const Bytes &rest) {
  const unsigned address = (page >> 8 & 7) | row << 3;
  return Bytes{Hamming(address & 0xf), Hamming(address >> 4)} + rest;
}

} // namespace

Bytes TeletextHeader(unsigned page, bool erase, bool subtitle, unsigned subpage) {
  // Page number, subpage with the erase flag (C4), subtitle flag (C6), no other control bits.
  Bytes rest = {Hamming(page & 0xf),
                Hamming(page >> 4 & 0xf),
                Hamming(subpage & 0xf),
                Hamming((erase ? 8 : 0) | (subpage >> 4 & 7)),
                Hamming(0),
                Hamming(subtitle ? 8 : 0),
                Hamming(0),
                Hamming(0)};
  rest.resize(8 + 32, Odd(' '));
  return TeletextLine(page, 0, rest);
}

Bytes TeletextRow(unsigned page, unsigned row, const std::string &text, bool boxed) {
  Bytes rest = boxed ? Bytes{Odd(0x0b), Odd(0x0b)} : Bytes{};
  for (const char letter : text) {
    rest.push_back(Odd(static_cast<unsigned char>(letter)));
  }
  if (boxed) {
    rest = rest + Bytes{Odd(0x0a), Odd(0x0a)};
  }
  rest.resize(40, Odd(' '));
  return TeletextLine(page, row, rest);
}

Bytes TeletextPayload(const std::vector<Bytes> &lines) {
  Bytes payload = {0x10};
  for (const Bytes &line : lines) {
    payload = payload + Bytes{0x03, 44, 0xe7, 0xe4};
    std::transform(line.begin(), line.end(), std::back_inserter(payload), Reversed);
  }
  return payload;
}

Bytes CcData(const std::vector<Pair> &pairs) {
  Bytes data = {Byte(0xc0 | pairs.size()), 0xff};
  for (const Pair &pair : pairs) {
    data = data + Bytes{Byte(0xfc | pair.field), Odd(pair.first), Odd(pair.second)};
  }
  return data + Bytes{0xff};
}

Bytes Mpeg2Picture(unsigned temporal_reference, const std::vector<Pair> &pairs) {
  return Bytes{0, 0, 1, 0} + Be16(temporal_reference << 6) + Bytes{0xff, 0xf8} +
         (pairs.empty() ? Bytes{} : Bytes{0, 0, 1, 0xb2} + Text("GA94") + Bytes{3} + CcData(pairs)) +
         Bytes{0, 0, 1, 1, 0x55, 0xaa};
}

Bytes H264Picture(const std::vector<Pair> &pairs) {
  const Bytes content = Bytes{0xb5, 0x00, 0x31} + Text("GA94") + Bytes{3} + CcData(pairs);
  const Bytes sei = Bytes{0x06, 0x04, Byte(content.size())} + content + Bytes{0x80};
  return Bytes{0, 0, 0, 1, 0x09, 0xf0} + (pairs.empty() ? Bytes{} : Bytes{0, 0, 0, 1} + sei) +
         Bytes{0, 0, 0, 1, 0x41, 0x9a, 0x55};
}

} // namespace ts
