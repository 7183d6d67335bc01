// Compares a state change announced through the library with a plain loop over the callbacks under a lock.
#include <LumioStateSubscriber.h>

#include <benchmark/benchmark.h>

#include <array>
#include <mutex>
#include <utility>
#include <vector>

enum ELUMIO_STATE : int { kRunning = 7 };

namespace {

using Callback = CLumioStateSubscriber::StateChangedCallback;

constexpr size_t kMost = 100;

// The library registers each function only once, so there are many.
template <size_t> void Count(ELUMIO_STATE, void *user_data) { ++*static_cast<size_t *>(user_data); }

template <size_t... I> constexpr std::array<Callback, sizeof...(I)> Counters(std::index_sequence<I...>) {
  return {Count<I>...};
}

constexpr std::array<Callback, kMost> kCallbacks = Counters(std::make_index_sequence<kMost>());

void Bare(benchmark::State &state) {
  size_t count = 0;
  std::mutex mutex;
  std::vector<std::pair<Callback, void *>> callbacks;
  callbacks.reserve(kMost);
  for (int i = 0; i < state.range(0); ++i) {
    callbacks.emplace_back(kCallbacks[i], &count);
  }
  while (state.KeepRunning()) {
    const std::lock_guard<std::mutex> lock(mutex);
    for (const auto &[callback, user_data] : callbacks) {
      callback(kRunning, user_data);
    }
  }
}
BENCHMARK(Bare)->Name("state_change/bare")->Arg(1)->Arg(10)->Arg(kMost);

void Library(benchmark::State &state) {
  size_t count = 0;
  CLumioStateSubscriber module("bench");
  for (int i = 0; i < state.range(0); ++i) {
    module.RegisterLumioStateChangeCb(kCallbacks[i], &count);
  }
  while (state.KeepRunning()) {
    CLumioStateSubscriber::HandleStateChanged(kRunning);
  }
  for (int i = 0; i < state.range(0); ++i) {
    module.UnregisterLumioStateChangeCb(kCallbacks[i]);
  }
}
BENCHMARK(Library)->Name("state_change/library")->Arg(1)->Arg(10)->Arg(kMost);

} // namespace
