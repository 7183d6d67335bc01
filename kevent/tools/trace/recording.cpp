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

// If a key comes while the previous one is handled, the main loop may still become idle between them: it looks for X
// events after that. A key that clearly came before an earlier key's handler was done counts as queued all the same.
// `ends` has the times when the handlers of each key were done.
void FindQueuedKeys(Recording &recording, const std::multimap<int, Nanoseconds> &ends) {
  constexpr Nanoseconds kClearly = 3 * kMillisecond; // the X server counts milliseconds
  int number = 0;
  for (RecordedEvent &event : recording.events) {
    if (event.IsKey()) {
      ++number;
      event.is_queued =
          event.Number(2) != 0 || std::any_of(ends.begin(), ends.lower_bound(number),
                                              [&](const auto &end) { return event.time + kClearly < end.second; });
    }
  }
}

// Moves what the program does by itself while keys are queued behind them: the program cannot go on before they come.
void PutQueuedKeysFirst(std::vector<RecordedEvent> &events) {
  for (size_t i = 1; i < events.size(); ++i) {
    for (size_t at = i; at > 0 && events[at].is_queued && events[at - 1].IsOwn(); --at) {
      std::swap(events[at], events[at - 1]);
    }
  }
}

} // namespace

long long RecordedEvent::Number(size_t word) const { return strtoll(Word(word).c_str(), nullptr, 10); }

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
    throw std::runtime_error(file_name + " is not a recording of lumio-trace --record, or has another version");
  }
  Recording recording;
  std::multimap<int, Nanoseconds> ends; // of handlers, by key
  while (std::getline(file, line)) {
    const RecordedEvent event = ReadEvent(line);
    const auto key = static_cast<int>(event.words.empty() ? 0 : strtol(event.words[0].c_str(), nullptr, 10));
    if (event.kind == "hold") {
      recording.holds[{key, static_cast<int>(event.Number(1))}] = event.Number(2) * 1000;
      ends.emplace(key, event.time);
    } else if (event.kind == "refused") {
      recording.refusals[{event.Word(0), static_cast<int>(event.Number(1))}] = true;
    } else if (event.kind == "aging") {
      recording.aging[key] = true;
    } else {
      recording.events.push_back(event);
    }
  }
  FindQueuedKeys(recording, ends);
  PutQueuedKeysFirst(recording.events);
  return recording;
}

} // namespace lumio::trace
