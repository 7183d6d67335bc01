#include <TVServiceSubscriber.h>

#include "../presentation.h"
#include "modules.h"

namespace {

class StreamMeter : public Module {
public:
  explicit StreamMeter(ModuleContext context) : screen_(context.screen) { tv_.SubscribePES(PacketCame, this); }

private:
  static void PacketCame(TSPESData &packet, void *data) {
    auto *self = static_cast<StreamMeter *>(data);
    self->bytes_ += packet.payload.size();
    self->screen_.Show("stream meter", std::to_string(self->bytes_) + " bytes");
  }

  Presentation &screen_;
  size_t bytes_ = 0;
  CTVServiceSubscriber tv_{"stream meter"};
};

} // namespace

std::unique_ptr<Module> MakeStreamMeter(ModuleContext context) { return std::make_unique<StreamMeter>(context); }
