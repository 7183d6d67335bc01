// A module that a viewer loads while it runs. It shows a banner and watches it until it is unloaded.
#include <lumio-banner-state.h>

#include <cstdlib>

namespace {

constexpr int kBanner = 7;

void OnBanner(int banner_id, void *data) { *static_cast<int *>(data) = banner_id; }

int *g_told; // the library frees it when the callback is deleted

} // namespace

extern "C" int module_start() {
  g_told = static_cast<int *>(calloc(1, sizeof *g_told));
  lumio_banner_state_cb_add(kBanner, OnBanner, g_told);
  lumio_set_banner_state(kBanner, 1);
  return *g_told;
}

extern "C" void module_stop() { lumio_banner_state_cb_del(kBanner, OnBanner); }
