// lumio-tv watch: plays a transport stream and prints each notification as the library's modules get it.
#include <lumio-host/broadcast.h>
#include <lumio-host/tv-control.h>

#include <Ecore.h>
#include <TVServiceSubscriber.h>

#include <cinttypes>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

#include "byte_source.h"
#include "lumio-tv.h"

namespace lumio::tool {

namespace {

// Prints a whole line, on any thread.
__attribute__((format(printf, 2, 3))) void Print(const char *kind, const char *format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  printf("%9.3f  %-9s  %s\n", static_cast<double>(broadcast::Position().count()) / 1000, kind, text);
}

// Calls that wait for the main loop; the last one is still here when the loop ends.
std::mutex g_waiting_mutex;
std::list<std::function<void()>> g_waiting; // guarded by the mutex

void GoOn(void *) {
  std::list<std::function<void()>> going;
  {
    const std::lock_guard<std::mutex> lock(g_waiting_mutex);
    going.swap(g_waiting);
  }
  for (const std::function<void()> &go_on : going) {
    go_on();
  }
}

// Calls `goOn` on the main loop, after everything that the library has posted there.
void AfterTheMainLoop(std::function<void()> goOn) {
  {
    const std::lock_guard<std::mutex> lock(g_waiting_mutex);
    g_waiting.push_back(std::move(goOn));
  }
  ecore_main_loop_thread_safe_call_async([](void *) { ecore_job_add(GoOn, nullptr); }, nullptr);
}

void PrintSignal(ESignalType type, TSSignalData data) {
  switch (type) {
  case SIGNAL_TYPE_LOCK:
    Print("signal", "%s", data.value != 0 ? "locked" : "lost");
    break;
  case SIGNAL_TYPE_SERVICE_CHANGED:
    Print("signal", "service %d", data.value);
    break;
  case SIGNAL_TYPE_AUDIO_CHANGED:
  case SIGNAL_TYPE_VIDEO_CHANGED:
    Print("signal", "%s PID %d, type 0x%02x", type == SIGNAL_TYPE_AUDIO_CHANGED ? "audio" : "video", data.value,
          static_cast<unsigned>(data.extra));
    break;
  case SIGNAL_TYPE_SCRAMBLED:
    Print("signal", "%s", data.value != 0 ? "scrambled" : "clear");
    break;
  case SIGNAL_TYPE_STRENGTH:
    Print("signal", "strength %d %%, quality %d %%", data.value, data.extra);
    break;
  }
}

int OnSignal(ESignalType type, EProfile, unsigned short, TSSignalData data, void *) {
  PrintSignal(type, data);
  if (type == SIGNAL_TYPE_LOCK && data.value == 0 && broadcast::HasEnded()) {
    // Each kind of notification has a thread of its own, and another kind's may still be busy. Called on this thread,
    // the quit would overtake what they have sent to the main loop.
    lumio::tv::Flush();
    std::thread([] { AfterTheMainLoop([] { ecore_main_loop_quit(); }); }).join();
  }
  return 1;
}

void OnProgram(EProgramChangeType change, TCProgramData *data, int position, int) {
  static constexpr const char *kNames[] = {"present", "following", "in list"};
  Print("programme", "%s %d: service %u, event %u, %s, %s, \"%s\"", kNames[change], position,
        static_cast<unsigned>(data->serviceId & 0xffff), data->eventId,
        data->startTime == 0 ? "no time" : TimeText(data->startTime).c_str(), DurationText(data->duration).c_str(),
        OneLine(data->title).c_str());
}

void OnSection(bool valid, unsigned short size, unsigned char *bytes, int pid) {
  Print("section", "PID %d, table 0x%02x, %u bytes%s", pid, bytes[0], size, valid ? "" : ", wrong checksum");
}

std::string PtsText(unsigned long long pts) { return pts == ~0ULL ? "no PTS" : "PTS " + std::to_string(pts); }

void OnPes(TSPESData &data, void *) {
  Print("PES", "PID %u, stream 0x%02x, %s, %zu bytes", data.pid, data.streamId, PtsText(data.pts).c_str(),
        data.payload.size());
}

void OnCaption(TSCaption &caption, void *) {
  const std::string text(caption.payload.begin(), caption.payload.end());
  Print("caption", "%s, %s: %s", LanguageText(caption.language).c_str(), PtsText(caption.pts).c_str(),
        text.empty() ? "(erased)" : OneLine(text).c_str());
}

void OnModule(TSDsmMessage &message) {
  Print("module", "%d version %d, %u bytes", message.moduleId, message.version, message.size);
}

// Subscribes to everything that the stream contains.
class Watcher {
public:
  void Subscribe();

private:
  void WatchSections(unsigned short pid);
  void WatchProgrammes(const broadcast::ServiceInfo &service);
  void WatchCarousel(const broadcast::ServiceInfo &service, int tag);

  CTVServiceSubscriber subscriber_{"lumio-tv"};
  std::list<CTVServiceSubscriber> carousels_; // an object can attach to one only
};

void Watcher::Subscribe() {
  subscriber_.SetSignalCallback(OnSignal);
  for (int type = SIGNAL_TYPE_LOCK; type <= SIGNAL_TYPE_STRENGTH; ++type) {
    subscriber_.SubscribeSignal(static_cast<ESignalType>(type), nullptr, PROFILE_MAIN, 0);
  }
  subscriber_.SetProgramCallback(OnProgram);
  subscriber_.SetSectionCallback(OnSection);
  constexpr unsigned short kTables[] = {0x00, 0x01, 0x10, 0x11, 0x12, 0x13, 0x14};
  for (const unsigned short pid : kTables) {
    WatchSections(pid);
  }
  subscriber_.SubscribePES(OnPes, nullptr);
  subscriber_.SubscribeCaption(OnCaption, nullptr);
  for (const broadcast::ServiceInfo &service : broadcast::Services()) {
    WatchSections(service.pmtPid);
    WatchProgrammes(service);
    for (const broadcast::StreamInfo &stream : service.streams) {
      if (stream.kind == "carousel" && stream.componentTag >= 0) {
        WatchCarousel(service, stream.componentTag);
      }
    }
  }
}

void Watcher::WatchSections(unsigned short pid) {
  TCSectionFilterCriteriaHelper filter;
  filter.pid = pid;
  int handle = 0;
  subscriber_.SubscribeSectionByFilter(static_cast<short>(pid), filter, handle);
}

void Watcher::WatchProgrammes(const broadcast::ServiceInfo &service) {
  int handle = 0;
  subscriber_.SubscribeProgramListPF(0, service.serviceId, SUBSCRIBE_TYPE_CHANGES, handle);
  subscriber_.SubscribeProgramList(0, service.serviceId, 0, UINT_MAX, SUBSCRIBE_TYPE_CHANGES, handle);
}

void Watcher::WatchCarousel(const broadcast::ServiceInfo &service, int tag) {
  char target[64];
  snprintf(target, sizeof target, "dvb://%llx.%llx.%llx/%x", service.serviceId >> 32, service.serviceId >> 16 & 0xffff,
           service.serviceId & 0xffff, static_cast<unsigned>(tag));
  unsigned session = 0;
  CTVServiceSubscriber &module = carousels_.emplace_back("lumio-tv " + std::string(target));
  module.AttachDsm(OnModule, session, target, DSM_DATA_SERVICE_DATA_CAROUSEL, DSM_ATTACH_CACHED, nullptr, false);
}

int Play(const std::string &file, const broadcast::Options &options) {
  ecore_app_no_system_modules();
  ecore_init();
  int status = kDone;
  if (broadcast::Open(file, options)) {
    Watcher watcher;
    watcher.Subscribe();
    broadcast::Pause(false);
    ecore_main_loop_begin();
    CTVServiceSubscriber::ReleaseAll();
  } else {
    const int error = broadcast::FileSource().Open(file);
    status = Complain(file, error != 0 ? strerror(error) : "not a transport stream");
  }
  lumio::tv::Shutdown();
  ecore_shutdown();
  return status;
}

} // namespace

int Watch(const Arguments &arguments) {
  broadcast::Options options;
  options.atEnd = broadcast::AtEnd::LoseSignal;
  options.paused = true;
  std::size_t i = 0;
  for (; i < arguments.size() && arguments[i][0] == '-'; ++i) {
    if (arguments[i] == "--fast") {
      options.clock = broadcast::Clock::None;
      options.settle = AfterTheMainLoop;
    } else if (arguments[i] == "--service" && i + 1 < arguments.size()) {
      options.service = std::atoi(arguments[++i].c_str());
    } else {
      return kWrongUsage;
    }
  }
  if (i + 1 != arguments.size()) {
    return kWrongUsage;
  }
  setenv("LUMIO_LOG", "none", /*overwrite=*/0); // the library's log, which has a line for each notification
  setvbuf(stdout, nullptr, _IOLBF, 0);
  return Play(arguments[i], options);
}

} // namespace lumio::tool
