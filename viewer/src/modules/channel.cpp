#include "../banner.h"
#include "../channels.h"
#include "../key_domain.h"
#include "modules.h"

namespace {

constexpr int kPriority = 3;
constexpr int kChannels = 9;

class Channel : public Module {
public:
  explicit Channel(ModuleContext context)
      : banner_(kChannelBanner, "channel", context.screen), channels_(context.channels),
        keys_("channel", context.journal) {
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
  }

private:
  bool Press(const std::string &key) {
    if (key == "XF86RaiseChannel" || key == "Prior" || key == "Up") {
      channel_ = channel_ % kChannels + 1;
    } else if (key == "XF86LowerChannel" || key == "Next" || key == "Down") {
      channel_ = (channel_ + kChannels - 2) % kChannels + 1;
    } else if (key.size() == 1 && key[0] >= '1' && key[0] <= '9') {
      channel_ = key[0] - '0';
    } else {
      return false;
    }
    channels_.Tune(channel_);
    banner_.ShowBriefly(std::to_string(channel_));
    return true;
  }

  Banner banner_;
  Channels &channels_;
  int channel_ = 1;
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakeChannel(ModuleContext context) { return std::make_unique<Channel>(context); }
