#include <TVServiceSubscriber.h>

#include <optional>

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
      language_.reset();
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

  // If there are several languages, shows the one that comes first.
  static void CaptionCame(TSCaption &caption, void *data) {
    auto *self = static_cast<Captions *>(data);
    if (caption.payload.empty()) {
      if (self->language_ == caption.language) {
        self->screen_.Hide("captions");
      }
      return;
    }
    self->language_ = self->language_.value_or(caption.language);
    if (self->language_ == caption.language) {
      self->screen_.Show("captions", std::string(caption.payload.begin(), caption.payload.end()));
    }
  }

  Presentation &screen_;
  CTVServiceSubscriber tv_{"captions"};
  bool on_ = true;
  std::optional<decltype(TSCaption::language)> language_; // the one that is shown
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakeCaptions(ModuleContext context) { return std::make_unique<Captions>(context); }
