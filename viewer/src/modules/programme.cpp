#include <TVServiceSubscriber.h>

#include "../presentation.h"
#include "modules.h"

namespace {

constexpr TCServiceId kService = 0x000100010001;

class Programme : public Module {
public:
  explicit Programme(ModuleContext context) : screen_(context.screen) {
    self_ = this;
    tv_.SetProgramCallback(ProgramCame);
    int handle = 0; // never used: the subscription lasts as long as the viewer
    tv_.SubscribeProgramListPF(0, kService, SUBSCRIBE_TYPE_CHANGES, handle);
  }
  ~Programme() override { self_ = nullptr; }

private:
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
  CTVServiceSubscriber tv_{"programme"};
};

Programme *Programme::self_ = nullptr;

} // namespace

std::unique_ptr<Module> MakeProgramme(ModuleContext context) { return std::make_unique<Programme>(context); }
