#include "statistics.h"

#include <sys/types.h>

#include <sha2.h>

#include <algorithm>

namespace lumio::broadcast {

namespace {

constexpr std::size_t kMostTables = 65536;
constexpr std::size_t kMostCarousels = 256;
constexpr std::size_t kMostModules = 32768;
constexpr std::size_t kMostCaptionStreams = 16;
constexpr std::size_t kMostCaptions = 1024;
constexpr std::size_t kTextsToTell = 3;
constexpr std::size_t kCarouselBudget = std::size_t{12} << 20;

std::string Sha256(Bytes bytes) {
  char digits[SHA256_DIGEST_STRING_LENGTH];
  SHA256Data(bytes.data(), bytes.size(), digits);
  return digits;
}

} // namespace

Statistics::Statistics() : demultiplexer_(*this), programmes_(pool_), carousel_budget_(kCarouselBudget) {
  for (std::uint16_t pid = 0; pid <= kSitPid; ++pid) {
    demultiplexer_.WantSections(pid, IsTablePid(pid));
  }
}

Statistics::~Statistics() = default;

void Statistics::Read(PacketReader &reader) {
  for (PacketRun run = reader.NextRun(); run.count > 0; run = reader.NextRun()) {
    demultiplexer_.PushRun(run);
  }
  demultiplexer_.End();
  for (auto &[pid, decoders] : caption_decoders_) {
    if (decoders.teletext) {
      decoders.teletext->End();
    }
    if (decoders.line21) {
      decoders.line21->End();
    }
  }
}

// A stream has few tables, and nearly every section belongs to one that was seen a moment ago.
TableStatistics *Statistics::TableOf(std::uint16_t pid, std::uint8_t table_id) {
  const std::uint32_t key = std::uint32_t{pid} << 8 | table_id;
  auto &recent = recent_tables_[(pid * 31U + table_id) % recent_tables_.size()];
  if (recent.second && recent.first == key) {
    return recent.second;
  }
  if (tables_.size() >= kMostTables && tables_.count(key) == 0) {
    return nullptr;
  }
  recent = {key, &tables_[key]};
  return recent.second;
}

void Statistics::OnSection(std::uint16_t pid, const Section &section) {
  TableStatistics *table = TableOf(pid, section.TableId());
  const bool right = section.IsChecksumRight();
  if (table) {
    ++table->sections;
    table->crc_errors += right ? 0 : 1;
  }
  if (!right) {
    return;
  }
  if (table && section.IsLong() &&
      std::find(table->versions.begin(), table->versions.end(), section.Version()) == table->versions.end()) {
    table->versions.push_back(section.Version());
  }
  if (pid == kEitPid) {
    std::uint64_t service = 0;
    programmes_.Push(section, service);
  } else if (section.TableId() == kDsmMessagesId || section.TableId() == kDsmBlocksId) {
    PushToCarousel(pid, section);
  } else if (services_.Push(pid, section)) {
    if (pid == kPatPid) {
      for (const auto &entry : services_.Services()) {
        demultiplexer_.WantSections(entry.second.pmt_pid, true);
      }
      if (services_.NetworkPid() != 0) {
        demultiplexer_.WantSections(services_.NetworkPid(), true);
      }
    } else if (section.TableId() == kPmtId) {
      Watch(*services_.Find(section.Extension()));
    }
  }
}

void Statistics::Watch(const Service &service) {
  for (const ElementaryStream &stream : service.pmt.streams) {
    WatchStream(stream);
  }
}

void Statistics::WatchStream(const ElementaryStream &stream) {
  const bool is_table = IsTablePid(stream.pid) || stream.pid == services_.NetworkPid();
  demultiplexer_.WantSections(stream.pid, is_table || CarriesSections(stream.type));
  if (stream.kind == StreamKind::kCarousel) {
    carousels_.size() < kMostCarousels ? void(carousels_[stream.pid]) : void();
    return;
  }
  const bool is_line21 = Line21Pictures::Understands(stream.type);
  if ((!is_line21 && stream.subtitle_pages.empty()) || caption_decoders_.count(stream.pid) != 0 ||
      caption_decoders_.size() >= kMostCaptionStreams) {
    return;
  }
  CaptionDecoders &decoders = caption_decoders_[stream.pid];
  const TellCaption tell = [this](const Caption &caption) { AddCaption(caption); };
  if (is_line21) {
    decoders.line21 =
        std::make_unique<Line21Decoder>(stream.pid, stream.type == kH264Type, stream.line21_language, tell);
    for (const int language : stream.line21_language) {
      decoders.languages.push_back(language == 0 ? kUndeterminedLanguage : language);
      language == 0 ? void() : void(CaptionOf(stream.pid, CaptionKind::kCea608, language));
    }
  } else {
    decoders.teletext = std::make_unique<TeletextDecoder>(stream.pid, stream.subtitle_pages, tell);
    for (const TeletextPage &page : stream.subtitle_pages) {
      decoders.languages.push_back(page.language);
      CaptionOf(stream.pid, CaptionKind::kTeletext, page.language);
    }
  }
  demultiplexer_.WantPes(stream.pid, true);
}

void Statistics::OnPes(const PesPacket &packet) {
  const auto decoders = caption_decoders_.find(packet.pid);
  if (decoders != caption_decoders_.end() && decoders->second.teletext) {
    decoders->second.teletext->Push(packet);
  } else if (decoders != caption_decoders_.end()) {
    decoders->second.line21->Push(packet);
  }
  if (!full_captions_.empty()) {
    DropFullCaptions();
  }
}

CaptionStatistics &Statistics::CaptionOf(std::uint16_t pid, CaptionKind kind, int language) {
  const auto found = std::find_if(captions_.begin(), captions_.end(), [&](const CaptionStatistics &entry) {
    return entry.pid == pid && entry.kind == kind && entry.language == language;
  });
  if (found != captions_.end()) {
    return *found;
  }
  if (captions_.size() >= kMostCaptions) {
    return captions_.back();
  }
  return captions_.emplace_back(CaptionStatistics{pid, kind, language, {}});
}

void Statistics::AddCaption(const Caption &caption) {
  std::vector<std::string> &texts = CaptionOf(caption.pid, caption.kind, caption.language).texts;
  if (!caption.text.empty() && texts.size() < kTextsToTell &&
      std::find(texts.begin(), texts.end(), caption.text) == texts.end()) {
    texts.push_back(caption.text);
    if (texts.size() == kTextsToTell) {
      full_captions_.insert(caption.pid);
    }
  }
}

// Stops decoding captions that add nothing new: they are most of the work.
void Statistics::DropFullCaptions() {
  for (const std::uint16_t pid : full_captions_) {
    CaptionDecoders &decoders = caption_decoders_[pid];
    const auto is_full = [&](int language) {
      return std::any_of(captions_.begin(), captions_.end(), [&](const CaptionStatistics &caption) {
        return caption.pid == pid && caption.language == language && caption.texts.size() == kTextsToTell;
      });
    };
    bool all = true;
    for (std::size_t i = 0; i < decoders.languages.size(); ++i) {
      const bool full = is_full(decoders.languages[i]);
      all = all && full;
      if (full && decoders.line21) {
        decoders.line21->Ignore(i == 1);
      }
    }
    demultiplexer_.WantPes(pid, !all);
  }
  full_captions_.clear();
}

void Statistics::PushToCarousel(std::uint16_t pid, const Section &section) {
  std::unique_ptr<Carousel> &carousel = carousel_decoders_[pid];
  if (!carousel) {
    carousel = std::make_unique<Carousel>(carousel_budget_, /*keeps=*/false);
  }
  carousel->Push(section, [&](const CarouselModule &module) {
    Modules &modules = carousels_[pid];
    const std::pair<std::uint16_t, std::uint8_t> key{module.id, module.version};
    if (modules.count(key) == 0 && module_count_ < kMostModules) {
      modules[key] = {module.data.size(), Sha256(module.data)};
      ++module_count_;
    }
  });
}

bool Statistics::IsScrambled(const Service &service) const {
  return std::any_of(service.pmt.streams.begin(), service.pmt.streams.end(), [&](const ElementaryStream &stream) {
    return stream.pid < kPids && demultiplexer_.WasScrambled(stream.pid);
  });
}

std::map<std::pair<std::uint16_t, std::uint8_t>, TableStatistics> Statistics::Tables() const {
  std::map<std::pair<std::uint16_t, std::uint8_t>, TableStatistics> tables;
  for (const auto &[key, table] : tables_) {
    tables[{static_cast<std::uint16_t>(key >> 8), static_cast<std::uint8_t>(key & 0xff)}] = table;
  }
  return tables;
}

std::vector<CaptionStatistics> Statistics::Captions() const {
  std::vector<CaptionStatistics> captions = captions_;
  std::stable_sort(captions.begin(), captions.end(),
                   [](const CaptionStatistics &a, const CaptionStatistics &b) { return a.pid < b.pid; });
  return captions;
}

} // namespace lumio::broadcast
