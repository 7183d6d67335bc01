// Finds the functions that the tracer's own functions pass their calls on to.
#pragma once

#include <atomic>

namespace lumio::trace {

// Returns the definition that a call would reach without the tracer; null if there is none. A program may load the
// library later, with local names, and unload it again.
void *FindNext(const char *name);

// Returns the variable of the library or of EFL that the program sees; null if there is none.
void *FindVariable(const char *name);

// Ends the process, because it called a function that nothing defines.
[[noreturn]] void NobodyDefines(const char *name);

// Counts the objects that were unloaded: each may take with it what was found before.
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

  // Null if no loaded object defines it.
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

  // Null if no loaded object defines it.
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
