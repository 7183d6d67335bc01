#include <fstream>

#include "../key_domain.h"
#include "join.h"
#include "modules.h"

namespace {

constexpr int kPriority = 4;

class Guide : public Module {
public:
  Guide(ModuleContext context, std::string source)
      : screen_(context.screen), source_(std::move(source)), keys_("guide", context.journal) {
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
  }

private:
  bool Press(const std::string &key) {
    if (key != "XF86Option" && key != "g") {
      return false;
    }
    shown_ = !shown_;
    if (shown_) {
      screen_.Show("guide", "loading");
      screen_.Show("guide", Load());
    } else {
      screen_.Hide("guide");
    }
    return true;
  }

  // Reads the guide on the main loop, where keys wait until it is read.
  std::string Load() {
    if (source_.empty()) {
      return "20:15 Evening News; 20:30 The Weather";
    }
    std::ifstream file(source_);
    std::vector<std::string> programmes;
    for (std::string line; std::getline(file, line);) {
      programmes.push_back(line);
    }
    return programmes.empty() ? "no programme guide in " + source_ : lumio::Join(programmes, "; ");
  }

  Presentation &screen_;
  std::string source_;
  bool shown_ = false;
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakeGuide(ModuleContext context, std::string source) {
  return std::make_unique<Guide>(context, std::move(source));
}
