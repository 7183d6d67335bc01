// A summary of a whole stream.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "caption.h"
#include "carousel.h"
#include "demultiplexer.h"
#include "line21.h"
#include "programmes.h"
#include "service_list.h"
#include "teletext.h"

namespace lumio::broadcast {

struct TableStatistics {
  std::uint64_t sections = 0;
  std::uint64_t crc_errors = 0;
  std::vector<std::uint8_t> versions; // in order of appearance
};

struct CaptionStatistics {
  std::uint16_t pid;
  CaptionKind kind;
  int language;
  std::vector<std::string> texts; // the first different ones, without empty ones
};

struct ModuleStatistics {
  std::size_t size;
  std::string sha256; // in hexadecimal digits
};

class Statistics final : private DemultiplexerListener {
public:
  Statistics();
  ~Statistics() override;

  // Reads the stream to its end.
  void Read(PacketReader &reader);

  const PacketCounts &Counts() const { return demultiplexer_.Counts(); }
  const ServiceList &Services() const { return services_; }
  const Programmes &AllProgrammes() const { return programmes_; }
  bool IsScrambled(const Service &service) const;

  // By PID and table_id.
  std::map<std::pair<std::uint16_t, std::uint8_t>, TableStatistics> Tables() const;
  // By PID, then in the order of declaration or appearance.
  std::vector<CaptionStatistics> Captions() const;
  // By PID, then by id and version.
  using Modules = std::map<std::pair<std::uint16_t, std::uint8_t>, ModuleStatistics>;
  const std::map<std::uint16_t, Modules> &Carousels() const { return carousels_; }

private:
  struct CaptionDecoders {
    std::unique_ptr<TeletextDecoder> teletext;
    std::unique_ptr<Line21Decoder> line21;
    std::vector<int> languages; // of its pages, or of its two fields
  };

  void OnSection(std::uint16_t pid, const Section &section) override;
  void OnPes(const PesPacket &packet) override;
  TableStatistics *TableOf(std::uint16_t pid, std::uint8_t table_id);
  void Watch(const Service &service);
  void WatchStream(const ElementaryStream &stream);
  void PushToCarousel(std::uint16_t pid, const Section &section);
  void AddCaption(const Caption &caption);
  void DropFullCaptions();
  CaptionStatistics &CaptionOf(std::uint16_t pid, CaptionKind kind, int language);

  Demultiplexer demultiplexer_;
  ServiceList services_;
  ProgrammePool pool_;
  Programmes programmes_;
  std::map<std::uint32_t, TableStatistics> tables_; // by PID and table_id
  std::array<std::pair<std::uint32_t, TableStatistics *>, 256> recent_tables_{};
  Budget carousel_budget_;
  std::map<std::uint16_t, std::unique_ptr<Carousel>> carousel_decoders_;
  std::map<std::uint16_t, Modules> carousels_;
  std::size_t module_count_ = 0;
  std::map<std::uint16_t, CaptionDecoders> caption_decoders_;
  std::vector<CaptionStatistics> captions_;
  std::set<std::uint16_t> full_captions_; // PIDs with a language whose texts have just become complete
};

} // namespace lumio::broadcast
