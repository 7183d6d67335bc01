#include "teletext.h"

#include <TVServiceSubscriber.h>

#include <memory>
#include <sstream>

#include "../channels.h"
#include "../key_domain.h"
#include "../presentation.h"
#include "../text.h"
#include "join.h"
#include "modules.h"

namespace {

using lumio::broadcast::Caption;
using lumio::broadcast::TeletextDecoder;

constexpr int kPriority = 5;
constexpr unsigned char kPrivateStream = 0xbd; // carries teletext
constexpr unsigned long long kClock = 90000;   // ticks of a time stamp per second
constexpr int kPage = 0x100;                   // where a service's teletext begins

class Teletext : public Module {
public:
  explicit Teletext(ModuleContext context) : screen_(context.screen), keys_("teletext", context.journal) {
    tv_.SubscribePES(PacketCame, this);
    context.channels.OnTuned([this] { Forget(); });
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
  }

private:
  static void PacketCame(TSPESData &packet, void *data) {
    auto *self = static_cast<Teletext *>(data);
    if (packet.streamId == kPrivateStream) {
      self->screen_.Show("teletext", std::to_string(packet.payload.size()) + " bytes for second " +
                                         std::to_string(packet.pts / kClock));
      self->Decode(packet);
    }
  }

  // Of several streams it reads the first.
  void Decode(const TSPESData &packet) {
    if (!decoder_) {
      pid_ = packet.pid;
      decoder_ = std::make_unique<TeletextDecoder>(
          pid_, std::vector<lumio::broadcast::TeletextPage>{{0, kPage}},
          [this](const Caption &page) { PageCame(page.text); }, TeletextDecoder::Form::kWholePage);
    }
    if (packet.pid == pid_) {
      decoder_->Push({pid_, packet.streamId, packet.pts, packet.pts, {packet.payload.data(), packet.payload.size()}});
    }
  }

  void PageCame(const std::string &text) {
    const bool is_new = text != page_;
    page_ = text;
    if (shown_ && is_new) {
      Show();
    }
  }

  bool Press(const std::string &key) {
    if (key != "t") {
      return false;
    }
    shown_ = !shown_;
    if (shown_) {
      Show();
    } else {
      screen_.Hide("page");
    }
    return true;
  }

  void Show() {
    if (page_.empty()) {
      screen_.Show("page", "page 100 has not come yet");
      return;
    }
    Details page;
    std::istringstream rows(page_);
    std::vector<std::string> words; // for a presentation in one line
    for (std::string row; std::getline(rows, row); page.entries.push_back(row)) {
      const std::string text = Squeezed(row);
      if (!text.empty()) {
        words.push_back(text);
      }
    }
    screen_.Show("page", lumio::Join(words, " / "), page);
  }

  void Forget() {
    decoder_.reset();
    page_.clear();
    if (shown_) {
      Show();
    }
  }

  Presentation &screen_;
  std::unique_ptr<TeletextDecoder> decoder_; // null: the service has sent none yet
  unsigned short pid_ = 0;
  std::string page_; // rows, each ended by a newline
  bool shown_ = false;
  CTVServiceSubscriber tv_{"teletext"};
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakeTeletext(ModuleContext context) { return std::make_unique<Teletext>(context); }
