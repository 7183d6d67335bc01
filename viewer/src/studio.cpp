#include "studio.h"

#include <TVServiceSubscriber.h>
#include <lumio-host/pvr-control.h>
#include <lumio-host/tv-control.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

#include "join.h"
#include "service_table.h"

namespace {

using Words = std::vector<std::string>;

void EmitSignal(ESignalType type, int value, int extra) {
  lumio::tv::EmitSignal(type, PROFILE_MAIN, 0, {value, extra});
}

void EmitProgramme(EProgramChangeType change, const std::string &title) {
  TCProgramData programme;
  programme.title = title;
  for (const lumio::tv::Subscription &subscription : lumio::tv::Subscriptions()) {
    if (subscription.kind == lumio::tv::Kind::Program) {
      lumio::tv::EmitProgram(subscription.handle, change, programme, change == PROGRAM_CHANGE_PRESENT ? 0 : 1);
    }
  }
}

void EmitCaption(const std::string &text) {
  TSCaption caption;
  caption.payload.assign(text.begin(), text.end());
  lumio::tv::EmitCaption(caption);
}

void EmitPacket(int second, const std::string &text) {
  TSPESData packet;
  packet.streamId = 0xbd; // the private stream that carries teletext
  packet.pts = 90000ULL * static_cast<unsigned>(second);
  packet.payload.assign(text.begin(), text.end());
  lumio::tv::EmitPes(packet);
}

void EmitModule(int module, const std::string &text) {
  for (const lumio::tv::Subscription &session : lumio::tv::Subscriptions()) {
    if (session.kind == lumio::tv::Kind::Dsm) {
      lumio::tv::EmitDsm({0, 0, 1, session.handle, module, static_cast<std::uint32_t>(text.size()), text.data()});
    }
  }
}

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

// Returns the names of the modules that share the subscriptions of a kind.
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

// Describes the subscriptions that the TV service has now, by kind, with the modules that share them.
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

// The words after the name of an order. A word that is missing, or that should be a number and is none, throws
// std::logic_error.
class Arguments {
public:
  explicit Arguments(Words words) : words_(std::move(words)) {}

  int Number(size_t index) const { return std::stoi(words_.at(index)); }
  Words From(size_t index) const {
    return {words_.begin() + static_cast<long>(std::min(index, words_.size())), words_.end()};
  }
  std::string Text(size_t index) const { return lumio::Join(From(index), " "); }

private:
  Words words_;
};

Words Split(const std::string &line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

using Order = void (*)(const Arguments &arguments);

const std::map<std::string, Order> &Orders() {
  using A = Arguments;
  static const std::map<std::string, Order> orders = {
      // TEXT...
      {"caption", [](const A &a) { EmitCaption(a.Text(0)); }},
      // MEBIBYTES
      {"disk-space", [](const A &a) { lumio::pvr::SetFreeSpace(a.Number(0)); }},
      // TITLE...
      {"following", [](const A &a) { EmitProgramme(PROGRAM_CHANGE_FOLLOWING, a.Text(0)); }},
      // NUMBER TEXT...: sends a module while the next session is being opened
      {"greeting",
       [](const A &a) {
         lumio::tv::DuringNext(lumio::tv::Operation::AttachDsm,
                               [module = a.Number(0), text = a.Text(1)] { EmitModule(module, text); });
       }},
      // 1 or 0
      {"lock", [](const A &a) { EmitSignal(SIGNAL_TYPE_LOCK, a.Number(0), 0); }},
      // NUMBER TEXT...
      {"module", [](const A &a) { EmitModule(a.Number(0), a.Text(1)); }},
      // SECOND TEXT...
      {"packet", [](const A &a) { EmitPacket(a.Number(0), a.Text(1)); }},
      // TITLE...
      {"present", [](const A &a) { EmitProgramme(PROGRAM_CHANGE_PRESENT, a.Text(0)); }},
      // PROGRAMME
      {"record", [](const A &a) { lumio::pvr::StartRecording(a.Number(0)); }},
      // refuses the next session
      {"refuse-session", [](const A &) { lumio::tv::RefuseNext(lumio::tv::Operation::AttachDsm, 0); }},
      // NAME...
      {"services", [](const A &a) { lumio::tv::EmitSection(kServiceTablePid, MakeServiceTable(a.From(0))); }},
      {"stop-recording", [](const A &) { lumio::pvr::StopRecording(); }},
      // PERCENT PERCENT
      {"strength", [](const A &a) { EmitSignal(SIGNAL_TYPE_STRENGTH, a.Number(0), a.Number(1)); }},
  };
  return orders;
}

} // namespace

Studio::Studio(Presentation &screen, bool listen) : screen_(screen) {
  if (listen) {
    input_ = ecore_main_fd_handler_add(STDIN_FILENO, ECORE_FD_READ, InputCame, this, nullptr, nullptr);
  }
}

Studio::~Studio() {
  if (input_) {
    ecore_main_fd_handler_del(input_);
  }
  lumio::pvr::Shutdown();
  lumio::tv::Shutdown();
}

void Studio::ShowSubscriptions() { screen_.Show("subscriptions", DescribeSubscriptions()); }

Eina_Bool Studio::InputCame(void *data, Ecore_Fd_Handler *) {
  auto *self = static_cast<Studio *>(data);
  if (self->Read()) {
    return ECORE_CALLBACK_RENEW;
  }
  self->input_ = nullptr;
  return ECORE_CALLBACK_CANCEL;
}

// Returns whether more input may come.
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
  if (words.size() == 1 && words[0] == "subscriptions") {
    ShowSubscriptions();
    return;
  }
  const auto order = words.empty() ? Orders().end() : Orders().find(words[0]);
  try {
    if (order == Orders().end()) {
      throw std::invalid_argument(line);
    }
    order->second(Arguments({words.begin() + 1, words.end()}));
  } catch (const std::logic_error &) {
    screen_.Show("studio", "not understood: " + line);
  }
}
