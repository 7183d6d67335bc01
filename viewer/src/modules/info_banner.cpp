#include "../banner.h"
#include "../key_domain.h"
#include "modules.h"

namespace {

constexpr int kPriority = 4;

class InfoBanner : public Module {
public:
  explicit InfoBanner(ModuleContext context)
      : banner_(kInfoBanner, "info", context.screen), keys_("info", context.journal) {
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
  }

private:
  bool Press(const std::string &key) {
    if (key != "XF86Info" && key != "i") {
      return false;
    }
    shown_ = !shown_;
    if (shown_) {
      banner_.Show("what is on now");
    } else {
      banner_.Hide();
    }
    return true;
  }

  Banner banner_;
  bool shown_ = false;
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakeInfoBanner(ModuleContext context) { return std::make_unique<InfoBanner>(context); }
