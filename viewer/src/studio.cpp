#include "studio.h"

#include <TVServiceSubscriber.h>
#include <lumio-host/broadcast.h>
#include <lumio-host/pvr-control.h>
#include <lumio-host/tv-control.h>

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "broadcast.h"
#include "file_descriptor.h"
#include "join.h"

namespace {

using Words = std::vector<std::string>;

std::set<std::string> NamesIn(const std::set<std::string> *names) { return names ? *names : std::set<std::string>(); }

template <class Map> std::set<std::string> NamesIn(const Map *subscriptions) {
  std::set<std::string> names;
  if (subscriptions) {
    for (const auto &[key, copy] : *subscriptions) {
      names.insert(copy->m_name);
    }
  }
  return names;
}

// The modules that share the subscriptions of a kind.
std::set<std::string> Holders(lumio::tv::Kind kind) {
  using Library = CTVServiceSubscriber;
  switch (kind) {
  case lumio::tv::Kind::Signal:
    return NamesIn(Library::m_pSignalSubscriptions);
  case lumio::tv::Kind::Program:
    return NamesIn(Library::m_pProgramSubscriptions);
  case lumio::tv::Kind::Section:
    return NamesIn(Library::m_pSectionSubscriptions);
  case lumio::tv::Kind::Pes:
    return NamesIn(Library::m_pPesSubscriptions);
  case lumio::tv::Kind::Caption:
    return NamesIn(Library::m_pCaptionSubscriptions);
  default:
    return NamesIn(Library::m_pDsmSubscriptions);
  }
}

// Returns the present subscriptions of the TV service by kind, and the modules behind them.
std::string DescribeSubscriptions() {
  const char *const kinds[] = {"signal", "program", "section", "pes", "caption", "dsm"}; // in the order of tv::Kind
  std::map<lumio::tv::Kind, int> counts;
  for (const lumio::tv::Subscription &subscription : lumio::tv::Subscriptions()) {
    ++counts[subscription.kind];
  }
  Words lines;
  for (const auto &[kind, count] : counts) {
    const std::set<std::string> names = Holders(kind);
    lines.push_back(kinds[static_cast<int>(kind)] + (" " + std::to_string(count)) + " (" +
                    lumio::Join(Words(names.begin(), names.end()), ", ") + ")");
  }
  return lines.empty() ? "none" : lumio::Join(lines, "; ");
}

// Describes what is wrong with an order.
struct Misunderstanding {
  std::string what;
};

int ToNumber(const std::string &word, int smallest, int largest) {
  size_t used = 0;
  int number = 0;
  try {
    number = std::stoi(word, &used);
  } catch (const std::logic_error &) {
    used = 0;
  }
  if (used == 0 || used != word.size() || number < smallest || number > largest) {
    throw Misunderstanding{"'" + word + "' is not a number from " + std::to_string(smallest) + " to " +
                           std::to_string(largest)};
  }
  return number;
}

// The words after the name of an order. Reading a missing or wrong word throws a Misunderstanding.
class Arguments {
public:
  explicit Arguments(Words words) : words_(std::move(words)) {}

  int Number(size_t index, int largest, int smallest = 0) const {
    if (index >= words_.size()) {
      throw Misunderstanding{"a number is missing"};
    }
    return ToNumber(words_[index], smallest, largest);
  }
  // At least one word.
  Words From(size_t index) const {
    if (index >= words_.size()) {
      throw Misunderstanding{"text is missing"};
    }
    return {words_.begin() + static_cast<long>(index), words_.end()};
  }
  std::string Text(size_t index) const { return lumio::Join(From(index), " "); }
  bool Has(size_t index) const { return index < words_.size(); }

private:
  Words words_;
};

Words Split(const std::string &line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

// "20:15" of today, in seconds since the epoch; nothing for another word.
std::optional<std::int64_t> TimeToday(const std::string &word) {
  std::time_t now = std::time(nullptr);
  std::tm day = {};
  localtime_r(&now, &day);
  int length = 0;
  if (std::sscanf(word.c_str(), "%2d:%2d%n", &day.tm_hour, &day.tm_min, &length) != 2 ||
      static_cast<size_t>(length) != word.size() || day.tm_hour > 23 || day.tm_min > 59) {
    return std::nullopt;
  }
  day.tm_sec = 0;
  day.tm_isdst = -1;
  return std::mktime(&day);
}

// With "20:15-20:30" in front of the title, the programme has a time.
Programme ToProgramme(const Arguments &arguments) {
  const std::string first = arguments.From(0)[0];
  const size_t dash = first.find('-');
  const auto start = TimeToday(first.substr(0, dash));
  const auto end = dash == std::string::npos ? std::nullopt : TimeToday(first.substr(dash + 1));
  if (start && end && *end > *start) {
    return {arguments.Text(1), *start, static_cast<unsigned>(*end - *start)};
  }
  return {arguments.Text(0)};
}

constexpr int kMost = 1'000'000;

struct Order {
  const char *usage; // name and arguments
  const char *what;  // what it does
  void (*carry_out)(const Arguments &arguments, Studio &studio);
};

using A = const Arguments &;

constexpr Order kOrders[] = {
    {"advance MILLISECONDS", "let time pass in the stream that was opened with play",
     [](A a, Studio &) { lumio::broadcast::Advance(std::chrono::milliseconds(a.Number(0, kMost))); }},
    {"caption TEXT", "broadcast a caption", [](A a, Studio &) { BroadcastCaption(a.Text(0)); }},
    {"disk-space MEBIBYTES", "set the free space on the recording device; 0 is a full disk",
     [](A a, Studio &) { lumio::pvr::SetFreeSpace(a.Number(0, kMost)); }},
    {"following [HH:MM-HH:MM] TITLE", "set the following programme",
     [](A a, Studio &) { BroadcastProgramme(PROGRAM_CHANGE_FOLLOWING, ToProgramme(a)); }},
    {"frames", "print how often the window was drawn", [](A, Studio &studio) { studio.ShowFrames(); }},
    {"greeting NUMBER TEXT", "send a module while the viewer is attaching to the data service the next time",
     [](A a, Studio &) {
       lumio::tv::DuringNext(lumio::tv::Operation::AttachDsm,
                             [module = a.Number(0, kMost), text = a.Text(1)] { BroadcastModule(module, text); });
     }},
    {"lock 1|0", "find (1) or lose (0) the signal",
     [](A a, Studio &) { BroadcastSignal(SIGNAL_TYPE_LOCK, a.Number(0, 1), 0); }},
    {"module NUMBER TEXT", "send a module of the data service",
     [](A a, Studio &) {
       const int module = a.Number(0, kMost);
       BroadcastModule(module, a.Text(1));
     }},
    {"packet SECOND TEXT", "broadcast a PES packet of a private stream",
     [](A a, Studio &) {
       const int second = a.Number(0, kMost);
       BroadcastPacket(second, a.Text(1));
     }},
    {"picture FILE", "write what the window shows to a PNG file",
     [](A a, Studio &studio) { studio.TakePicture(a.Text(0)); }},
    {"play FILE", "open a transport stream, in which time passes only with advance",
     [](A a, Studio &studio) { studio.Play(a.Text(0)); }},
    {"present [HH:MM-HH:MM] TITLE", "set the present programme",
     [](A a, Studio &) { BroadcastProgramme(PROGRAM_CHANGE_PRESENT, ToProgramme(a)); }},
    {"record PROGRAMME", "start to record the programme with this number",
     [](A a, Studio &) { lumio::pvr::StartRecording(a.Number(0, kMost)); }},
    {"refuse-session", "refuse the next attachment to the data service",
     [](A, Studio &) { lumio::tv::RefuseNext(lumio::tv::Operation::AttachDsm, 0); }},
    {"services NAME...", "broadcast a table of services with these names",
     [](A a, Studio &) { BroadcastServices(a.From(0)); }},
    {"speed TIMES", "play the stream of --tv this many times as fast",
     [](A a, Studio &) { lumio::broadcast::SetSpeed(a.Number(0, 100, 1)); }},
    {"stop-recording", "stop the recording", [](A, Studio &) { lumio::pvr::StopRecording(); }},
    {"strength PERCENT QUALITY", "set the strength and the quality of the signal",
     [](A a, Studio &) {
       const int strength = a.Number(0, 100);
       BroadcastSignal(SIGNAL_TYPE_STRENGTH, strength, a.Number(1, 100));
     }},
    {"subscriptions", "print the subscriptions at the TV service and the modules that share them",
     [](A, Studio &studio) { studio.ShowSubscriptions(); }},
};

const Order *FindOrder(const std::string &name) {
  const auto *order = std::find_if(std::begin(kOrders), std::end(kOrders),
                                   [&](const Order &candidate) { return Split(candidate.usage)[0] == name; });
  return order == std::end(kOrders) ? nullptr : order;
}

// A file cannot, since all that it has is there. Ecore would complain on standard error.
bool CanBeWaitedFor(int descriptor) {
  const lumio::FileDescriptor set(epoll_create1(EPOLL_CLOEXEC));
  epoll_event event = {};
  return epoll_ctl(set.Get(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

// An event that orders a picture; it carries the name of its file.
int PictureEvent() {
  static const int type = ecore_event_type_new();
  return type;
}

void PostPicture(void *file) {
  const auto free_file = [](void *, void *event) { delete static_cast<std::string *>(event); };
  ecore_event_add(PictureEvent(), file, free_file, nullptr);
}

} // namespace

Studio::Studio(Presentation &screen, const Canvas &canvas, Channels &channels, bool listen)
    : screen_(screen), canvas_(canvas), channels_(channels),
      picture_(ecore_event_handler_add(PictureEvent(), PictureIsDue, this)) {
  if (listen && CanBeWaitedFor(STDIN_FILENO)) {
    input_ = ecore_main_fd_handler_add(STDIN_FILENO, ECORE_FD_READ, InputCame, this, nullptr, nullptr);
  } else if (listen) {
    file_ = ecore_job_add(FileIsThere, this);
  }
}

Studio::~Studio() {
  if (input_) {
    ecore_main_fd_handler_del(input_);
  }
  if (file_) {
    ecore_job_del(file_);
  }
  ecore_event_handler_del(picture_);
  lumio::pvr::Shutdown();
  lumio::tv::Shutdown();
}

void Studio::ShowSubscriptions() { screen_.Show("subscriptions", DescribeSubscriptions()); }

void Studio::ShowFrames() { screen_.Show("frames", std::to_string(canvas_.Frames())); }

// What the services tell comes by way of the main loop. The order for the picture goes the same way, behind it; on the
// main loop's own thread it would overtake it.
void Studio::TakePicture(const std::string &file) {
  lumio::tv::Flush();
  lumio::pvr::Flush();
  std::thread([&file] { ecore_main_loop_thread_safe_call_async(PostPicture, new std::string(file)); }).join();
}

Eina_Bool Studio::PictureIsDue(void *data, int, void *event) {
  const auto *self = static_cast<Studio *>(data);
  const std::string &file = *static_cast<std::string *>(event);
  const bool saved = self->canvas_.Save(file);
  self->screen_.Show("studio", (saved ? "picture written: " : "the picture cannot be written: ") + file);
  return ECORE_CALLBACK_DONE;
}

void Studio::Play(const std::string &file) {
  screen_.Show("studio", (channels_.PlayByHand(file) ? "stream opened: " : "the stream cannot be played: ") + file);
}

Eina_Bool Studio::InputCame(void *data, Ecore_Fd_Handler *) {
  auto *self = static_cast<Studio *>(data);
  if (self->Read()) {
    return ECORE_CALLBACK_RENEW;
  }
  self->input_ = nullptr;
  return ECORE_CALLBACK_CANCEL;
}

void Studio::FileIsThere(void *data) {
  auto *self = static_cast<Studio *>(data);
  self->file_ = nullptr;
  while (self->Read()) {
  }
}

// Returns whether more may come.
bool Studio::Read() {
  char buffer[1024];
  const ssize_t got = read(STDIN_FILENO, buffer, sizeof buffer);
  if (got <= 0) {
    return false;
  }
  pending_.append(buffer, static_cast<size_t>(got));
  for (size_t end; (end = pending_.find('\n')) != std::string::npos; pending_.erase(0, end + 1)) {
    Obey(pending_.substr(0, end));
  }
  return true;
}

void Studio::Obey(const std::string &line) {
  const Words words = Split(line);
  if (words == Words{"help"}) {
    for (const Order &order : kOrders) {
      screen_.Show("studio", std::string(order.usage) + ": " + order.what);
    }
    return;
  }
  const Order *order = words.empty() ? nullptr : FindOrder(words[0]);
  if (!order) {
    screen_.Show("studio", "not understood: " + line + " (\"help\" lists the orders)");
    return;
  }
  try {
    order->carry_out(Arguments({words.begin() + 1, words.end()}), *this);
  } catch (const Misunderstanding &misunderstanding) {
    screen_.Show("studio", "not understood: " + line + " (" + misunderstanding.what + ": " + order->usage + ")");
  }
}
