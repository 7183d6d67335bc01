#include <TVServiceSubscriber.h>

#include <optional>

#include "../channels.h"
#include "../key_domain.h"
#include "../main_loop_calls.h"
#include "../text.h"
#include "modules.h"

namespace {

constexpr int kPriority = 4;

class DataService : public Module {
public:
  explicit DataService(ModuleContext context)
      : screen_(context.screen), channels_(context.channels), keys_("data", context.journal) {
    self_ = this;
    channels_.OnTuned([this] {
      if (session_) {
        Detach();
      }
    });
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
  }
  ~DataService() override { self_ = nullptr; }

private:
  bool Press(const std::string &key) {
    if (key != "XF86Red" && key != "r") {
      return false;
    }
    if (session_) {
      Detach();
    } else {
      Attach();
    }
    return true;
  }

  void Attach() {
    CTVServiceSubscriber tv("data service"); // an object can attach only once, so each session gets its own
    unsigned int session = 0;
    const std::string target = channels_.DataTarget();
    const EDsmAttachType type = channels_.ArePlayed() ? DSM_ATTACH_CACHED : DSM_ATTACH_NORMAL;
    if (!target.empty() &&
        tv.AttachDsm(MessageCame, session, target, DSM_DATA_SERVICE_OBJECT_CAROUSEL, type, nullptr, false)) {
      session_ = session;
      screen_.Show("data service", "attached");
    } else {
      screen_.Show("data service", "not available");
    }
  }

  void Detach() {
    CTVServiceSubscriber("data service").DetachDsm(*session_);
    session_.reset();
    screen_.Hide("data service");
  }

  // The service calls this on its own thread, without user data, and keeps the message only during the call.
  static void MessageCame(TSDsmMessage &message) {
    const std::string text(static_cast<const char *>(message.data), message.size);
    self_->calls_.Post([self = self_, session = message.sessionHandle, module = message.moduleId, text] {
      if (self->session_ == static_cast<unsigned int>(session)) { // not one that has been closed meanwhile
        self->ShowModule(module, text);
      }
    });
  }

  // Not all modules of a stream contain text.
  void ShowModule(int module, const std::string &text) {
    if (!channels_.ArePlayed() || IsText(text)) {
      screen_.Show("data service", "module " + std::to_string(module) + ": " + text);
    }
  }

  static DataService *self_; // set while the service may call

  Presentation &screen_;
  Channels &channels_;
  std::optional<unsigned int> session_;
  MainLoopCalls calls_;
  KeyDomain keys_;
};

DataService *DataService::self_ = nullptr;

} // namespace

std::unique_ptr<Module> MakeDataService(ModuleContext context) { return std::make_unique<DataService>(context); }
