// The functions behind those of the tracer: what a call goes on to.
#pragma once

#include <atomic>

namespace lumio::trace {

// The definition that a call would reach without the tracer; null when there is none. The library may come in later,
// with local names, and go again.
void *FindNext(const char *name);

// A variable of the library or of EFL as the program sees it; null when there is none.
void *FindVariable(const char *name);

// Ends the process: something is called that nobody defines.
[[noreturn]] void NobodyDefines(const char *name);

// Counts the objects that were unloaded. What was found before may be gone.
extern std::atomic<unsigned> g_unloads;

template <class Signature> class Next;

template <class Result, class... Arguments> class Next<Result(Arguments...)> {
public:
  using Function = Result (*)(Arguments...);

  constexpr explicit Next(const char *name) : name_(name) {}

  Result operator()(Arguments... arguments) {
    const Function function = Get();
    if (!function) {
      NobodyDefines(name_);
    }
    return function(arguments...);
  }

  // Null when nobody defines it.
  Function Get() {
    const unsigned unloads = g_unloads;
    if (!found_ || unloads_ != unloads) {
      found_ = reinterpret_cast<Function>(FindNext(name_));
      unloads_ = unloads;
    }
    return found_;
  }

private:
  const char *name_;
  std::atomic<Function> found_{nullptr};
  std::atomic<unsigned> unloads_{0};
};

template <class Type> class Variable {
public:
  constexpr explicit Variable(const char *name) : name_(name) {}

  // Null when nobody defines it.
  Type *Get() {
    const unsigned unloads = g_unloads;
    if (!found_ || unloads_ != unloads) {
      found_ = static_cast<Type *>(FindVariable(name_));
      unloads_ = unloads;
    }
    return found_;
  }

private:
  const char *name_;
  std::atomic<Type *> found_{nullptr};
  std::atomic<unsigned> unloads_{0};
};

} // namespace lumio::trace
