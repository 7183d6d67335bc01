#include <array>

#include "../key_domain.h"
#include "modules.h"

namespace {

constexpr int kPriority = 0; // a modal menu comes before everything else
constexpr std::array<const char *, 3> kEntries = {"Picture", "Sound", "Channels"};

class Menu : public Module {
public:
  explicit Menu(ModuleContext context) : screen_(context.screen), keys_("menu", context.journal) {
    keys_.OnPress(kPriority, [this](const std::string &key) { return Press(key); });
    keys_.OnRelease(kPriority, [this](const std::string &key) { return open_ && Uses(key); });
  }

private:
  static bool Opens(const std::string &key) { return key == "Menu" || key == "m"; }

  static bool Uses(const std::string &key) {
    return Opens(key) || key == "Up" || key == "Down" || key == "Return" || key == "Escape";
  }

  bool Press(const std::string &key) {
    if (open_ ? !Uses(key) : !Opens(key)) {
      return false;
    }
    if (key == "Up" || key == "Down") {
      const size_t step = key == "Down" ? 1 : kEntries.size() - 1;
      entry_ = (entry_ + step) % kEntries.size();
      Show();
    } else if (key == "Return") {
      chosen_ = entry_;
      Show();
    } else {
      Toggle();
    }
    return true;
  }

  void Toggle() {
    open_ = !open_;
    if (open_) {
      Show();
    } else {
      screen_.Hide("menu");
    }
  }

  void Show() {
    Details list = {{kEntries.begin(), kEntries.end()}, entry_};
    const std::string text = kEntries[entry_];
    if (chosen_ < kEntries.size()) {
      list.entries[chosen_] += " \u2713";
    }
    screen_.Show("menu", entry_ == chosen_ ? text + " chosen" : text, list);
  }

  Presentation &screen_;
  bool open_ = false;
  size_t entry_ = 0;
  size_t chosen_ = kEntries.size(); // none yet
  KeyDomain keys_;
};

} // namespace

std::unique_ptr<Module> MakeMenu(ModuleContext context) { return std::make_unique<Menu>(context); }
