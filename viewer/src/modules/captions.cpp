#include <TVServiceSubscriber.h>

#include "../caption_choice.h"
#include "../channels.h"
#include "../key_domain.h"
#include "../presentation.h"
#include "modules.h"

namespace {

constexpr int kPriority = 4;

class Captions : public Module {
public:
  explicit Captions(ModuleContext context) : screen_(context.screen), keys_("captions", context.journal) {
    tv_.SubscribeCaption(CaptionCame, this);
    context.channels.OnTuned([this] {
      choice_.Reset();
      screen_.Hide("captions");
    });
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
  }

private:
  bool Press(const std::string &key) {
    if (key != "c") {
      return false;
    }
    on_ = !on_;
    if (on_) {
      tv_.SubscribeCaption(CaptionCame, this);
    } else {
      tv_.UnsubscribeCaption();
      screen_.Hide("captions");
    }
    return true;
  }

  static void CaptionCame(TSCaption &caption, void *data) {
    auto *self = static_cast<Captions *>(data);
    if (!self->choice_.Accepts(caption)) {
      return;
    }
    if (caption.payload.empty()) {
      self->screen_.Hide("captions");
    } else {
      self->screen_.Show("captions", std::string(caption.payload.begin(), caption.payload.end()));
    }
  }

  Presentation &screen_;
  CTVServiceSubscriber tv_{"captions"};
  bool on_ = true;
  CaptionChoice choice_;
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakeCaptions(ModuleContext context) { return std::make_unique<Captions>(context); }
