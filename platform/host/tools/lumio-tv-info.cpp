// lumio-tv info: prints what a transport stream contains, as text or as JSON.
#include <cstdio>
#include <cstring>

#include <nlohmann/json.hpp>

#include "lumio-tv.h"
#include "statistics.h"

namespace lumio::tool {

namespace {

using namespace lumio::broadcast;
using Json = nlohmann::ordered_json;

const char *KindText(CaptionKind kind) { return kind == CaptionKind::kTeletext ? "teletext" : "cea608"; }

Json JsonOf(const Programme *programme) {
  if (!programme) {
    return nullptr;
  }
  Json json;
  json["event_id"] = programme->data.eventId;
  json["start"] = programme->has_start ? Json(TimeText(programme->data.startTime)) : Json(nullptr);
  json["duration"] = programme->has_duration ? Json(programme->data.duration) : Json(nullptr);
  json["title"] = programme->data.title;
  return json;
}

Json JsonOf(const Service &service, const Statistics &statistics) {
  Json json;
  json["id"] = service.id;
  json["name"] = service.name;
  json["provider"] = service.provider;
  json["pmt_pid"] = service.pmt_pid;
  json["pcr_pid"] = service.has_pmt ? Json(service.pmt.pcr_pid) : Json(nullptr);
  json["scrambled"] = statistics.IsScrambled(service);
  json["streams"] = Json::array();
  for (const ElementaryStream &stream : service.pmt.streams) {
    json["streams"].push_back({{"pid", stream.pid}, {"type", stream.type}, {"kind", NameOf(stream.kind)}});
  }
  const ServiceProgrammes *programmes = statistics.AllProgrammes().FindOwn(service.id);
  json["present"] = JsonOf(programmes ? programmes->Present() : nullptr);
  json["following"] = JsonOf(programmes ? programmes->Following() : nullptr);
  return json;
}

Json JsonOfTables(const Statistics &statistics) {
  Json json = Json::array();
  for (const auto &[key, table] : statistics.Tables()) {
    json.push_back({{"pid", key.first},
                    {"table_id", key.second},
                    {"sections", table.sections},
                    {"crc_errors", table.crc_errors},
                    {"versions", table.versions}});
  }
  return json;
}

Json JsonOfCaptions(const Statistics &statistics) {
  Json json = Json::array();
  for (const CaptionStatistics &caption : statistics.Captions()) {
    json.push_back({{"pid", caption.pid},
                    {"kind", KindText(caption.kind)},
                    {"language", LanguageText(caption.language)},
                    {"texts", caption.texts}});
  }
  return json;
}

Json JsonOfCarousels(const Statistics &statistics) {
  Json json = Json::array();
  for (const auto &[pid, modules] : statistics.Carousels()) {
    Json list = Json::array();
    for (const auto &[key, module] : modules) {
      list.push_back({{"id", key.first}, {"version", key.second}, {"size", module.size}, {"sha256", module.sha256}});
    }
    json.push_back({{"pid", pid}, {"modules", list}});
  }
  return json;
}

void PrintJson(const PacketReader &reader, const Statistics &statistics) {
  Json json;
  json["packets"] = statistics.Counts().packets;
  json["packet_size"] = reader.Stride() == 0 ? Json(nullptr) : Json(reader.Stride());
  json["sync_losses"] = reader.SyncLosses();
  json["transport_errors"] = statistics.Counts().transport_errors;
  json["continuity_errors"] = statistics.Counts().continuity_errors;
  json["services"] = Json::array();
  for (const auto &entry : statistics.Services().Services()) {
    json["services"].push_back(JsonOf(entry.second, statistics));
  }
  json["tables"] = JsonOfTables(statistics);
  json["captions"] = JsonOfCaptions(statistics);
  json["carousels"] = JsonOfCarousels(statistics);
  puts(json.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
}

void PrintProgramme(const char *when, const Programme *programme) {
  if (!programme) {
    return;
  }
  printf("    %-10s %s  ", when, programme->has_start ? TimeText(programme->data.startTime).c_str() : "(no time)");
  if (programme->has_duration) {
    printf("%s  ", DurationText(programme->data.duration).c_str());
  }
  printf("%s\n", programme->data.title.c_str());
}

void PrintService(const Service &service, const Statistics &statistics) {
  printf("\nService %u  %s", service.id, service.name.empty() ? "(no name)" : service.name.c_str());
  printf("%s%s", service.provider.empty() ? "" : "  by ", service.provider.c_str());
  printf("%s\n", statistics.IsScrambled(service) ? "  scrambled" : "");
  printf("    PMT        PID %u\n", service.pmt_pid);
  if (!service.has_pmt) {
    printf("    streams    not known\n");
  } else {
    printf("    clock      PID %u\n", service.pmt.pcr_pid);
  }
  for (const ElementaryStream &stream : service.pmt.streams) {
    printf("    %-10s PID %u, type 0x%02x\n", NameOf(stream.kind), stream.pid, stream.type);
  }
  const ServiceProgrammes *programmes = statistics.AllProgrammes().FindOwn(service.id);
  if (programmes) {
    PrintProgramme("present", programmes->Present());
    PrintProgramme("following", programmes->Following());
    const std::size_t count = programmes->List().size();
    printf("    programmes %zu known\n", count);
  }
}

void PrintContents(const Statistics &statistics) {
  printf("\nTables      PID  table_id  sections  wrong checksums  versions\n");
  for (const auto &[key, table] : statistics.Tables()) {
    printf("          %5u      0x%02x  %8llu  %15llu ", key.first, key.second,
           static_cast<unsigned long long>(table.sections), static_cast<unsigned long long>(table.crc_errors));
    for (const std::uint8_t version : table.versions) {
      printf(" %u", version);
    }
    puts("");
  }
  for (const CaptionStatistics &caption : statistics.Captions()) {
    printf("\nCaptions in %s  PID %u, %s\n", LanguageText(caption.language).c_str(), caption.pid,
           caption.kind == CaptionKind::kTeletext ? "teletext" : "line 21");
    for (const std::string &text : caption.texts) {
      printf("    %s\n", OneLine(text).c_str());
    }
  }
  for (const auto &[pid, modules] : statistics.Carousels()) {
    printf("\nCarousel    PID %u\n", pid);
    for (const auto &[key, module] : modules) {
      printf("    module %u, version %u: %zu bytes, SHA-256 %s\n", key.first, key.second, module.size,
             module.sha256.c_str());
    }
  }
}

void PrintForPeople(const std::string &file, const PacketReader &reader, const Statistics &statistics) {
  const PacketCounts &counts = statistics.Counts();
  printf("%s: %llu packets of %u bytes\n", file.c_str(), static_cast<unsigned long long>(counts.packets),
         reader.Stride());
  printf("    lost synchronisation %llu times, %llu transport errors, %llu continuity errors\n",
         static_cast<unsigned long long>(reader.SyncLosses()), static_cast<unsigned long long>(counts.transport_errors),
         static_cast<unsigned long long>(counts.continuity_errors));
  for (const auto &entry : statistics.Services().Services()) {
    PrintService(entry.second, statistics);
  }
  PrintContents(statistics);
}

int InfoOf(const std::string &file, bool as_json) {
  FileSource source;
  const int error = source.Open(file);
  if (error != 0) {
    return Complain(file, strerror(error));
  }
  PacketReader reader(source);
  Statistics statistics;
  statistics.Read(reader);
  if (source.Error() != 0) {
    return Complain(file, strerror(source.Error()));
  }
  if (as_json) {
    PrintJson(reader, statistics);
  } else if (reader.Stride() != 0) {
    PrintForPeople(file, reader, statistics);
  }
  return reader.Stride() == 0 ? Complain(file, "not a transport stream") : kDone;
}

} // namespace

int Info(const Arguments &arguments) {
  const bool as_json = !arguments.empty() && arguments[0] == "--json";
  const auto first = arguments.begin() + (as_json ? 1 : 0);
  if (first == arguments.end()) {
    return kWrongUsage;
  }
  int status = kDone;
  for (auto file = first; file != arguments.end(); ++file) {
    status = std::max(status, InfoOf(*file, as_json));
  }
  return status;
}

} // namespace lumio::tool
