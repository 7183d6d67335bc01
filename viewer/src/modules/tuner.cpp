#include <TVServiceSubscriber.h>

#include "../presentation.h"
#include "modules.h"

namespace {

constexpr unsigned short kScreen = 0;

class Tuner : public Module {
public:
  explicit Tuner(ModuleContext context) : screen_(context.screen) {
    tv_.SetSignalCallback(SignalCame);
    tv_.SubscribeSignal(SIGNAL_TYPE_LOCK, this, PROFILE_MAIN, kScreen);
    tv_.SubscribeSignal(SIGNAL_TYPE_STRENGTH, this, PROFILE_MAIN, kScreen);
  }

private:
  static int SignalCame(ESignalType type, TSSignalData data, void *user_data) {
    Presentation &screen = static_cast<Tuner *>(user_data)->screen_;
    if (type == SIGNAL_TYPE_LOCK) {
      screen.Show("tuner", data.value == 1 ? "locked" : "searching");
    } else {
      screen.Show("tuner",
                  "strength " + std::to_string(data.value) + " %, quality " + std::to_string(data.extra) + " %");
    }
    return 0;
  }

  Presentation &screen_;
  CTVServiceSubscriber tv_{"tuner"};
};

} // namespace

std::unique_ptr<Module> MakeTuner(ModuleContext context) { return std::make_unique<Tuner>(context); }
