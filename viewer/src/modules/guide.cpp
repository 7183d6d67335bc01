#include <TVServiceSubscriber.h>

#include <climits>
#include <fstream>
#include <map>
#include <sstream>

#include "../channels.h"
#include "../key_domain.h"
#include "../screen/wall_clock.h"
#include "../text.h"
#include "join.h"
#include "modules.h"

namespace {

constexpr int kPriority = 4;
constexpr int kCursorPriority = 2; // ahead of the channels, which use the same keys

const char kBuiltIn[] = "20:15 Evening News\n20:30 The Weather\n20:35 Tides and Harbours\n21:20 The Long Way Home\n"
                        "22:10 Kitchen Stories\n22:40 Late News\n22:55 Night Train\n00:25 Gardens of the North\n"
                        "01:10 Jazz at the Mill\n02:05 The Weather\n02:10 Shipping Forecast\n02:20 Test Card\n";

class Guide : public Module {
public:
  Guide(ModuleContext context, std::string source)
      : screen_(context.screen), channels_(context.channels), source_(std::move(source)),
        keys_("guide", context.journal) {
    self_ = this;
    tv_.SetProgramCallback(ProgramCame);
    if (channels_.ArePlayed()) {
      Subscribe();
    }
    channels_.OnTuned([this] { Resubscribe(); });
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
  }

  ~Guide() override { self_ = nullptr; }

private:
  void Subscribe() {
    tv_.SubscribeProgramList(0, channels_.Service(), 0, UINT_MAX, SUBSCRIBE_TYPE_CHANGES, handle_);
    tv_.SubscribeProgramListPF(0, channels_.Service(), SUBSCRIBE_TYPE_CHANGES, present_handle_);
  }
  void Resubscribe() {
    if (handle_ != 0) {
      tv_.UnSubscribeProgramList(handle_);
      tv_.UnSubscribeProgram(present_handle_);
    }
    broadcast_.clear();
    present_ = 0;
    Subscribe();
  }

  // Called without user data.
  static void ProgramCame(EProgramChangeType change, TCProgramData *data, int, int) {
    if (data->serviceId != self_->channels_.Service()) {
      return;
    }
    if (change == PROGRAM_CHANGE_LIST) {
      self_->broadcast_[data->startTime] = HourAndMinute(data->startTime) + " " + data->title;
    } else if (change == PROGRAM_CHANGE_PRESENT) {
      self_->present_ = data->startTime;
    }
  }

  bool Press(const std::string &key) {
    if (key != "XF86Option" && key != "g") {
      return false;
    }
    shown_ = !shown_;
    if (shown_) {
      Open();
    } else {
      keys_.Withdraw(kCursorPriority);
      screen_.Hide("guide");
    }
    return true;
  }

  // Reads the guide on the main loop: keys wait until that is done.
  void Open() {
    screen_.Show("guide", "loading");
    screen_.Refresh();
    const std::string trouble = Load();
    if (trouble.empty()) {
      keys_.OnPress(kCursorPriority, [this](const std::string &key) { return MoveCursor(key); });
      screen_.Show("guide", lumio::Join(list_.entries, "; "), list_);
    } else {
      screen_.Show("guide", trouble);
    }
  }

  bool MoveCursor(const std::string &key) {
    const size_t count = list_.entries.size();
    if (key == "Up") {
      list_.cursor = (list_.cursor + count - 1) % count;
    } else if (key == "Down") {
      list_.cursor = (list_.cursor + 1) % count;
    } else {
      return false;
    }
    screen_.Show("guide", list_.entries[list_.cursor], list_);
    return true;
  }

  // Returns what is wrong with the guide; empty if nothing is.
  std::string Load() {
    if (channels_.ArePlayed() && source_.empty()) {
      return LoadBroadcast();
    }
    std::stringstream lines(kBuiltIn);
    if (!source_.empty()) {
      lines.str("");
      lines << std::ifstream(source_).rdbuf();
    }
    list_ = {};
    for (std::string line; std::getline(lines, line);) {
      if (!IsText(line)) {
        return "the programme guide in " + source_ + " is not text";
      }
      list_.entries.push_back(line);
    }
    return list_.entries.empty() ? "no programme guide in " + source_ : "";
  }

  // The cursor is on the present programme.
  std::string LoadBroadcast() {
    list_ = {};
    for (const auto &[start, programme] : broadcast_) {
      list_.cursor = start <= present_ ? list_.entries.size() : list_.cursor;
      list_.entries.push_back(programme);
    }
    return list_.entries.empty() ? "no programme guide is broadcast" : "";
  }

  static Guide *self_; // set while the service may call

  Presentation &screen_;
  Channels &channels_;
  std::string source_;
  CTVServiceSubscriber tv_{"guide"};
  int handle_ = 0;
  int present_handle_ = 0;
  std::map<std::int64_t, std::string> broadcast_; // programmes by start
  std::int64_t present_ = 0;                      // start of the present programme
  bool shown_ = false;
  Details list_;
  KeyDomain keys_;
};

Guide *Guide::self_ = nullptr;

} // namespace

std::unique_ptr<Module> MakeGuide(ModuleContext context, std::string source) {
  return std::make_unique<Guide>(context, std::move(source));
}
