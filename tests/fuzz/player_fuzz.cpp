// Plays arbitrary bytes as a transport stream, with a subscription to everything and a recording of the first service.
// Nothing may crash, hang or exceed its memory limit. scripts/fuzz builds and runs it.
#include <dlog.h>
#include <lumio-host/broadcast.h>
#include <lumio-host/tv-control.h>

#include <sys/mman.h>
#include <unistd.h>

#include <TVServiceAPI.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "made_stream.h"
#include "packet.h"
#include "recorder.h"

namespace broadcast = lumio::broadcast;
using broadcast::Bytes;
using namespace std::chrono_literals;

// Replaces the platform's log.
int __dlog_print(int, int, const char *, const char *, ...) { return 0; }

namespace {

void Check(bool holds) {
  if (!holds) {
    std::abort();
  }
}

// Reads a notification to its last byte, so that the sanitizer finds memory that is not there.
unsigned g_sum = 0;

template <class Container> void Read(const Container &bytes) {
  for (const auto byte : bytes) {
    g_sum += static_cast<unsigned char>(byte);
  }
}

int OnSignal(ESignalType, EProfile, unsigned short, TSSignalData data, void *) {
  Check(data.value >= 0 && data.extra >= 0);
  return 1;
}
void OnProgram(EProgramChangeType, TCProgramData *data, int position, int) {
  Check(position >= 0);
  Read(data->title + data->description);
}
void OnSection(bool, unsigned short size, unsigned char *bytes, int) {
  Check(size >= 3 && size <= 4096);
  Read(Bytes(bytes, size));
}
void OnPes(TSPESData &data, void *) {
  Check(data.payload.size() <= 2U << 20);
  Read(data.payload);
}
void OnCaption(TSCaption &caption, void *) { Read(caption.payload); }
void OnDsm(TSDsmMessage &message) { Read(Bytes(static_cast<const std::uint8_t *>(message.data), message.size)); }

void SubscribeSections() {
  ISectionSubscriber *sections = nullptr;
  TVServiceAPI::CreateSectionSubscriber(OnSection, PROFILE_MAIN, 0, &sections);
  for (const unsigned short pid : {0x00, 0x11, 0x12, 0x14, 0x100, 0x101, 0x102, 0x103, 0x104, 0x200}) {
    int handle = 0;
    sections->SubscribeByFilter(1, {pid, {}, {}}, handle);
  }
}

void SubscribeProgrammes(TCServiceId service) {
  IProgramSubscriber *programmes = nullptr;
  TVServiceAPI::CreateProgramSubscriber(OnProgram, &programmes);
  int handle = 0;
  for (const ESubscribeType type : {SUBSCRIBE_TYPE_CHANGES, SUBSCRIBE_TYPE_ONCE}) {
    programmes->SubscribeProgramListPF(0, service, type, handle);
    programmes->SubscribeProgramList(0, service, 0, UINT_MAX, type, handle);
  }
  programmes->SubscribeProgram({service, 1}, handle);
}

void SubscribeStreams() {
  IPESDataSubscriber *pes = nullptr;
  TVServiceAPI::CreatePESDataSubscriber(PROFILE_MAIN, 0, &pes);
  int handle = 0;
  pes->Subscribe(OnPes, nullptr, &handle);
  IDataSubscriber *captions = nullptr;
  TVServiceAPI::CreateDataSubscriber(PROFILE_MAIN, 0, &captions);
  captions->Subscribe(OnCaption, nullptr, &handle);
}

void Attach(const std::string &target, EDsmAttachType type) {
  IDsm *dsm = nullptr;
  TVServiceAPI::CreateDsm(OnDsm, &dsm);
  unsigned session = 0;
  dsm->Attach(session, {target.begin(), target.end()}, DSM_DATA_SERVICE_DATA_CAROUSEL, type, nullptr, false);
}

std::string TargetOf(TCServiceId service, int tag) {
  char target[64];
  snprintf(target, sizeof target, "dvb://%llx.%llx.%llx/%x", service >> 32, service >> 16 & 0xffff, service & 0xffff,
           static_cast<unsigned>(tag));
  return target;
}

void SubscribeToEverything() {
  ISignalSubscriber *signals = nullptr;
  TVServiceAPI::CreateSignalSubscriber(OnSignal, &signals);
  for (int type = SIGNAL_TYPE_LOCK; type <= SIGNAL_TYPE_STRENGTH; ++type) {
    signals->Subscribe(static_cast<ESignalType>(type), nullptr, PROFILE_MAIN, 0);
  }
  SubscribeSections();
  SubscribeStreams();
  std::vector<broadcast::ServiceInfo> services = broadcast::Services();
  services.resize(std::min<std::size_t>(services.size(), 4));
  for (const broadcast::ServiceInfo &service : services) {
    SubscribeProgrammes(service.serviceId);
    for (const broadcast::StreamInfo &stream : service.streams) {
      if (stream.kind == "carousel") {
        Attach(TargetOf(service.serviceId, stream.componentTag), DSM_ATTACH_CACHED);
        Attach(TargetOf(service.serviceId, stream.componentTag), DSM_ATTACH_NORMAL);
      }
    }
  }
}

void Unsubscribe() {
  TVServiceAPI::DestroySignalSubscriber();
  TVServiceAPI::DestroyProgramSubscriber();
  TVServiceAPI::DestroySectionSubscriber();
  TVServiceAPI::DestroyPESDataSubscriber();
  TVServiceAPI::DestroyDataSubscriber();
  TVServiceAPI::DestroyDsm();
}

// A file that exists in memory only.
class File {
public:
  explicit File(Bytes bytes) : file_(memfd_create("stream", MFD_CLOEXEC)) {
    Check(write(file_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  }
  ~File() { close(file_); }
  File(const File &) = delete;
  File &operator=(const File &) = delete;
  std::string Path() const { return "/proc/self/fd/" + std::to_string(file_); }

private:
  const int file_;
};

void Play(Bytes bytes) {
  const File file(bytes);
  broadcast::Options options;
  options.clock = broadcast::Clock::Virtual;
  options.atEnd = broadcast::AtEnd::LoseSignal;
  if (!broadcast::Open(file.Path(), options)) {
    return;
  }
  const std::vector<broadcast::ServiceInfo> services = broadcast::Services();
  std::size_t recorded = 0;
  broadcast::Recorder recorder(
      services.empty() ? 1 : static_cast<std::uint16_t>(services[0].id),
      [&](const std::uint8_t *packet) { recorded += packet[0] == broadcast::kSyncByte ? 1 : 0; });
  broadcast::SetPacketListener([&](const unsigned char *packet) { recorder.Push(packet); });
  SubscribeToEverything();
  broadcast::Advance(100ms);
  broadcast::Tune(services.empty() ? 2 : services.back().id);
  broadcast::Advance(std::chrono::hours(1000));
  lumio::tv::Flush();
  const broadcast::Counts counts = broadcast::Counted();
  Check(counts.packets * broadcast::kPacketSize <= bytes.size());
  Check(counts.transportErrors + counts.continuityErrors <= counts.packets);
  broadcast::SetPacketListener(nullptr);
  broadcast::Close();
  lumio::tv::Flush();
  Unsubscribe();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const Bytes bytes(data, size);
  if (size > 0 && data[0] == broadcast::kSyncByte) {
    Play(bytes);
  } else {
    Play(Bytes(fuzz::StreamOf(bytes).bytes));
  }
  return 0;
}
