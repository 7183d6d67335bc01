// Prints how fast lumio-tv reads a transport stream, what playing one costs, and how soon a module gets a section.
#include <lumio-host/broadcast.h>
#include <lumio-host/pvr-control.h>
#include <lumio-host/tv-control.h>

#include <Ecore.h>
#include <TVServiceSubscriber.h>
#include <sys/resource.h>

extern "C" {
#include <dvbpsi/dvbpsi.h>
// The other headers need this one first.
#include <dvbpsi/demux.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/eit.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/pmt.h>
#include <dvbpsi/psi.h>
#include <dvbpsi/sdt.h>
}

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <vector>

#include "temporary_directory.h"
#include "transport_stream.h"

namespace {

namespace broadcast = lumio::broadcast;
using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t kPacket = 188;

double Seconds(const timeval &time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// Returns the processor time of this process and of the commands that it has run.
double ProcessorTime() {
  double seconds = 0;
  for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage usage{};
    getrusage(who, &usage);
    seconds += Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
  }
  return seconds;
}

void Write(const std::string &path, const ts::Bytes &bytes, std::size_t times = 1) {
  std::ofstream file(path, std::ios::binary);
  for (std::size_t i = 0; i < times; ++i) {
    file.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
}

// Reading a whole file

struct Taken {
  double time;      // seconds
  double processor; // seconds
};

// Returns the shortest times of several runs, which were disturbed least.
Taken Measure(int runs, const std::function<void()> &work) {
  Taken shortest{1e9, 1e9};
  for (int i = 0; i < runs; ++i) {
    const SteadyClock::time_point start = SteadyClock::now();
    const double processor = ProcessorTime();
    work();
    const std::chrono::duration<double> time = SteadyClock::now() - start;
    shortest = {std::min(shortest.time, time.count()), std::min(shortest.processor, ProcessorTime() - processor)};
  }
  return shortest;
}

void Run(const std::string &command) {
  if (std::system((command + " >/dev/null 2>&1").c_str()) != 0) {
    std::fprintf(stderr, "broadcast_bench: this failed: %s\n", command.c_str());
    std::exit(1);
  }
}

// Reads the file in blocks and passes on each.
void ReadFile(const std::string &path, const std::function<void(const std::uint8_t *, std::size_t)> &take) {
  std::vector<std::uint8_t> block(kPacket * 2048);
  FILE *file = std::fopen(path.c_str(), "rb");
  setvbuf(file, nullptr, _IONBF, 0);
  for (std::size_t count = 0; (count = std::fread(block.data(), 1, block.size(), file)) > 0;) {
    take(block.data(), count);
  }
  std::fclose(file);
}

// Decodes with libdvbpsi the tables that lumio-tv info decodes: PAT, PMTs, SDT and EIT.
class DvbpsiDecoder {
public:
  DvbpsiDecoder() {
    for (dvbpsi_t *&handle : handles_) {
      handle = dvbpsi_new(nullptr, DVBPSI_MSG_NONE);
    }
    dvbpsi_pat_attach(
        handles_[0], [](void *, dvbpsi_pat_t *pat) { dvbpsi_pat_delete(pat); }, nullptr);
    dvbpsi_pmt_attach(
        handles_[1], 101, [](void *, dvbpsi_pmt_t *pmt) { dvbpsi_pmt_delete(pmt); }, nullptr);
    dvbpsi_pmt_attach(
        handles_[2], 102, [](void *, dvbpsi_pmt_t *pmt) { dvbpsi_pmt_delete(pmt); }, nullptr);
    dvbpsi_AttachDemux(handles_[3], OnTable, nullptr);
    dvbpsi_AttachDemux(handles_[4], OnTable, nullptr);
  }
  ~DvbpsiDecoder() {
    dvbpsi_pat_detach(handles_[0]);
    dvbpsi_pmt_detach(handles_[1]);
    dvbpsi_pmt_detach(handles_[2]);
    dvbpsi_DetachDemux(handles_[3]);
    dvbpsi_DetachDemux(handles_[4]);
    for (dvbpsi_t *handle : handles_) {
      dvbpsi_delete(handle);
    }
  }
  DvbpsiDecoder(const DvbpsiDecoder &) = delete;
  DvbpsiDecoder &operator=(const DvbpsiDecoder &) = delete;

  void Push(const std::uint8_t *packet) {
    const unsigned pid = (packet[1] & 0x1fU) << 8 | packet[2];
    for (std::size_t i = 0; i < std::size(kPids); ++i) {
      if (kPids[i] == pid) {
        std::uint8_t copy[kPacket]; // libdvbpsi does not accept constant bytes
        std::memcpy(copy, packet, kPacket);
        dvbpsi_packet_push(handles_[i], copy);
      }
    }
  }

private:
  static void OnTable(dvbpsi_t *handle, std::uint8_t table_id, std::uint16_t extension, void *) {
    if (table_id == 0x42) {
      dvbpsi_sdt_attach(
          handle, table_id, extension, [](void *, dvbpsi_sdt_t *sdt) { dvbpsi_sdt_delete(sdt); }, nullptr);
    } else if (table_id >= 0x4e && table_id <= 0x6f) {
      dvbpsi_eit_attach(
          handle, table_id, extension, [](void *, dvbpsi_eit_t *eit) { dvbpsi_eit_delete(eit); }, nullptr);
    }
  }

  static constexpr unsigned kPids[] = {0x00, 0x100, 0x200, 0x11, 0x12}; // of the sample
  dvbpsi_t *handles_[5] = {};
};

void DecodeTables(const std::string &path) {
  DvbpsiDecoder decoder;
  std::vector<std::uint8_t> rest; // of a packet, until the next block comes; also the damaged bytes
  ReadFile(path, [&](const std::uint8_t *bytes, std::size_t size) {
    rest.insert(rest.end(), bytes, bytes + size);
    std::size_t i = 0;
    while (i + kPacket <= rest.size()) {
      if (rest[i] != 0x47) {
        ++i;
        continue;
      }
      decoder.Push(&rest[i]);
      i += kPacket;
    }
    rest.erase(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(i));
  });
}

void Print(const char *what, const Taken &taken, const Taken &info) {
  std::printf("%-44s %8.3f s %8.3f s of processor time   %6.2f times lumio-tv info\n", what, taken.time,
              taken.processor, taken.time / info.time);
}

void MeasureInfo(const std::string &path, std::size_t size, int runs) {
  std::printf("== reading the sample repeated, %.0f MB\n", static_cast<double>(size) / 1e6);
  unsigned sum = 0;
  const auto read = [&] { ReadFile(path, [&](const std::uint8_t *bytes, std::size_t) { sum += *bytes; }); };
  read(); // brings the file into memory
  const Taken info = Measure(runs, [&] { Run(LUMIO_TV " info --json " + path); });
  Print("lumio-tv info", info, info);
  Print("reading the file", Measure(runs, read), info);
  Print("libdvbpsi, the same tables", Measure(runs, [&] { DecodeTables(path); }), info);
  Print("ffprobe -count_packets -show_programs",
        Measure(std::min(runs, 2), [&] { Run("ffprobe -v quiet -count_packets -show_programs " + path); }), info);
}

// Playing

// Returns a stream of 40 Mbit/s, as much as a cable channel carries, with tables, a picture and sound.
ts::Stream Busy(int milliseconds) {
  constexpr int kPacketsEach10Ms = 40'000'000 / 8 / 188 / 100;
  ts::Stream stream;
  const ts::Bytes captions = ts::Descriptor(0x86, ts::Bytes{0xc1, 'e', 'n', 'g', 0x7e, 0x3f, 0xff});
  ts::Bytes picture = ts::Mpeg2Picture(0, {{0, 'H', 'I'}});
  picture.resize(150'000, 0x55);
  std::size_t sent = 0; // packets of the picture
  for (int time = 0; time < milliseconds; time += 10) {
    const std::size_t start = stream.Packets();
    stream.Pcr(0x101, time / 1000.0);
    if (time % 100 == 0) {
      stream.Section(0x00, ts::Pat(1, {{1, 0x100}}));
      stream.Section(0x100, ts::Pmt(1, 0x101, {{0x02, 0x101, captions}, {0x03, 0x102, {}}}));
      stream.Section(0x11, ts::Sdt(1, 1, {{1, ts::Text("Lumio"), ts::Text("One")}}));
      stream.Section(0x12, ts::Eit(0x4e, {1, 1, 1}, {{1, ts::Time(0), ts::Duration(60), ts::Text("News"), {}}}));
    }
    if (time % 40 == 0) {
      const auto pts = static_cast<std::uint64_t>(time) * 90;
      stream.Pes(0x101, ts::Pes(0xe0, {pts, pts, true}, picture));
      stream.Pes(0x102, ts::Pes(0xc0, {pts}, ts::Bytes(960, 0x33)));
      sent = 0;
    }
    while (stream.Packets() - start + sent < kPacketsEach10Ms) {
      stream.Null();
    }
    sent += stream.Packets() - start - kPacketsEach10Ms; // the whole picture has been sent
  }
  return stream;
}

std::atomic<unsigned> g_packets{0};

void OnPes(TSPESData &, void *) { ++g_packets; }
void OnCaption(TSCaption &, void *) {}
void OnProgram(EProgramChangeType, TCProgramData *, int, int) {}
int OnSignal(ESignalType, EProfile, unsigned short, TSSignalData, void *) { return 1; }
void OnSection(bool, unsigned short, unsigned char *, int);

// A module that subscribes to everything.
class Module {
public:
  Module() {
    subscriber_.SetSignalCallback(OnSignal);
    for (int type = SIGNAL_TYPE_LOCK; type <= SIGNAL_TYPE_STRENGTH; ++type) {
      subscriber_.SubscribeSignal(static_cast<ESignalType>(type), nullptr, PROFILE_MAIN, 0);
    }
    int handle = 0;
    subscriber_.SetProgramCallback(OnProgram);
    subscriber_.SubscribeProgramListPF(0, 0x100010001, SUBSCRIBE_TYPE_CHANGES, handle);
    subscriber_.SetSectionCallback(OnSection);
    TCSectionFilterCriteriaHelper filter;
    filter.pid = 0x20;
    subscriber_.SubscribeSectionByFilter(1, filter, handle);
    subscriber_.SubscribePES(OnPes, nullptr);
    subscriber_.SubscribeCaption(OnCaption, nullptr);
  }

private:
  CTVServiceSubscriber subscriber_{"bench"};
};

void Open(const std::string &path) {
  broadcast::Options options;
  options.atEnd = broadcast::AtEnd::LoseSignal;
  if (!broadcast::Open(path, options)) {
    std::exit(1);
  }
}

// Runs the main loop, where the module gets most of its notifications.
void WaitForTheEnd() {
  ecore_timer_add(
      0.05,
      [](void *) -> Eina_Bool {
        if (broadcast::HasEnded()) {
          ecore_main_loop_quit();
          return ECORE_CALLBACK_CANCEL;
        }
        return ECORE_CALLBACK_RENEW;
      },
      nullptr);
  ecore_main_loop_begin();
  lumio::tv::Flush();
}

// Returns the share of one core, in percent.
double ShareOfPlaying(const std::string &path, bool records) {
  const double processor = ProcessorTime();
  const SteadyClock::time_point start = SteadyClock::now();
  Open(path);
  if (records) {
    lumio::pvr::StartRecording(1);
  }
  WaitForTheEnd();
  if (records) {
    lumio::pvr::StopRecording();
  }
  const std::chrono::duration<double> time = SteadyClock::now() - start;
  broadcast::Close();
  return (ProcessorTime() - processor) * 100 / time.count();
}

void MeasurePlaying(const std::string &path, int milliseconds) {
  const ts::Stream stream = Busy(milliseconds);
  Write(path, stream.bytes);
  std::printf("\n== playing %.1f Mbit/s in real time, to a module that subscribes to everything\n",
              static_cast<double>(stream.bytes.size()) * 8 / milliseconds / 1000);
  std::printf("processor time          %6.2f %% of one core\n", ShareOfPlaying(path, false));
  std::printf("with a recording        %6.2f %%\n", ShareOfPlaying(path, true));
  std::printf("told                    %6u PES packets\n", g_packets.load());
}

// From a section's last byte to the callback

std::mutex g_mutex;
std::vector<SteadyClock::time_point> g_came; // guarded by the mutex
std::vector<SteadyClock::time_point> g_told; // guarded by the mutex

void OnSection(bool, unsigned short, unsigned char *, int) {
  const SteadyClock::time_point now = SteadyClock::now();
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_told.push_back(now);
}

void OnPacket(const unsigned char *packet) {
  if (packet[1] == 0x40 && packet[2] == 0x20) { // the PID, and a whole section
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_came.push_back(SteadyClock::now());
  }
}

void MeasureSections(const std::string &path, int sections) {
  ts::Stream stream;
  for (int i = 0; i < sections; ++i) {
    stream.Pcr(0x101, i / 1000.0);
    stream.Section(0x20, ts::LongSection(0x80, 1, {}, ts::Bytes(100, 1)));
  }
  stream.Pcr(0x101, sections / 1000.0);
  Write(path, stream.bytes);
  broadcast::SetPacketListener(OnPacket);
  Open(path);
  WaitForTheEnd();
  broadcast::Close();
  broadcast::SetPacketListener(nullptr);
  const std::lock_guard<std::mutex> lock(g_mutex);
  std::vector<double> delays; // microseconds
  for (std::size_t i = 0; i < std::min(g_came.size(), g_told.size()); ++i) {
    delays.push_back(std::chrono::duration<double, std::micro>(g_told[i] - g_came[i]).count());
  }
  std::sort(delays.begin(), delays.end());
  std::printf("\n== from a section's last byte to the module's callback, %zu sections, one each millisecond\n",
              delays.size());
  for (const double percent : {50.0, 90.0, 99.0, 99.9, 100.0}) {
    const auto last = static_cast<double>(delays.size() - 1);
    std::printf("%6.1f %%   %9.1f us\n", percent, delays[static_cast<std::size_t>(last * percent / 100)]);
  }
}

void RunAll(bool quick) {
  setenv("LUMIO_LOG", "none", /*overwrite=*/1);
  ecore_app_no_system_modules();
  ecore_init();
  const lumio::TemporaryDirectory directory;
  const std::string path = directory / "stream.ts";
  setenv("LUMIO_RECORDINGS", (directory / "recordings").c_str(), /*overwrite=*/1);
  std::ifstream file(LUMIO_SAMPLE, std::ios::binary);
  const ts::Bytes sample{std::istreambuf_iterator<char>(file), {}};
  const std::size_t times = (quick ? 20'000'000 : 1'000'000'000) / sample.size() + 1;
  Write(path, sample, times);
  MeasureInfo(path, times * sample.size(), quick ? 1 : 5);
  {
    const Module module;
    MeasurePlaying(path, quick ? 500 : 10'000);
    MeasureSections(path, quick ? 200 : 5'000);
  }
  CTVServiceSubscriber::ReleaseAll();
  lumio::tv::Shutdown();
  ecore_shutdown();
}

} // namespace

int main(int argc, char **argv) {
  try {
    RunAll(argc > 1 && std::strcmp(argv[1], "--quick") == 0); // only shows that everything runs
  } catch (const std::exception &error) {
    std::fprintf(stderr, "broadcast_bench: %s\n", error.what());
    return 1;
  }
}
