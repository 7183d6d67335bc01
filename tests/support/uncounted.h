// Separates the memory of the fakes' own records from the memory of the tested code.
#pragma once

// While an object exists, the allocations of its thread neither count nor fail (see fake_memory.h).
class Uncounted {
public:
  Uncounted() { ++g_depth; }
  ~Uncounted() { --g_depth; }
  Uncounted(const Uncounted &) = delete;
  Uncounted &operator=(const Uncounted &) = delete;

  static bool Active() { return g_depth != 0; }

private:
  inline static thread_local int g_depth = 0;
};
