#include <TVServiceSubscriber.h>

#include "../presentation.h"
#include "modules.h"

namespace {

constexpr unsigned short kScreen = 0;

class Picture : public Module {
public:
  explicit Picture(ModuleContext context) : screen_(context.screen) {
    tv_.SetSignalCallback(SignalCame);
    tv_.SubscribeSignal(SIGNAL_TYPE_LOCK, this, PROFILE_MAIN, kScreen);
  }

private:
  static int SignalCame(ESignalType, EProfile, unsigned short, TSSignalData data, void *user_data) {
    static_cast<Picture *>(user_data)->screen_.Show("picture", data.value == 1 ? "moving" : "no signal");
    return 0;
  }

  Presentation &screen_;
  CTVServiceSubscriber tv_{"picture"};
};

} // namespace

std::unique_ptr<Module> MakePicture(ModuleContext context) { return std::make_unique<Picture>(context); }
