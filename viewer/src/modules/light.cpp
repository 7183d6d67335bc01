#include "../presentation.h"
#include "../viewer_state.h"
#include "modules.h"

namespace {

class Light : public Module {
public:
  explicit Light(ModuleContext context) : screen_(context.screen) {
    states_.RegisterLumioStateChangeCb(StateChanged, this); // there is one light, so one registration
  }
  ~Light() override { states_.UnregisterLumioStateChangeCb(StateChanged); }

private:
  static void StateChanged(ELUMIO_STATE state, void *data) {
    Presentation &screen = static_cast<Light *>(data)->screen_;
    switch (state) {
    case VIEWER_STATE_LIVE:
      screen.Show("light", "green");
      break;
    case VIEWER_STATE_STANDBY:
      screen.Show("light", "red");
      break;
    case VIEWER_STATE_CLOSING:
      screen.Hide("light");
      break;
    }
  }

  Presentation &screen_;
  CLumioStateSubscriber states_{"light"};
};

} // namespace

std::unique_ptr<Module> MakeLight(ModuleContext context) { return std::make_unique<Light>(context); }
