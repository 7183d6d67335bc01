// Functions that stand in for callbacks that receive no data of their own. Each kind of callback has a fixed number of
// them, because code cannot be made while the program runs.
#pragma once

#include <array>
#include <atomic>
#include <string>
#include <utility>

#include "clock.h"
#include "symbols.h"

namespace lumio::trace {

// What a thunk stands in for. It never changes once it is set, because the library may keep a thunk for ever.
struct ThunkTarget {
  std::string module;
  Symbol symbol;
  std::atomic<unsigned> calls{0};
  std::atomic<Nanoseconds> longest{0};

  void Note(Nanoseconds took) {
    ++calls;
    if (took > longest) {
      longest = took;
    }
  }
};

// `Call` is a class with `static Result Run(ThunkTarget &target, Function function, Arguments...)`.
template <class Call, class Function> class Thunks;

template <class Call, class Result, class... Arguments> class Thunks<Call, Result (*)(Arguments...)> {
public:
  using Function = Result (*)(Arguments...);
  static constexpr int kCount = 128;

  // Returns the thunk of the function for that module, the same each time; the function itself if it is null or no
  // thunk is left. Call it with the lock held.
  static Function For(const std::string &module, Function function) {
    if (!function) {
      return nullptr;
    }
    const int used = used_;
    for (int i = 0; i < used; ++i) {
      if (slots_[i].function == function && slots_[i].target->module == module) {
        return kThunks[i];
      }
    }
    if (used == kCount) {
      exhausted_ = true;
      return function;
    }
    slots_[used].function = function;
    slots_[used].target = new ThunkTarget{module, SymbolOf(function)};
    used_ = used + 1;
    return kThunks[used];
  }

  // Returns whether some functions are called without a thunk.
  static bool IsExhausted() { return exhausted_; }

  template <class Visit> static void ForEach(Visit visit) {
    for (int i = 0; i < used_; ++i) {
      visit(*slots_[i].target, slots_[i].function);
    }
  }

private:
  struct Slot {
    Function function;
    ThunkTarget *target;
  };

  template <size_t Index> static Result Thunk(Arguments... arguments) {
    return Call::Run(*slots_[Index].target, slots_[Index].function, static_cast<Arguments>(arguments)...);
  }

  template <size_t... Indices>
  static constexpr std::array<Function, kCount> MakeThunks(std::index_sequence<Indices...>) {
    return {Thunk<Indices>...};
  }

  static constexpr std::array<Function, kCount> kThunks = MakeThunks(std::make_index_sequence<kCount>());
  inline static Slot slots_[kCount];
  inline static std::atomic<int> used_{0};
  inline static std::atomic<bool> exhausted_{false};
};

} // namespace lumio::trace
