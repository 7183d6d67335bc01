#include "evening.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "device_names.h"

namespace {

constexpr char kBanners[] = "memory/lumio/lumio_banner_state_1";

constexpr auto kPatience = std::chrono::seconds(60);
constexpr auto kPatienceAfterFailure = std::chrono::seconds(3); // the rest only shows how far the evening gets

// Splits a line into its columns, which two or more spaces separate.
std::vector<std::string> Columns(const std::string &line) {
  std::vector<std::string> columns;
  size_t start = 0;
  while (start < line.size()) {
    const size_t end = std::min(line.find("  ", start), line.size());
    columns.push_back(line.substr(start, end - start));
    start = std::min(line.find_first_not_of(' ', end), line.size());
  }
  return columns;
}

struct Remote {
  const char *device; // its name at the X server
  const char *source; // what the viewer calls it
};

constexpr std::array<Remote, 2> kRemotes = {
    {{lumio::device::kTouchRemote, "touch remote"}, {lumio::device::kHardwareKeys, "other device"}}};

// What the canvas shows when the item has this text; nothing where it has no place for the item.
std::string OnCanvas(const std::string &item, const std::string &text) {
  if (item == "picture") {
    return text == "moving" ? "(hidden)" : text; // what hides the picture
  }
  if (item == "light" && text == "(hidden)") {
    return "";
  }
  if (item == "page" && text != "(hidden)") {
    return text.substr(0, text.find(" / ")); // the first row; the rows stand below each other
  }
  const bool is_entry = (item == "menu" || item == "guide") && text != "(hidden)" && text != "loading";
  if (is_entry) { // the first one is under the cursor
    const size_t end = text.find("; ");
    return "[" + text.substr(0, end) + "]" + (end == std::string::npos ? "" : text.substr(end));
  }
  return text;
}

// Whether the line tells of an item that has `text` in what it shows.
bool Contains(const std::vector<std::string> &line, const std::string &text) {
  return line.size() == 4 && line[3].find(text) != std::string::npos;
}

std::string MakePipe(const std::string &path) {
  if (mkfifo(path.c_str(), 0600) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
  return path;
}

std::vector<std::string> ViewerCommand(std::vector<std::string> command, const std::string &guide_file) {
  command.insert(command.end(), {LUMIO_VIEWER, "--studio", "--still", "--grab", "--guide", guide_file});
  return command;
}

std::map<std::string, std::string> Environment(const lumio::PrivateDisplay &display, const std::string &directory) {
  const char *log = std::getenv("LUMIO_LOG");
  std::map<std::string, std::string> environment = {{"LUMIO_LOG", log && *log ? log : directory + "/evening.log"},
                                                    {"LUMIO_VCONF_DIR", directory + "/evening.vconf"}};
  for (const auto &[name, value] : display.Environment()) {
    environment[name] = value;
  }
  return environment;
}

} // namespace

Evening::Evening(const std::string &directory, const std::vector<std::string> &under, bool pictures)
    : directory_(directory), pictures_(pictures), guide_file_(MakePipe(directory + "/evening.guide")),
      environment_(Environment(display_, directory)), viewer_(ViewerCommand(under, guide_file_), environment_),
      watch_({LUMIO_VCONF, "watch", kBanners}, environment_) {}

void Evening::Heading(const std::string &text) {
  book_.push_back({text, {}, {}, ""});
  std::printf("\n== %s\n", text.c_str());
}

void Evening::Press(const std::string &key) {
  remote_ = (remote_ + 1) % kRemotes.size();
  PressOnSameRemote(key);
}

void Evening::PressOnSameRemote(const std::string &key) {
  pressed_[key] = Clock::now();
  display_.Press(kRemotes[remote_].device, key);
}

void Evening::Release(const std::string &key) { display_.Release(kRemotes[remote_].device, key); }

void Evening::ExpectKey(const std::string &key, const std::string &kind, const std::string &asked,
                        const std::string &outcome) {
  const Fields expected = {"key", key, kind, kRemotes[remote_].source, "asked " + asked, outcome};
  // The viewer prints one line per key, in order.
  const Fields found = Find("key", [](const Fields &line) { return line[1] == "key"; });
  slowest_key_ = std::max<std::chrono::duration<double>>(slowest_key_, Clock::now() - pressed_[key]);
  const Fields drawn = FindCanvas("key");
  const Fields expected_drawn = {key, kind, kRemotes[remote_].device, "asked " + asked, outcome};
  book_.back().keys.push_back(key + " " + kind + ": " + outcome);
  Record(key + " " + kind + ": asked " + asked + ", " + outcome,
         found.size() == expected.size() + 2 && std::equal(expected.begin(), expected.end(), found.begin() + 1) &&
             drawn.size() == expected_drawn.size() + 5 &&
             std::equal(expected_drawn.begin(), expected_drawn.end(), drawn.begin() + 4));
}

void Evening::Tap(const std::string &key, const std::string &asked, const std::string &outcome) {
  Press(key);
  ExpectKey(key, "press", asked, outcome);
  Release(key);
  ExpectKey(key, "release", "menu, logger", "taken by nobody");
}

void Evening::ExpectScreen(const std::string &item, const std::string &text) {
  const Fields found =
      Find(item, [&](const Fields &line) { return line.size() == 4 && line[2] == item && line[3] == text; });
  const std::string drawn = OnCanvas(item, text);
  const bool is_drawn = drawn.empty() || Contains(FindCanvas(item), drawn);
  Record(item + " shows \"" + text + "\"", !found.empty() && is_drawn);
}

void Evening::Picture() {
  if (!pictures_) {
    return;
  }
  Scene &scene = book_.back();
  scene.picture = "scene-" + std::to_string(book_.size()) + ".png";
  const std::string file = directory_ + "/" + scene.picture;
  viewer_.WriteLine("picture " + file);
  const std::string written = "picture written: " + file;
  if (Find("studio", [&](const Fields &line) { return line.size() == 4 && line[3] == written; }).empty()) {
    Record("a picture is taken", false);
  }
}

void Evening::Order(const std::string &order) {
  std::printf("   the studio: %s\n", order.c_str());
  viewer_.WriteLine(order);
}

void Evening::ExpectBanners(int word) {
  const std::string wanted = std::string(kBanners) + " " + std::to_string(word);
  const Clock::time_point deadline = Deadline();
  std::optional<std::string> line;
  do {
    line = watch_.ReadLine(deadline);
    std::printf("   another process sees %s\n", line.value_or("nothing").c_str());
  } while (line && *line != wanted);
  Record("another process sees the banners become " + std::to_string(word), line.has_value());
}

void Evening::Run(const std::string &what, const std::vector<std::string> &command, const std::string &answer) {
  lumio::Program process(command, environment_);
  const bool answered = process.ReadLine(Deadline()).value_or("") == answer;
  Record(what, process.Wait(Deadline()) == EXIT_SUCCESS && answered);
}

void Evening::End() {
  Press("q");
  ExpectKey("q", "press", "menu, power", "taken by power");
  ExpectScreen("light", "(hidden)");
  ExpectScreen("subscriptions", "none");
  ExpectScreen("viewer", "closed in order");
  Record("the viewer ends with status 0", viewer_.Wait(Deadline()) == EXIT_SUCCESS);
}

Evening::Fields Evening::Find(const std::string &subject, const std::function<bool(const Fields &)> &wanted) {
  const Clock::time_point deadline = Deadline();
  for (size_t i = next_[subject];; ++i) {
    if (i == lines_.size()) {
      const std::optional<std::string> line = viewer_.ReadLine(deadline);
      if (!line) {
        return {};
      }
      lines_.push_back(Columns(*line));
      if (lines_.back().size() < 2 || lines_.back()[1] != "canvas") {
        std::printf("   %s\n", line->c_str());
      }
    }
    if (lines_[i].size() > 1 && wanted(lines_[i])) {
      next_[subject] = i + 1;
      found_ = i;
      return lines_[i];
    }
  }
}

Evening::Fields Evening::FindCanvas(const std::string &item) {
  const std::string subject = "canvas of " + item;
  next_[subject] = found_;
  return Find(subject, [&](const Fields &line) { return line.size() > 2 && line[1] == "canvas" && line[2] == item; });
}

Clock::time_point Evening::Deadline() const {
  return Clock::now() + (failures_ == 0 ? kPatience : kPatienceAfterFailure);
}

void Evening::Record(const std::string &what, bool happened) {
  book_.back().expected.emplace_back(what, happened);
  ++(happened ? successes_ : failures_);
  if (!happened) {
    std::printf("!! expected: %s\n", what.c_str());
  }
}

bool Evening::Summarise() const {
  std::printf("\n== What was expected\n");
  for (const Scene &scene : book_) {
    std::printf("   %s\n", scene.heading.c_str());
    for (const auto &[what, happened] : scene.expected) {
      std::printf("     %-6s  %s\n", happened ? "ok" : "FAILED", what.c_str());
    }
  }
  if (pictures_) {
    WritePage(directory_ + "/index.html", book_);
    std::printf("The evening in pictures: %s/index.html\n", directory_.c_str());
  }
  std::printf("%d as expected, %d failed\n", successes_, failures_);
  return failures_ == 0;
}
