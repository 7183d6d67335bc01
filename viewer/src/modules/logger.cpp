#include "../key_domain.h"
#include "modules.h"

namespace {

constexpr int kPriority = 6; // asked last: sees the keys that no module has taken

class Logger : public Module {
public:
  explicit Logger(ModuleContext context) : screen_(context.screen), keys_("logger", context.journal) {
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
    keys_.OnRelease(kPriority, [](const std::string &) { return false; });
  }

private:
  bool Press(const std::string &key) {
    ++unused_;
    screen_.Show("unused keys", std::to_string(unused_) + ", last " + key);
    return false;
  }

  Presentation &screen_;
  int unused_ = 0;
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakeLogger(ModuleContext context) { return std::make_unique<Logger>(context); }
