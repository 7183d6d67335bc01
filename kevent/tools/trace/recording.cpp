#include "recording.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace lumio::trace {

namespace {

// Reads a quoted text, in which \u0022 stands for a quote.
std::string ReadText(const std::string &line, size_t *at) {
  std::string text;
  for (++*at; *at < line.size() && line[*at] != '"'; ++*at) {
    if (line.compare(*at, 2, "\\u") == 0 && *at + 6 <= line.size()) {
      text += static_cast<char>(strtol(line.substr(*at + 2, 4).c_str(), nullptr, 16));
      *at += 5;
    } else {
      text += line[*at];
    }
  }
  ++*at;
  return text;
}

std::string ReadBytes(const std::string &word) {
  std::string bytes;
  for (size_t i = 1; i + 1 < word.size(); i += 2) {
    bytes += static_cast<char>(strtol(word.substr(i, 2).c_str(), nullptr, 16));
  }
  return bytes;
}

std::vector<std::string> ReadWords(const std::string &line) {
  std::vector<std::string> words;
  for (size_t at = line.find_first_not_of(' '); at < line.size(); at = line.find_first_not_of(' ', at)) {
    if (line[at] == '"') {
      words.push_back(ReadText(line, &at));
      continue;
    }
    const size_t end = std::min(line.find(' ', at), line.size());
    const std::string word = line.substr(at, end - at);
    words.push_back(word[0] == 'x' ? ReadBytes(word) : word);
    at = end;
  }
  return words;
}

RecordedEvent ReadEvent(const std::string &line) {
  std::vector<std::string> words = ReadWords(line);
  if (words.size() < 2) {
    throw std::runtime_error("this is not an event: " + line);
  }
  RecordedEvent event;
  event.time = static_cast<Nanoseconds>(strtod(words[0].c_str(), nullptr) * static_cast<double>(kSecond));
  event.kind = words[1];
  event.words.assign(words.begin() + 2, words.end());
  return event;
}

EventClass ClassOf(const std::string &kind) {
  static const std::map<std::string, EventClass> classes = {
      {"press", EventClass::kKey},           {"release", EventClass::kKey},
      {"signal", EventClass::kNotification}, {"program", EventClass::kNotification},
      {"pes", EventClass::kNotification},    {"caption", EventClass::kNotification},
      {"section", EventClass::kService},     {"dsm", EventClass::kService},
      {"pvr-result", EventClass::kService},  {"pvr-state", EventClass::kService},
      {"banner", EventClass::kOwn},          {"state", EventClass::kOwn},
      {"timer", EventClass::kTimer},         {"call", EventClass::kCall},
      {"plug", EventClass::kPlug},           {"unplug", EventClass::kPlug},
      {"silence", EventClass::kSilence},     {"end", EventClass::kEnd}};
  const auto found = classes.find(kind);
  if (found == classes.end()) {
    throw std::runtime_error("the recording has an event of the unknown kind '" + kind + "'");
  }
  return found->second;
}

// Without the time in front and, if the main loop delivers it, the lateness behind.
std::string NotificationIn(const std::string &line, EventClass event_class) {
  const size_t begin = line.find(' ') + 1;
  if (event_class == EventClass::kService) {
    return line.substr(begin);
  }
  return event_class == EventClass::kNotification ? line.substr(begin, line.rfind(' ') - begin) : "";
}

// Returns whether the event was sent while the main loop was busy, clearly before the end of that, since the X server
// counts milliseconds, and had to wait for it. The main loop reached `previous` before the event.
bool WasSentDuring(const Busy &busy, const RecordedEvent &event, const RecordedEvent &previous) {
  constexpr Nanoseconds kClearly = 3 * kMillisecond;
  return busy.begin - kMillisecond <= event.time && event.time + kClearly < busy.end &&
         event.Begin() >= busy.end - kMillisecond && (previous.is_queued || previous.Begin() < busy.end);
}

// Several keys can wait for a busy main loop, because it reaches them in the order in which they were sent. A key and a
// notification that both wait have no such order: the second one is sent when the first one is handled. So is an event
// that the main loop reached after the program's own work.
void FindQueuedEvents(Recording &recording, std::vector<Busy> times) {
  for (const RecordedEvent &event : recording.events) {
    if (event.Is(EventClass::kSilence)) {
      times.push_back({event.time, event.time + event.Number(0) * 1000, event.Number(0) * 1000});
    }
  }
  const RecordedEvent *previous = nullptr;
  for (RecordedEvent &event : recording.events) {
    const bool is_alone = previous && !previous->Is(EventClass::kTimer) && !previous->Is(EventClass::kCall);
    const bool can_wait = is_alone && (event.Is(EventClass::kKey) || event.Is(EventClass::kNotification)) &&
                          (!previous->is_queued || (event.Is(EventClass::kKey) && previous->Is(EventClass::kKey)));
    event.is_queued = can_wait && std::any_of(times.begin(), times.end(),
                                              [&](const Busy &busy) { return WasSentDuring(busy, event, *previous); });
    previous = event.Is(EventClass::kOwn) ? previous : &event;
  }
}

// Moves what the program does by itself behind the events that wait meanwhile: the program cannot go on before they
// come.
void PutQueuedEventsFirst(std::vector<RecordedEvent> &events) {
  for (size_t i = 1; i < events.size(); ++i) {
    for (size_t at = i; at > 0 && events[at].is_queued && events[at - 1].Is(EventClass::kOwn); --at) {
      std::swap(events[at], events[at - 1]);
    }
  }
}

} // namespace

long long RecordedEvent::Number(size_t word) const { return strtoll(Word(word).c_str(), nullptr, 10); }

// It is the last word of each event that the main loop delivers.
Nanoseconds RecordedEvent::Late() const {
  const bool is_delivered = Is(EventClass::kKey) || Is(EventClass::kNotification);
  return is_delivered && !words.empty() ? Number(words.size() - 1) * 1000 : 0;
}

Nanoseconds RecordedEvent::Begin() const { return time + (IsLateness(Late()) ? std::max<Nanoseconds>(Late(), 0) : 0); }

const std::string &RecordedEvent::Word(size_t word) const {
  if (word >= words.size()) {
    throw std::runtime_error("an event of the kind '" + kind + "' is incomplete");
  }
  return words[word];
}

Recording ReadRecording(const std::string &file_name) {
  std::ifstream file(file_name);
  std::string line;
  if (!std::getline(file, line) || line != "lumio-record 1") {
    throw std::runtime_error(file_name +
                             " cannot be read, or is not a recording of this version of lumio-trace --record");
  }
  Recording recording;
  std::vector<Busy> times;
  while (std::getline(file, line)) {
    RecordedEvent event = ReadEvent(line);
    if (event.kind == "hold") {
      const Busy busy{event.time - event.Number(1) * 1000, event.time, event.Number(2) * 1000};
      recording.holds[static_cast<int>(event.Number(0))] = busy;
      times.push_back(busy);
    } else if (event.kind == "refused") {
      recording.refusals[{event.Word(0), static_cast<int>(event.Number(1))}] = true;
    } else if (event.kind == "aging") {
      recording.aging[static_cast<int>(event.Number(0))] = true;
    } else if (event.kind == "banners") {
      recording.banners = static_cast<int>(event.Number(0));
    } else if (event.kind == "device") {
      recording.device = event.Word(0);
    } else {
      event.event_class = ClassOf(event.kind);
      event.notification = NotificationIn(line, event.event_class);
      recording.events.push_back(event);
    }
  }
  FindQueuedEvents(recording, times);
  PutQueuedEventsFirst(recording.events);
  return recording;
}

} // namespace lumio::trace
