#include "record.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "session.h"
#include "text.h"

namespace lumio::trace {

namespace {

std::atomic<Nanoseconds> g_begin{0};
std::atomic<unsigned> g_idle_count{0};
unsigned g_idle_count_of_last_key; // used on the main-loop thread only
int g_keys;                        // used on the main-loop thread only
int g_callbacks;                   // used on the main-loop thread only
Nanoseconds g_last_known;          // last time that a replay knows; used on the main-loop thread only

void WriteAll(const char *bytes, size_t size) {
  const int error = errno;
  while (size > 0) {
    const ssize_t written = write(TheOptions().record, bytes, size);
    if (written < 0 && errno != EINTR) {
      break;
    }
    bytes += std::max<ssize_t>(written, 0);
    size -= static_cast<size_t>(std::max<ssize_t>(written, 0));
  }
  errno = error;
}

// An event of any length as in the recording: its kind and its fields.
class Fields {
public:
  explicit Fields(std::string kind) : text_(std::move(kind)) {}

  template <class Number> Fields &Add(Number number) {
    text_ += ' ' + std::to_string(number);
    return *this;
  }
  Fields &AddText(const std::string &value) {
    Text text;
    text.AppendQuoted(value.c_str());
    text_ += ' ' + std::string(text.Data(), text.Size());
    return *this;
  }
  Fields &AddBytes(const unsigned char *bytes, size_t size) {
    static constexpr char kDigits[] = "0123456789abcdef";
    text_ += " x";
    for (size_t i = 0; i < size; ++i) {
      text_ += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
    }
    return *this;
  }
  const std::string &AsText() const { return text_; }

private:
  std::string text_;
};

// Writes the line at once. What came before the times began has the time 0, or was sent before it.
void Write(Nanoseconds when, const Fields &fields) {
  const Nanoseconds time = g_begin == 0 ? 0 : when - g_begin;
  Text text;
  text.AppendBytes(time < 0 ? "-" : "");
  text.AppendNumber(std::abs(time) / kSecond, 1);
  text.AppendBytes(".");
  text.AppendNumber(std::abs(time) % kSecond / 1000, 6);
  text.AppendBytes(" ");
  const std::string line = std::string(text.Data(), text.Size()) + fields.AsText() + '\n';
  WriteAll(line.data(), line.size());
}

} // namespace

bool IsRecording() { return TheOptions().record >= 0; }

void BeginRecord() {
  if (IsRecording()) {
    constexpr char kHeader[] = "lumio-record 1\n";
    WriteAll(kHeader, strlen(kHeader));
  }
}

bool BeginTimes() {
  const bool is_first = g_begin == 0;
  if (is_first) {
    g_begin = Now();
  }
  return is_first;
}

void RecordIdle() { ++g_idle_count; }

bool HasRecordBegun() { return g_begin != 0; }

void RecordEnd() {
  static std::atomic<bool> recorded{false};
  if (IsRecording() && g_begin != 0 && !recorded.exchange(true)) {
    Write(Now(), Fields("end"));
  }
}

void RecordDevice(const std::string &device) {
  if (IsRecording() && !device.empty()) {
    Write(Now(), Fields("device").AddText(device));
  }
}

int RecordKey(const std::string &key, bool press, const std::string &device, int stall, Nanoseconds posted,
              Nanoseconds late) {
  const bool queued = g_keys > 0 && g_idle_count == g_idle_count_of_last_key;
  g_idle_count_of_last_key = g_idle_count;
  ++g_keys;
  g_last_known = Now();
  if (IsRecording()) {
    Write(posted, Fields(press ? "press" : "release")
                      .AddText(key)
                      .AddText(device)
                      .Add(queued ? 1 : 0)
                      .Add(stall)
                      .Add(late / 1000));
  }
  return g_keys;
}

void RecordAging(int key) {
  if (IsRecording()) {
    Write(Now(), Fields("aging").Add(key));
  }
}

int CountCallback() { return g_begin == 0 ? 0 : ++g_callbacks; }

// A replay knows the time again with each event and each callback that is recorded.
void RecordHold(int callback, Nanoseconds begin, Nanoseconds end, Nanoseconds own) {
  if (IsRecording() && callback != 0 && (end - begin >= kHold || begin - g_last_known >= kHold)) {
    Write(end, Fields("hold").Add(callback).Add((end - begin) / 1000).Add(own / 1000));
    g_last_known = end;
  }
}

void RecordSilence(Nanoseconds duration) {
  if (IsRecording() && g_begin != 0) {
    Write(Now() - duration, Fields("silence").Add(duration / 1000));
  }
}

void RecordTimer(const std::string &function, int number) {
  g_last_known = Now();
  if (IsRecording() && g_begin != 0) {
    Write(g_last_known, Fields("timer").AddText(function).Add(number));
  }
}

void RecordCall(const std::string &function) {
  g_last_known = Now();
  if (IsRecording() && g_begin != 0) {
    Write(g_last_known, Fields("call").AddText(function));
  }
}

void RecordRefusal(const char *call, int number) {
  if (IsRecording()) {
    Write(Now(), Fields("refused").AddText(call).Add(number));
  }
}

void RecordBanners(int word) {
  if (IsRecording() && word != 0) {
    Write(Now(), Fields("banners").Add(word));
  }
}

void RecordBanner(int banner, int state) {
  if (IsRecording() && g_begin != 0) {
    Write(Now(), Fields("banner").Add(banner).Add(state));
  }
}

void RecordState(int state) {
  if (IsRecording() && g_begin != 0) {
    Write(Now(), Fields("state").Add(state));
  }
}

void RecordPlug(const std::string &device, bool in) {
  if (IsRecording()) {
    Write(Now(), Fields(in ? "plug" : "unplug").AddText(device));
  }
}

#ifdef LUMIO_TRACE_HOST_TYPES

std::string TextOf(const TSignalEvent &event) {
  return Fields("signal")
      .Add(static_cast<int>(event.signalType))
      .Add(static_cast<int>(event.profile))
      .Add(event.screenId)
      .Add(event.signalData.value)
      .Add(event.signalData.extra)
      .AsText();
}

std::string TextOf(const TProgramEvent &event) {
  static const TCProgramData none;
  const SubscriptionName name = NameOfHandle(TvKind::kProgram, event.handle);
  const TCProgramData &data = event.programData ? *event.programData : none;
  return Fields("program")
      .AddText(name.module)
      .Add(name.number)
      .Add(static_cast<int>(event.changeType))
      .Add(event.arg)
      .Add(data.serviceId)
      .Add(data.eventId)
      .Add(data.startTime)
      .Add(data.duration)
      .AddText(data.title)
      .AddText(data.description)
      .AsText();
}

std::string TextOf(const TPesEvent &event) {
  return Fields("pes")
      .Add(event.data->pid)
      .Add(static_cast<int>(event.data->streamId))
      .Add(event.data->pts)
      .AddBytes(event.data->payload.data(), event.data->payload.size())
      .AsText();
}

std::string TextOf(const TCaptionEvent &event) {
  return Fields("caption")
      .Add(event.data->language)
      .Add(event.data->pts)
      .AddBytes(event.data->payload.data(), event.data->payload.size())
      .AsText();
}

std::string TextOf(const SectionEvent &event) {
  return Fields("section")
      .AddText(event.subscription.module)
      .Add(event.subscription.number)
      .Add(event.flag ? 1 : 0)
      .AddBytes(event.bytes, event.size)
      .AsText();
}

std::string TextOf(const TSDsmMessage &message) {
  const SubscriptionName session = NameOfHandle(TvKind::kDsm, message.sessionHandle);
  return Fields("dsm")
      .AddText(session.module)
      .Add(session.number)
      .Add(message.type)
      .Add(message.status)
      .Add(message.version)
      .Add(message.moduleId)
      .AddBytes(static_cast<const unsigned char *>(message.data), message.size)
      .AsText();
}

std::string TextOf(const ps_result_thirdpart &result) {
  return Fields("pvr-result")
      .Add(result.operation)
      .Add(result.request_id)
      .Add(result.result)
      .Add(result.program)
      .Add(result.duration)
      .Add(result.free_space)
      .Add(result.reserved)
      .AsText();
}

std::string TextOf(pvr_state_e state) { return Fields("pvr-state").Add(static_cast<int>(state)).AsText(); }

#else // a television's notifications have contents of their own

std::string TextOf(const TSignalEvent &) { return ""; }
std::string TextOf(const TProgramEvent &) { return ""; }
std::string TextOf(const TPesEvent &) { return ""; }
std::string TextOf(const TCaptionEvent &) { return ""; }
std::string TextOf(const SectionEvent &) { return ""; }
std::string TextOf(const TSDsmMessage &) { return ""; }
std::string TextOf(const ps_result_thirdpart &) { return ""; }
std::string TextOf(pvr_state_e) { return ""; }

#endif

void RecordDelivery(const std::string &text, Nanoseconds posted) {
  g_last_known = Now();
  if (IsRecording() && !text.empty()) {
    Write(posted, Fields(text).Add((Now() - posted) / 1000));
  }
}

void RecordService(const std::string &text) {
  if (IsRecording() && !text.empty()) {
    Write(Now(), Fields(text));
  }
}

} // namespace lumio::trace
