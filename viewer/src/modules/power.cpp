#include "../key_domain.h"
#include "modules.h"

namespace {

constexpr int kPriority = 1;

class Power : public Module {
public:
  Power(ModuleContext context, std::function<void(bool on)> set_standby, std::function<void()> quit)
      : set_standby_(std::move(set_standby)), quit_(std::move(quit)), keys_("power", context.journal) {
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
  }

private:
  bool Press(const std::string &key) {
    if (key == "XF86Standby" || key == "s") {
      standby_ = !standby_;
      set_standby_(standby_);
    } else if (key == "XF86PowerOff" || key == "q") {
      quit_();
    } else {
      return false;
    }
    return true;
  }

  bool standby_ = false;
  std::function<void(bool on)> set_standby_;
  std::function<void()> quit_;
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakePower(ModuleContext context, std::function<void(bool on)> set_standby,
                                  std::function<void()> quit) {
  return std::make_unique<Power>(context, std::move(set_standby), std::move(quit));
}
