#include <TVServiceSubscriber.h>

#include "../modules.h"
#include "../presentation.h"

namespace {

class Captions : public Module {
public:
  explicit Captions(ModuleContext context) : screen_(context.screen) { tv_.SubscribeCaption(CaptionCame, this); }

private:
  static void CaptionCame(TSCaption &caption, void *data) {
    static_cast<Captions *>(data)->screen_.Show("captions",
                                                std::string(caption.payload.begin(), caption.payload.end()));
  }

  Presentation &screen_;
  CTVServiceSubscriber tv_{"captions"};
};

} // namespace

std::unique_ptr<Module> MakeCaptions(ModuleContext context) { return std::make_unique<Captions>(context); }
