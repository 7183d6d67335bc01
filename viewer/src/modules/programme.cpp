#include <TVServiceSubscriber.h>

#include "../channels.h"
#include "../presentation.h"
#include "modules.h"

namespace {

class Programme : public Module {
public:
  explicit Programme(ModuleContext context) : screen_(context.screen), channels_(context.channels) {
    self_ = this;
    tv_.SetProgramCallback(ProgramCame);
    Subscribe();
    channels_.OnTuned([this] {
      tv_.UnSubscribeProgram(handle_);
      screen_.Hide("now");
      screen_.Hide("next");
      Subscribe();
    });
  }
  ~Programme() override { self_ = nullptr; }

private:
  void Subscribe() { tv_.SubscribeProgramListPF(0, channels_.Service(), SUBSCRIBE_TYPE_CHANGES, handle_); }

  // Called without user data.
  static void ProgramCame(EProgramChangeType change, TCProgramData *data, int, int) {
    const Details when = {{}, 0, data->startTime, data->startTime + data->duration};
    if (change == PROGRAM_CHANGE_PRESENT) {
      self_->screen_.Show("now", data->title, when);
    } else if (change == PROGRAM_CHANGE_FOLLOWING) {
      self_->screen_.Show("next", data->title, when);
    }
  }

  static Programme *self_;

  Presentation &screen_;
  Channels &channels_;
  int handle_ = 0;
  CTVServiceSubscriber tv_{"programme"};
};

Programme *Programme::self_ = nullptr;

} // namespace

std::unique_ptr<Module> MakeProgramme(ModuleContext context) { return std::make_unique<Programme>(context); }
