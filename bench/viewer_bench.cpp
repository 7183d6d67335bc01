// Prints how often the viewer draws its window, and how long it takes to dispatch a key, while keys are held down.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "display.h"
#include "program.h"
#include "temporary_directory.h"

namespace {

using lumio::Clock;

constexpr int kKeys = 90;
constexpr auto kInterval = std::chrono::milliseconds(33); // of a key that repeats

class Viewer {
public:
  Viewer() : viewer_({LUMIO_VIEWER, "--studio", "--grab"}, Environment()) {
    Find("all keys of this display come here");
    display_.Press("HWKeys", "F1");
    display_.Release("HWKeys", "F1");
    KeyTime();
    KeyTime();
  }

  // Returns how often the window has been drawn so far.
  int Frames() {
    viewer_.WriteLine("frames");
    const std::string line = Find("  frames  ", "  screen  ");
    return std::stoi(line.substr(line.rfind(' ')));
  }

  void Repeat(const std::string &key) { display_.Press("HWKeys", key), display_.Release("HWKeys", key); }

  // Returns the milliseconds in the next line about a key.
  double KeyTime() {
    const std::string line = Find("  asked ", "  key     ");
    const size_t end = line.rfind(" ms");
    if (end == std::string::npos) {
      return 0; // nobody was asked
    }
    return std::stod(line.substr(line.rfind(' ', end - 1)));
  }

private:
  std::map<std::string, std::string> Environment() const {
    std::map<std::string, std::string> environment = {{"LUMIO_LOG", "none"}, {"LUMIO_VCONF_DIR", directory_ / "store"}};
    for (const auto &[name, value] : display_.Environment()) {
      environment[name] = value;
    }
    return environment;
  }

  // Returns the next line that contains `text` and has `kind` behind the time.
  std::string Find(const std::string &text, const std::string &kind = "") {
    for (;;) {
      const auto line = viewer_.ReadLine(Clock::now() + std::chrono::seconds(60));
      if (!line || (line->find(text) != std::string::npos && line->compare(line->find("  "), kind.size(), kind) == 0)) {
        return line.value();
      }
    }
  }

  lumio::TemporaryDirectory directory_;
  lumio::PrivateDisplay display_;
  lumio::Program viewer_;
};

void Measure(Viewer &viewer) {
  std::vector<double> times;
  const int frames = viewer.Frames();
  const Clock::time_point start = Clock::now();
  for (int i = 0; i < kKeys; ++i) {
    viewer.Repeat("XF86AudioRaiseVolume");
    times.push_back(viewer.KeyTime());
    viewer.KeyTime(); // of the release
    std::this_thread::sleep_until(start + (i + 1) * kInterval);
  }
  const std::chrono::duration<double> passed = Clock::now() - start;
  std::printf("frames per second        %8.1f\n", (viewer.Frames() - frames) / passed.count());
  std::sort(times.begin(), times.end());
  std::printf("dispatch, median         %8.3f ms\n", times[times.size() / 2]);
  std::printf("dispatch, slowest of %d  %8.3f ms\n", kKeys, times.back());
}

} // namespace

int main() {
  try {
    Viewer viewer;
    std::printf("== the viewer, with the key overlay, while a key repeats\n");
    Measure(viewer);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "viewer_bench: %s\n", error.what());
    return 1;
  }
}
