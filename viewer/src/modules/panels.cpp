#include "../key_domain.h"
#include "../presentation.h"
#include "modules.h"

namespace {

constexpr int kPriority = 5;

class Panels : public Module {
public:
  Panels(ModuleContext context, bool remote) : screen_(context.screen), keys_("panels", context.journal) {
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
    if (remote) {
      Toggle(remote_, "remote", kRemote);
    }
  }

private:
  bool Press(const std::string &key) {
    if (key == "F1") {
      Toggle(overlay_, "keys", "the last ten keys");
    } else if (key == "F2") {
      Toggle(remote_, "remote", kRemote);
    } else {
      return false;
    }
    return true;
  }

  void Toggle(bool &shown, const char *item, const char *text) {
    shown = !shown;
    if (shown) {
      screen_.Show(item, text);
    } else {
      screen_.Hide(item);
    }
  }

  static constexpr char kRemote[] = "click to press a key";

  Presentation &screen_;
  bool overlay_ = false;
  bool remote_ = false;
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakePanels(ModuleContext context, bool remote) {
  return std::make_unique<Panels>(context, remote);
}
