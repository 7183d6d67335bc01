#include <TVServiceSubscriber.h>

#include "../caption_choice.h"
#include "../channels.h"
#include "../presentation.h"
#include "modules.h"

namespace {

class Transcript : public Module {
public:
  explicit Transcript(ModuleContext context) : screen_(context.screen) {
    tv_.SubscribeCaption(CaptionCame, this);
    context.channels.OnTuned([this] { choice_.Reset(); });
  }

private:
  static void CaptionCame(TSCaption &caption, void *data) {
    auto *self = static_cast<Transcript *>(data);
    if (!self->choice_.Accepts(caption) || caption.payload.empty()) { // or the captions disappear
      return;
    }
    self->text_.append(self->text_.empty() ? "" : " / ").append(caption.payload.begin(), caption.payload.end());
    self->screen_.Show("transcript", self->text_);
  }

  Presentation &screen_;
  std::string text_;
  CaptionChoice choice_;
  CTVServiceSubscriber tv_{"transcript"};
};

} // namespace

std::unique_ptr<Module> MakeTranscript(ModuleContext context) { return std::make_unique<Transcript>(context); }
