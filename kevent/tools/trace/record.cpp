#include "record.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "session.h"
#include "text.h"

namespace lumio::trace {

namespace {

constexpr Nanoseconds kHold = kMillisecond; // the replay does not extend shorter ones

std::atomic<Nanoseconds> g_begin{0};
std::atomic<unsigned> g_idle_count{0};
unsigned g_idle_count_of_last_key; // used on the main-loop thread only
int g_keys;                        // used on the main-loop thread only

bool IsRecording() { return TheOptions().record >= 0; }

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

// A line of any length, written at once.
class Line {
public:
  Line(Nanoseconds when, const char *event) {
    const Nanoseconds time = g_begin == 0 ? 0 : std::max<Nanoseconds>(when - g_begin, 0);
    Text text;
    text.AppendNumber(time / kSecond, 1);
    text.AppendBytes(".");
    text.AppendNumber(time % kSecond / 1000, 6);
    text.AppendBytes(" ");
    text.AppendBytes(event);
    line_.assign(text.Data(), text.Size());
  }
  ~Line() {
    line_ += '\n';
    WriteAll(line_.data(), line_.size());
  }
  Line(const Line &) = delete;
  Line &operator=(const Line &) = delete;

  template <class Number> Line &Add(Number number) {
    line_ += ' ' + std::to_string(number);
    return *this;
  }
  Line &AddText(const std::string &value) {
    Text text;
    text.AppendQuoted(value.c_str());
    line_ += ' ' + std::string(text.Data(), text.Size());
    return *this;
  }
  Line &AddBytes(const unsigned char *bytes, size_t size) {
    static constexpr char kDigits[] = "0123456789abcdef";
    line_ += " x";
    for (size_t i = 0; i < size; ++i) {
      line_ += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
    }
    return *this;
  }

private:
  std::string line_;
};

} // namespace

void RecordIdle() {
  if (g_begin == 0) {
    g_begin = Now();
    if (IsRecording()) {
      constexpr char kHeader[] = "lumio-record 1\n";
      WriteAll(kHeader, strlen(kHeader));
    }
  }
  ++g_idle_count;
}

void RecordEnd() {
  static std::atomic<bool> recorded{false};
  if (IsRecording() && g_begin != 0 && !recorded.exchange(true)) {
    Line(Now(), "end");
  }
}

int RecordKey(const std::string &key, bool press, const std::string &device, Nanoseconds posted) {
  const bool queued = g_keys > 0 && g_idle_count == g_idle_count_of_last_key;
  g_idle_count_of_last_key = g_idle_count;
  ++g_keys;
  if (IsRecording()) {
    Line(posted, press ? "press" : "release").AddText(key).AddText(device).Add(queued ? 1 : 0);
  }
  return g_keys;
}

void RecordAging(int key) {
  if (IsRecording()) {
    Line(Now(), "aging").Add(key);
  }
}

void RecordHold(int key, int handler, Nanoseconds duration) {
  if (IsRecording() && duration >= kHold) {
    Line(Now(), "hold").Add(key).Add(handler).Add(duration / 1000);
  }
}

void RecordSilence(Nanoseconds duration) {
  if (IsRecording()) {
    Line(Now() - duration, "silence").Add(duration / 1000);
  }
}

void RecordRefusal(const char *call, int number) {
  if (IsRecording()) {
    Line(Now(), "refused").AddText(call).Add(number);
  }
}

void RecordBanner(int banner, int state) {
  if (IsRecording() && g_begin != 0) {
    Line(Now(), "banner").Add(banner).Add(state);
  }
}

void RecordState(int state) {
  if (IsRecording() && g_begin != 0) {
    Line(Now(), "state").Add(state);
  }
}

void RecordPlug(const std::string &device, bool in) {
  if (IsRecording()) {
    Line(Now(), in ? "plug" : "unplug").AddText(device);
  }
}

#ifdef LUMIO_TRACE_HOST_TYPES

void RecordNotification(const TSignalEvent &event) {
  if (IsRecording()) {
    Line(Now(), "signal")
        .Add(static_cast<int>(event.signalType))
        .Add(static_cast<int>(event.profile))
        .Add(event.screenId)
        .Add(event.signalData.value)
        .Add(event.signalData.extra);
  }
}

void RecordNotification(const TProgramEvent &event) {
  if (!IsRecording() || !event.programData) {
    return;
  }
  const SubscriptionName name = NameOfHandle(TvKind::kProgram, event.handle);
  const TCProgramData &data = *event.programData;
  Line(Now(), "program")
      .AddText(name.module)
      .Add(name.number)
      .Add(static_cast<int>(event.changeType))
      .Add(event.arg)
      .Add(data.serviceId)
      .Add(data.eventId)
      .Add(data.startTime)
      .Add(data.duration)
      .AddText(data.title)
      .AddText(data.description);
}

void RecordNotification(const TPesEvent &event) {
  if (IsRecording()) {
    Line(Now(), "pes")
        .Add(event.data->pid)
        .Add(static_cast<int>(event.data->streamId))
        .Add(event.data->pts)
        .AddBytes(event.data->payload.data(), event.data->payload.size());
  }
}

void RecordNotification(const TCaptionEvent &event) {
  if (IsRecording()) {
    Line(Now(), "caption")
        .Add(event.data->language)
        .Add(event.data->pts)
        .AddBytes(event.data->payload.data(), event.data->payload.size());
  }
}

void RecordSection(bool flag, unsigned short size, const unsigned char *data, int stream, const std::string &module) {
  if (IsRecording()) {
    Line(Now(), "section").AddText(module).Add(stream).Add(flag ? 1 : 0).AddBytes(data, size);
  }
}

void RecordDsm(const TSDsmMessage &message, const SubscriptionName &session) {
  if (IsRecording()) {
    Line(Now(), "dsm")
        .AddText(session.module)
        .Add(session.number)
        .Add(message.type)
        .Add(message.status)
        .Add(message.version)
        .Add(message.moduleId)
        .AddBytes(static_cast<const unsigned char *>(message.data), message.size);
  }
}

void RecordPvrResult(const ps_result_thirdpart &result) {
  if (IsRecording()) {
    Line(Now(), "pvr-result")
        .Add(result.operation)
        .Add(result.request_id)
        .Add(result.result)
        .Add(result.program)
        .Add(result.duration)
        .Add(result.free_space)
        .Add(result.reserved);
  }
}

void RecordPvrState(pvr_state_e state) {
  if (IsRecording()) {
    Line(Now(), "pvr-state").Add(static_cast<int>(state));
  }
}

#else // On a television the platform defines the contents of the records.

void RecordNotification(const TSignalEvent &) {}
void RecordNotification(const TProgramEvent &) {}
void RecordNotification(const TPesEvent &) {}
void RecordNotification(const TCaptionEvent &) {}
void RecordSection(bool, unsigned short, const unsigned char *, int, const std::string &) {}
void RecordDsm(const TSDsmMessage &, const SubscriptionName &) {}
void RecordPvrResult(const ps_result_thirdpart &) {}
void RecordPvrState(pvr_state_e) {}

#endif

} // namespace lumio::trace
