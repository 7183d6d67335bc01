// Records callbacks that are registered by address, each by one module.
#pragma once

#include <map>
#include <string>

#include "rooms.h"
#include "symbols.h"
#include "text.h"

namespace lumio::trace {

class Registrations {
public:
  explicit Registrations(const char *what) : what_(what) {}

  void CheckRegister(const char *function, const std::string &module, const void *callback, const void *caller) const;
  void CheckUnregister(const char *function, const std::string &module, const void *callback, const void *caller) const;

  void Add(const std::string &module, const void *callback);
  void Remove(const void *callback);

  // Returns the modules in the order of their calls, as in "light, recorder".
  std::string Modules() const;

  // Call it with the lock held.
  void Visit(const CallbackVisitor &visit) const;
  void Print(Text &text) const;

private:
  struct Entry {
    std::string module;
    Symbol symbol;
  };

  const char *what_;
  std::map<const void *, Entry> entries_;
};

// Counts down in its destructor, because a callback may throw.
class InLock {
public:
  explicit InLock(int &depth) : depth_(depth) {}
  ~InLock() { --depth_; }
  InLock(const InLock &) = delete;
  InLock &operator=(const InLock &) = delete;

private:
  int &depth_;
};

} // namespace lumio::trace
