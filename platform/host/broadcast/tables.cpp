#include "tables.h"

#include <bitstream/dvb/si.h>
#include <bitstream/mpeg/psi.h>

#include "descriptors.h"
#include "text.h"

namespace lumio::broadcast {

namespace {

constexpr std::int64_t kEpochMjd = 40587; // 1970-01-01 as a modified Julian date
constexpr std::int64_t kSecondsPerDay = 86400;

// Reads two decimal digits; -1 if they are not digits.
int Bcd(std::uint8_t byte) { return (byte >> 4) > 9 || (byte & 0xf) > 9 ? -1 : (byte >> 4) * 10 + (byte & 0xf); }

// Reads a text that follows a byte with its length.
Bytes TakeText(Bytes &bytes) {
  const std::size_t length = bytes.empty() ? 0 : bytes[0];
  bytes = bytes.From(1);
  return TakeFront(bytes, length);
}

constexpr std::uint8_t kPrivatePesType = 0x06;

StreamKind KindOfType(std::uint8_t type) {
  switch (type) {
  case 0x01: // MPEG-1
  case 0x02: // MPEG-2
  case 0x10: // MPEG-4
  case 0x1b: // H.264
  case 0x1e: // auxiliary
  case 0x1f: // H.264 SVC
  case 0x20: // H.264 MVC
  case 0x21: // JPEG 2000
  case 0x24: // H.265
  case 0x33: // H.266
  case 0x42: // AVS
  case 0xd1: // Dirac
  case 0xea: // VC-1
    return StreamKind::kVideo;
  case 0x03: // MPEG-1
  case 0x04: // MPEG-2
  case 0x0f: // AAC in ADTS
  case 0x11: // AAC in LATM
  case 0x1c: // AAC raw
  case 0x81: // AC-3
  case 0x87: // enhanced AC-3
    return StreamKind::kAudio;
  case 0x0b: // DSM-CC user-to-network messages
    return StreamKind::kCarousel;
  default:
    return CarriesSections(type) ? StreamKind::kSection : StreamKind::kOther;
  }
}

// Reads the pages of a teletext descriptor that carry subtitles, including those for the hard of hearing.
void AddSubtitlePages(Bytes content, ElementaryStream &stream) {
  constexpr int kSubtitles = 2;
  constexpr int kHearingImpaired = 5;
  for (; content.size() >= 5; content = content.From(5)) {
    const int type = content[3] >> 3;
    const int magazine = content[3] & 7;
    if (type == kSubtitles || type == kHearingImpaired) {
      stream.subtitle_pages.push_back({LanguageOf(content), (magazine == 0 ? 8 : magazine) << 8 | content[4]});
    }
  }
}

// Reads the languages of line 21 in a caption service descriptor. Its other entries are for digital captions.
void SetLine21Languages(Bytes content, ElementaryStream &stream) {
  const int count = content.empty() ? 0 : content[0] & 0x1f;
  content = content.From(1);
  for (int i = 0; i < count && content.size() >= 6; ++i, content = content.From(6)) {
    const bool digital = (content[3] & 0x80) != 0;
    if (!digital) {
      stream.line21_language[content[3] & 1] = LanguageOf(content);
    }
  }
}

bool IsCarousel(unsigned data_broadcast_id) {
  switch (data_broadcast_id) {
  case 0x0006: // data carousel
  case 0x0007: // object carousel
  case 0x000a: // system software update, in a data carousel
  case 0x00f0: // applications, in an object carousel
  case 0x00f1:
  case 0x0106:
  case 0x0123:
    return true;
  default:
    return false;
  }
}

void Describe(std::uint8_t tag, Bytes content, ElementaryStream &stream) {
  const bool is_private = stream.type == kPrivatePesType;
  switch (tag) {
  case kTagStreamIdentifier:
    stream.component_tag = content.empty() ? -1 : content[0];
    break;
  case kTagTeletext:
  case kTagVbiTeletext:
    stream.kind = is_private ? StreamKind::kTeletext : stream.kind;
    AddSubtitlePages(content, stream);
    break;
  case kTagSubtitling:
    stream.kind = is_private ? StreamKind::kSubtitle : stream.kind;
    break;
  case kTagAc3:
  case kTagEnhancedAc3:
  case kTagDts:
  case kTagAac:
    stream.kind = is_private ? StreamKind::kAudio : stream.kind;
    break;
  case kTagCarouselIdentifier:
    stream.kind = CarriesSections(stream.type) ? StreamKind::kCarousel : stream.kind;
    break;
  case kTagDataBroadcastId:
    if (CarriesSections(stream.type) && content.size() >= 2 && IsCarousel(content.Get16(0))) {
      stream.kind = StreamKind::kCarousel;
    }
    break;
  case kTagCaptionService:
    SetLine21Languages(content, stream);
    break;
  default:
    break;
  }
}

ElementaryStream DescribeStream(std::uint16_t pid, std::uint8_t type, Bytes programme_info, Bytes info) {
  ElementaryStream stream;
  stream.pid = pid;
  stream.type = type;
  stream.kind = KindOfType(type);
  if (stream.kind == StreamKind::kVideo) {
    ForEachDescriptor(programme_info, [&](std::uint8_t tag, Bytes content) {
      if (tag == kTagCaptionService) {
        SetLine21Languages(content, stream);
      }
    });
  }
  ForEachDescriptor(info, [&](std::uint8_t tag, Bytes content) { Describe(tag, content, stream); });
  return stream;
}

void DescribeService(Bytes content, SdtEntry &entry) {
  content = content.From(1); // the service's type
  entry.provider = DecodeText(TakeText(content));
  entry.name = DecodeText(TakeText(content));
}

// Reads title and text of the first language. Leaves out the items of an extended description.
struct EventTexts {
  bool named = false;
  std::string extended;
};

void DescribeEvent(std::uint8_t tag, Bytes content, Programme &programme, EventTexts &texts) {
  if (tag == kTagShortEvent && content.size() >= 5 && !texts.named) {
    content = content.From(3); // the language
    programme.data.title = DecodeText(TakeText(content));
    programme.data.description = DecodeText(TakeText(content));
    texts.named = true;
  } else if (tag == kTagExtendedEvent && content.size() >= 6) {
    content = content.From(4); // number of the descriptor, language
    TakeText(content);         // items
    texts.extended += DecodeText(TakeText(content));
  }
}

} // namespace

bool IsTablePid(std::uint16_t pid) {
  return pid <= kTsdtPid || (pid >= kNitPid && pid <= kTdtPid) || pid == kRntPid || pid == kDitPid || pid == kSitPid;
}

std::vector<PatEntry> ParsePat(const Section &section) {
  std::vector<PatEntry> entries;
  for (Bytes rest = section.Body(); rest.size() >= PAT_PROGRAM_SIZE; rest = rest.From(PAT_PROGRAM_SIZE)) {
    entries.push_back({patn_get_program(rest.data()), patn_get_pid(rest.data())});
  }
  return entries;
}

const char *NameOf(StreamKind kind) {
  static constexpr const char *kNames[] = {"video", "audio", "subtitle", "teletext", "carousel", "section", "other"};
  return kNames[static_cast<int>(kind)];
}

bool CarriesSections(std::uint8_t stream_type) {
  switch (stream_type) {
  case 0x05: // private sections
  case 0x0a: // DSM-CC
  case 0x0b:
  case 0x0c:
  case 0x0d:
  case 0x14: // DSM-CC synchronised download
  case 0x16: // metadata
  case 0x86: // SCTE 35
    return true;
  default:
    return false;
  }
}

bool ElementaryStream::operator==(const ElementaryStream &other) const {
  return pid == other.pid && type == other.type && kind == other.kind && component_tag == other.component_tag;
}

bool ParsePmt(const Section &section, Pmt &pmt) {
  const Bytes body = section.Body();
  if (body.size() < 4) {
    return false;
  }
  pmt.program = section.Extension();
  pmt.version = section.Version();
  pmt.checksum = section.Checksum();
  pmt.pcr_pid = pmt_get_pcrpid(section.Raw().data());
  Bytes rest = body.From(4);
  const Bytes programme_info = TakeFront(rest, Length12(body, 2));
  while (rest.size() >= PMT_ES_SIZE) {
    const std::uint16_t pid = pmtn_get_pid(rest.data());
    const std::uint8_t type = pmtn_get_streamtype(rest.data());
    const std::size_t length = pmtn_get_desclength(rest.data());
    rest = rest.From(PMT_ES_SIZE);
    pmt.streams.push_back(DescribeStream(pid, type, programme_info, TakeFront(rest, length)));
  }
  return true;
}

bool ParseSdt(const Section &section, Sdt &sdt) {
  Bytes rest = section.Body();
  if (rest.size() < 3) {
    return false;
  }
  sdt.stream_id = section.Extension();
  sdt.network_id = sdt_get_onid(section.Raw().data());
  rest = rest.From(3);
  while (rest.size() >= SDT_SERVICE_SIZE) {
    SdtEntry entry{sdtn_get_sid(rest.data()), "", ""};
    const std::size_t length = sdtn_get_desclength(rest.data());
    rest = rest.From(SDT_SERVICE_SIZE);
    ForEachDescriptor(TakeFront(rest, length), [&](std::uint8_t tag, Bytes content) {
      if (tag == kTagService) {
        DescribeService(content, entry);
      }
    });
    sdt.services.push_back(std::move(entry));
  }
  return true;
}

bool ParseEit(const Section &section, Eit &eit) {
  Bytes rest = section.Body();
  if (rest.size() < 6) {
    return false;
  }
  const std::uint8_t *raw = section.Raw().data();
  eit.service = std::uint64_t{eit_get_onid(raw)} << 32 | std::uint64_t{eit_get_tsid(raw)} << 16 | section.Extension();
  rest = rest.From(6);
  while (rest.size() >= EIT_EVENT_SIZE) {
    Programme programme;
    programme.data.serviceId = eit.service;
    programme.data.eventId = eitn_get_event_id(rest.data());
    programme.has_start = ParseTime(rest.From(2), programme.data.startTime);
    programme.has_duration = ParseDuration(rest.From(7), programme.data.duration);
    const std::size_t length = eitn_get_desclength(rest.data());
    rest = rest.From(EIT_EVENT_SIZE);
    EventTexts texts;
    ForEachDescriptor(TakeFront(rest, length),
                      [&](std::uint8_t tag, Bytes content) { DescribeEvent(tag, content, programme, texts); });
    if (!texts.extended.empty()) {
      programme.data.description += (programme.data.description.empty() ? "" : "\n") + texts.extended;
    }
    eit.programmes.push_back(std::move(programme));
  }
  return true;
}

bool ParseDuration(Bytes bytes, unsigned &seconds) {
  const int hours = bytes.size() < 3 ? -1 : Bcd(bytes[0]);
  const int minutes = bytes.size() < 3 ? -1 : Bcd(bytes[1]);
  const int rest = bytes.size() < 3 ? -1 : Bcd(bytes[2]);
  if (hours < 0 || minutes < 0 || minutes > 59 || rest < 0 || rest > 59) {
    return false;
  }
  seconds = static_cast<unsigned>(hours * 3600 + minutes * 60 + rest);
  return true;
}

bool ParseTime(Bytes bytes, std::int64_t &time) {
  unsigned seconds = 0;
  if (bytes.size() < 5 || !ParseDuration(bytes.From(2), seconds) || seconds >= kSecondsPerDay) {
    return false;
  }
  time = (std::int64_t{bytes.Get16(0)} - kEpochMjd) * kSecondsPerDay + seconds;
  return true;
}

bool ParseTdt(const Section &section, std::int64_t &time) { return ParseTime(section.Raw().From(3), time); }

} // namespace lumio::broadcast
