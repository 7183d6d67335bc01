#include <TVServiceSubscriber.h>

#include "../presentation.h"
#include "modules.h"

namespace {

constexpr unsigned char kPrivateStream = 0xbd; // carries teletext
constexpr unsigned long long kClock = 90000;   // ticks of a time stamp per second

class Teletext : public Module {
public:
  explicit Teletext(ModuleContext context) : screen_(context.screen) { tv_.SubscribePES(PacketCame, this); }

private:
  static void PacketCame(TSPESData &packet, void *data) {
    if (packet.streamId == kPrivateStream) {
      static_cast<Teletext *>(data)->screen_.Show("teletext", std::to_string(packet.payload.size()) +
                                                                  " bytes for second " +
                                                                  std::to_string(packet.pts / kClock));
    }
  }

  Presentation &screen_;
  CTVServiceSubscriber tv_{"teletext"};
};

} // namespace

std::unique_ptr<Module> MakeTeletext(ModuleContext context) { return std::make_unique<Teletext>(context); }
