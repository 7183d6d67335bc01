// Compares setting and reading a banner through the library with the same calls of the store.
#include <lumio-banner-state.h>

#include <benchmark/benchmark.h>
#include <vconf.h>

namespace {

constexpr char kKey[] = "memory/lumio/lumio_banner_state_1";
constexpr int kBanner = 3;

// Rejects the run if the store fails.
void Check(benchmark::State &state, int result) {
  if (result != 0) {
    state.SkipWithError("the store failed");
  }
}

void BareSet(benchmark::State &state) {
  while (state.KeepRunning()) {
    int word = 0;
    Check(state, vconf_get_int(kKey, &word));
    Check(state, vconf_set_int(kKey, word | (1 << kBanner)));
  }
}
BENCHMARK(BareSet)->Name("banner_set/bare");

void LibrarySet(benchmark::State &state) {
  while (state.KeepRunning()) {
    Check(state, lumio_set_banner_state(kBanner, 1));
  }
}
BENCHMARK(LibrarySet)->Name("banner_set/library");

void BareGet(benchmark::State &state) {
  while (state.KeepRunning()) {
    int word = 0;
    Check(state, vconf_get_int(kKey, &word));
    benchmark::DoNotOptimize(word);
  }
}
BENCHMARK(BareGet)->Name("banner_get/bare");

void LibraryGet(benchmark::State &state) {
  while (state.KeepRunning()) {
    int shown = 0;
    Check(state, lumio_get_banner_state(kBanner, &shown));
    benchmark::DoNotOptimize(shown);
  }
}
BENCHMARK(LibraryGet)->Name("banner_get/library");

} // namespace
