#include <lumio-banner-state.h>

#include <cstdlib>

#include "../banner.h"
#include "modules.h"

namespace {

constexpr const char *kNames[] = {"volume", "channel", "info", "record indicator"}; // by BannerId

class Layout : public Module {
public:
  explicit Layout(ModuleContext context) : screen_(context.screen) {
    lumio_banner_init();
    for (int id = kVolumeBanner; id <= kRecordBanner; ++id) {
      Watch(id);
    }
  }
  ~Layout() override {
    for (int id = kVolumeBanner; id <= kRecordBanner; ++id) {
      lumio_banner_state_cb_del(id, BannerChanged);
    }
  }

private:
  struct Registration {
    Layout *layout;
  };

  // The library owns the data of a registration and releases it with free().
  void Watch(int id) {
    auto *registration = static_cast<Registration *>(std::malloc(sizeof(Registration)));
    if (registration) {
      registration->layout = this;
      lumio_banner_state_cb_add(id, BannerChanged, registration);
    }
  }

  static void BannerChanged(int id, void *data) {
    int shown = 0;
    if (lumio_get_banner_state(id, &shown) == 0 && shown == 1) {
      static_cast<Registration *>(data)->layout->MakeRoom(id);
    }
  }

  void MakeRoom(int id) {
    rooms_ += (rooms_.empty() ? "" : ", ") + std::string(kNames[id]);
    screen_.Show("layout", "room for " + rooms_);
  }

  Presentation &screen_;
  std::string rooms_;
};

} // namespace

std::unique_ptr<Module> MakeLayout(ModuleContext context) { return std::make_unique<Layout>(context); }
