#include <algorithm>

#include "../banner.h"
#include "../key_domain.h"
#include "modules.h"

namespace {

constexpr int kPriority = 2;
constexpr int kLoudest = 100;

class Volume : public Module {
public:
  explicit Volume(ModuleContext context)
      : banner_(kVolumeBanner, "volume", context.screen), keys_("volume", context.journal) {
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
  }

private:
  bool Press(const std::string &key) {
    if (key == "XF86AudioRaiseVolume" || key == "+") {
      ++level_;
    } else if (key == "XF86AudioLowerVolume" || key == "-") {
      --level_;
    } else {
      return false;
    }
    level_ = std::clamp(level_, 0, kLoudest);
    banner_.ShowBriefly(std::to_string(level_));
    return true;
  }

  Banner banner_;
  int level_ = 10;
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakeVolume(ModuleContext context) { return std::make_unique<Volume>(context); }
