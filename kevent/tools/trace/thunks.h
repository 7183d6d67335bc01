// Functions that stand for other functions, for callbacks that bring no data of their own: a fixed number of them for
// each kind of callback, since code cannot be made while the program runs.
#pragma once

#include <array>
#include <atomic>
#include <string>
#include <utility>

#include "clock.h"
#include "symbols.h"

namespace lumio::trace {

// What a thunk stands for. Never changes once it is taken: the library may keep a thunk for as long as it likes.
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

  // The thunk of the function for that module, the same each time; the function itself when it is null or no thunk is
  // left. With the lock held.
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

  // Whether functions are called without a thunk.
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
