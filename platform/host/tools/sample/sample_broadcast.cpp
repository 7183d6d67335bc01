#include "sample_broadcast.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "encoder.h"
#include "line21_writer.h"
#include "multiplex.h"
#include "programme_guide.h"

namespace lumio::sample {
using namespace ts; // for operator+

namespace {

constexpr double kLength = 20; // seconds
constexpr double kDelay = 0.7; // seconds from when a picture is sent until it is shown
constexpr std::uint64_t kClock = 90000;

enum Pid : unsigned {
  kSdt = 0x11,
  kEit = 0x12,
  kTdt = 0x14,
  kPmt1 = 0x100,
  kVideo1 = 0x101,
  kAudio1 = 0x102,
  kTeletext1 = 0x103,
  kCarousel1 = 0x104,
  kPmt2 = 0x200,
  kVideo2 = 0x201,
  kAudio2 = 0x202,
};

enum StreamType : unsigned {
  kMpeg2Video = 0x02,
  kMpegAudio = 0x03,
  kPrivatePes = 0x06,
  kDataCarousel = 0x0b,
  kH264 = 0x1b
};
enum StreamId : unsigned { kPrivateStream = 0xbd, kAudioStream = 0xc0, kVideoStream = 0xe0 };
constexpr unsigned kComponentTag = 4; // of the carousel

// What goes wrong on air, in seconds.
constexpr double kScrambledFrom = 12, kScrambledTo = 13; // the second service's sound says so
constexpr double kDamage = 15; // the first service's sound suffers, and the receiver loses step

// One sentence a subtitle, each in two languages.
struct Subtitle {
  double from, to; // seconds
  const char *english, *german, *spanish;
};

constexpr Subtitle kSubtitles[] = {
    {1, 4, "Good evening.", "Guten Abend.", "Buenas noches."},
    {5, 8, "The light is on again.", "Das Licht brennt wieder.", "La luz arde otra vez."},
    {10, 13, "Who keeps it burning?", "Wer passt darauf auf?", "Y quien la cuida?"},
    {15, 18, "We shall see.", "Wir werden sehen.", "Ya veremos."},
};

// --- Tables ----------------------------------------------------------------------------------------------------------

ts::Bytes Language(const char *language, unsigned kind) {
  return ts::Descriptor(0x0a, ts::Text(language) + ts::Bytes{static_cast<std::uint8_t>(kind)});
}

// The languages of line 21, by field.
ts::Bytes CaptionService(const std::vector<const char *> &languages) {
  ts::Bytes content = {static_cast<std::uint8_t>(0xe0 | languages.size())};
  std::uint8_t field = 0;
  for (const char *language : languages) {
    content = content + ts::Text(language) + ts::Bytes{static_cast<std::uint8_t>(0x7e | field++), 0x3f, 0xff};
  }
  return ts::Descriptor(0x86, content);
}

ts::Bytes TeletextPages() {
  constexpr std::uint8_t kInitial = 1 << 3, kSubtitles8 = 2 << 3; // kind of page, and magazine: 0 means 8
  return ts::Descriptor(0x56, ts::Text("eng") + ts::Bytes{kInitial | 1, 0x00} + ts::Text("eng") +
                                  ts::Bytes{kSubtitles8, 0x88} + ts::Text("deu") + ts::Bytes{kSubtitles8, 0x89});
}

ts::Bytes FirstPmt() {
  return ts::Pmt(FirstService().id, kVideo1,
                 {{kMpeg2Video, kVideo1, CaptionService({"eng", "spa"})},
                  {kMpegAudio, kAudio1, Language("eng", 0)},
                  {kPrivatePes, kTeletext1, TeletextPages()},
                  {kDataCarousel, kCarousel1, ts::Descriptor(0x52, {kComponentTag})}});
}

ts::Bytes SecondPmt() {
  return ts::Pmt(SecondService().id, kVideo2,
                 {{kH264, kVideo2, CaptionService({"eng"})}, {kMpegAudio, kAudio2, Language("deu", 0)}});
}

// Sends the sections every `interval` seconds while the table is as `from` to `to` says.
void Repeat(Multiplex &multiplex, unsigned pid, const std::vector<ts::Bytes> &sections, double interval,
            double from = 0, double to = kLength) {
  for (int i = 0; from + i * interval < to; ++i) {
    multiplex.At(from + i * interval, [=](ts::Stream &stream) { stream.Sections(pid, sections); });
  }
}

void AddTables(Multiplex &multiplex) {
  const ts::Bytes provider = ts::Text("Lumio");
  Repeat(multiplex, 0, {ts::Pat(kStreamId, {{FirstService().id, kPmt1}, {SecondService().id, kPmt2}})}, 0.25);
  Repeat(multiplex, kPmt1, {FirstPmt()}, 0.25);
  Repeat(multiplex, kPmt2, {SecondPmt()}, 0.25);
  Repeat(multiplex, kSdt,
         {ts::Sdt(kStreamId, kNetworkId,
                  {{FirstService().id, provider, ts::Text(FirstService().name)},
                   {SecondService().id, provider, ts::Text(SecondService().name)}})},
         2);
  for (const Service *service : {&FirstService(), &SecondService()}) {
    Repeat(multiplex, kEit, PresentFollowing(*service, false), 2, 0, kChange);
    Repeat(multiplex, kEit, PresentFollowing(*service, true), 2, kChange);
    Repeat(multiplex, kEit, Schedule(*service), 8);
  }
  for (int second = 0; second < kLength; second += 5) {
    Repeat(multiplex, kTdt, {ts::ShortSection(0x70, ts::Time(kStart + second))}, kLength, second);
  }
}

// --- Pictures and sound ----------------------------------------------------------------------------------------------

// A PES packet in packets of its own, each with `options`.
void WritePes(ts::Stream &stream, unsigned pid, const ts::Bytes &pes, ts::PacketOptions options) {
  for (size_t position = 0; position < pes.size(); position += 184) {
    const auto begin = pes.begin() + static_cast<std::ptrdiff_t>(position);
    const auto end = pes.begin() + static_cast<std::ptrdiff_t>(std::min(pes.size(), position + 184));
    options.start = position == 0;
    stream.Packet(pid, ts::Bytes(begin, end), options);
  }
}

// What carries an elementary stream.
struct Carrier {
  unsigned pid;
  unsigned stream_id;
  bool unbounded;
};

// Returns what puts the units of an encoder into the stream.
Encoder::Sink Carry(Multiplex &multiplex, const Carrier &carrier) {
  return [&multiplex, carrier](const AccessUnit &unit) {
    ts::PesTimes times;
    const auto delay = static_cast<std::int64_t>(kDelay * kClock);
    times.pts = static_cast<std::uint64_t>(unit.pts + delay);
    if (unit.dts != unit.pts) {
      times.dts = static_cast<std::uint64_t>(unit.dts + delay);
    }
    times.unbounded = carrier.unbounded;
    const ts::Bytes pes = ts::Pes(carrier.stream_id, times, unit.data);
    const double sent = std::max(0.0, static_cast<double>(unit.dts) / kClock);
    ts::PacketOptions options;
    options.scrambling = carrier.pid == kAudio2 && sent >= kScrambledFrom && sent < kScrambledTo ? 2 : 0;
    multiplex.At(sent, [=](ts::Stream &stream) { WritePes(stream, carrier.pid, pes, options); });
  };
}

constexpr double kPictures = kLength - kDelay; // seconds of them: the last ones are shown before the stream ends

void AddFirstPictures(Multiplex &multiplex) {
  PictureEncoder encoder({"mpeg2video", 640, 360, 600000, 0}, Carry(multiplex, {kVideo1, kVideoStream, false}));
  Line21Writer english(0), spanish(1);
  for (int picture = 0; picture < kPictures * kFramesPerSecond; ++picture) {
    for (const Subtitle &subtitle : kSubtitles) {
      if (picture == subtitle.from * kFramesPerSecond) {
        english.PopOn(subtitle.english);
        spanish.PopOn(subtitle.spanish);
      } else if (picture == subtitle.to * kFramesPerSecond) {
        english.Erase();
        spanish.Erase();
      }
    }
    std::vector<std::uint8_t> captions;
    english.Take(&captions);
    spanish.Take(&captions);
    encoder.Encode(picture, captions);
  }
  encoder.Finish();
}

void AddSecondPictures(Multiplex &multiplex) {
  constexpr const char *kRows[] = {"White plays knight to f3.", "Black takes his time.", "Now the bishop.",
                                   "That was bold.", "A long night ahead."};
  constexpr int kRowPictures = 4 * kFramesPerSecond;
  PictureEncoder encoder({"libx264", 480, 270, 150000, 3}, Carry(multiplex, {kVideo2, kVideoStream, true}));
  Line21Writer rows(0);
  for (int picture = 0; picture < kPictures * kFramesPerSecond; ++picture) {
    if (picture % kRowPictures == kFramesPerSecond) {
      rows.RollUp(kRows[picture / kRowPictures % 5]);
    }
    std::vector<std::uint8_t> captions;
    rows.Take(&captions);
    encoder.Encode(picture, captions);
  }
  encoder.Finish();
}

void AddSound(Multiplex &multiplex) {
  SoundEncoder first(880, Carry(multiplex, {kAudio1, kAudioStream, false}));
  SoundEncoder second(440, Carry(multiplex, {kAudio2, kAudioStream, false}));
  for (SoundEncoder *encoder : {&first, &second}) {
    encoder->EncodeUntil(kPictures);
    encoder->Finish();
  }
}

// --- Teletext --------------------------------------------------------------------------------------------------------

constexpr unsigned kIndexPage = 0x100, kEnglishPage = 0x888, kGermanPage = 0x889;

void SendTeletext(Multiplex &multiplex, double shown, const std::vector<ts::Bytes> &lines) {
  constexpr size_t kPayload = 184 - 45; // PES header and payload fill whole packets, as receivers expect
  constexpr size_t kLine = 46;
  constexpr double kAhead = 0.2; // seconds
  ts::Bytes payload = ts::TeletextPayload(lines);
  while (payload.size() % 184 != kPayload) {
    payload = payload + ts::Bytes{0xff, kLine - 2}; // a line of stuffing
    payload.resize(payload.size() + kLine - 2, 0xff);
  }
  ts::PesTimes times;
  times.pts = static_cast<std::uint64_t>((shown + kDelay) * kClock);
  ts::Bytes pes = ts::Pes(kPrivateStream, times, payload);
  // Teletext has a PES header of 45 bytes, stuffed.
  constexpr size_t kHeader = 45, kUsed = 14;
  pes.insert(pes.begin() + kUsed, kHeader - kUsed, 0xff);
  pes[8] = static_cast<std::uint8_t>(kHeader - 9);
  const size_t length = pes.size() - 6;
  pes[4] = static_cast<std::uint8_t>(length >> 8);
  pes[5] = static_cast<std::uint8_t>(length);
  multiplex.At(std::max(0.0, shown - kAhead), [pes](ts::Stream &stream) { stream.Pes(kTeletext1, pes); });
}

// The header of another page ends a page: the receiver shows it then.
std::vector<ts::Bytes> SubtitlePages(const char *english, const char *german) {
  std::vector<ts::Bytes> lines;
  for (const auto &[page, text] : {std::pair(kEnglishPage, english), std::pair(kGermanPage, german)}) {
    lines.push_back(ts::TeletextHeader(page));
    if (*text) {
      lines.push_back(ts::TeletextRow(page, 22, text));
    }
  }
  lines.push_back(ts::TeletextHeader(0x8ff)); // no page
  return lines;
}

// The page that a receiver shows first.
std::vector<ts::Bytes> IndexPage() {
  constexpr std::pair<unsigned, const char *> kRows[] = {{2, "               LUMIO TEXT"},
                                                         {5, "   888  Subtitles in English"},
                                                         {6, "   889  Untertitel auf Deutsch"},
                                                         {9, "   The Evening News    every four hours"},
                                                         {10, "   Night Train         an hour before"}};
  std::vector<ts::Bytes> lines = {ts::TeletextHeader(kIndexPage, true, false)};
  for (const auto &[row, text] : kRows) {
    lines.push_back(ts::TeletextRow(kIndexPage, row, text, false));
  }
  lines.push_back(ts::TeletextHeader(0x1ff)); // no page
  return lines;
}

void AddTeletext(Multiplex &multiplex) {
  constexpr double kFirst = 0.5, kInterval = 3; // seconds
  for (int i = 0; kFirst + i * kInterval < kPictures; ++i) {
    SendTeletext(multiplex, kFirst + i * kInterval, IndexPage());
  }
  for (const Subtitle &subtitle : kSubtitles) {
    SendTeletext(multiplex, subtitle.from, SubtitlePages(subtitle.english, subtitle.german));
    SendTeletext(multiplex, subtitle.to, SubtitlePages("", ""));
  }
}

// --- Carousel --------------------------------------------------------------------------------------------------------

void SendCarousel(Multiplex &multiplex, unsigned version, double from, double to) {
  constexpr std::uint32_t kDownload = 0x4c55;
  constexpr unsigned kBlock = 512; // bytes
  const std::string text = version == 0 ? "Vote now: who keeps the light burning?\n" : "The vote is closed.\n";
  ts::Bytes pattern;
  for (int i = 0; i < 2000; ++i) {
    pattern.push_back(static_cast<std::uint8_t>(i * 7));
  }
  const std::vector<ts::Module> modules = {{1, version, ts::Text(text)}, {2, 0, pattern}};
  std::vector<ts::Bytes> sections = {ts::Dii(kDownload, kBlock, modules, version)};
  for (const ts::Module &module : modules) {
    for (unsigned block = 0; std::size_t{block} * kBlock < module.data.size(); ++block) {
      sections.push_back(ts::Ddb(kDownload, kBlock, module, block));
    }
  }
  Repeat(multiplex, kCarousel1, sections, 1, from, to);
}

// --- Trouble ---------------------------------------------------------------------------------------------------------

void AddDamage(Multiplex &multiplex) {
  multiplex.At(kDamage, [](ts::Stream &stream) {
    ts::PacketOptions damaged;
    damaged.error = true;
    stream.Packet(kAudio1, ts::Bytes(184, 0x55), damaged);
    stream.Skip(kAudio1, 3);              // packets that were lost
    stream.Append(ts::Bytes(1000, 0xaa)); // noise
  });
}

} // namespace

ts::Bytes MakeBroadcast() {
  Multiplex multiplex;
  multiplex.AddClock(kVideo1);
  multiplex.AddClock(kVideo2);
  AddTables(multiplex);
  SendCarousel(multiplex, 0, 0.1, kChange);
  SendCarousel(multiplex, 1, kChange + 0.1, kLength);
  AddTeletext(multiplex);
  AddFirstPictures(multiplex);
  AddSecondPictures(multiplex);
  AddSound(multiplex);
  AddDamage(multiplex);
  return multiplex.Write(kLength);
}

} // namespace lumio::sample
